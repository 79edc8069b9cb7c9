#pragma once

#include "platform/foundation/Date.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

class FileLogger;
class Preferences;

// The open log files of one FileLogManager. Loggers hold it weakly, so a
// logger that outlives its manager simply stops writing.
class FileLogSink {
public:
    FileLogSink(std::string logsDirectory, std::function<Date()> now);
    ~FileLogSink();
    FileLogSink(const FileLogSink&) = delete;
    FileLogSink& operator=(const FileLogSink&) = delete;

    const std::string& directory() const { return _directory; }
    // Appends "<ISO-8601 UTC with milliseconds> <text>\n" to <directory>/<name>.log,
    // creating the directory on first use. Names that are not a single path
    // component are refused.
    bool write(const std::string& name, std::string_view text);

    static std::string timestamp(Date date);

private:
    int fileLocked(const std::string& name);

    const std::string _directory;
    const std::function<Date()> _now;
    std::mutex _lock;
    std::map<std::string, int> _files;
};

// Registers the process's file loggers and keeps them in step with their
// preferences.
class FileLogManager {
public:
    FileLogManager(
        std::shared_ptr<Preferences> preferences, std::string logsDirectory, std::function<Date()> now);

    // Applies the logger's preferences at once.
    void registerLogger(std::shared_ptr<FileLogger> logger);
    // Rereads the preference files, then applies them to every logger.
    void reloadFromDefaults();
    std::vector<std::shared_ptr<FileLogger>> loggers() const;

    const std::string& logsDirectory() const { return _sink->directory(); }

private:
    void apply(FileLogger& logger);

    const std::shared_ptr<Preferences> _preferences;
    const std::shared_ptr<FileLogSink> _sink;
    mutable std::mutex _lock;
    std::vector<std::shared_ptr<FileLogger>> _loggers;
};

} // namespace tessel
