#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace tessel {

class FileLogSink;

// A named diagnostic log in Library/Logs/<name>.log, switched on and tuned by
// boolean and integer preferences that its FileLogManager applies through the
// _set hooks. Subclasses override the hooks to drive their own level state.
class FileLogger {
public:
    virtual ~FileLogger();

    virtual std::string name() const = 0;
    // The boolean preference that enables it; "<name>Level", when present, sets
    // the level.
    virtual std::string logPreferenceName() const = 0;
    virtual std::string logPreferenceDomain() const = 0;

    // The stored level, -1 until a level preference is applied.
    virtual int level() const;
    virtual void _setEnabled(bool enabled);
    virtual void _setLevel(int level);

    bool isEnabled() const;

    // Appends "<timestamp> <text>\n". Call sites decide from the level whether to
    // log; this always writes, as long as a live manager has registered it.
    void log(std::string_view text);

private:
    friend class FileLogManager;
    void attach(std::weak_ptr<FileLogSink> sink);

    std::atomic<bool> _enabled { false };
    std::atomic<int> _level { -1 };
    std::mutex _sinkLock;
    std::weak_ptr<FileLogSink> _sink;
};

} // namespace tessel
