#include "platform/logging/FileLogger.h"

#include "platform/logging/FileLogManager.h"

namespace tessel {

FileLogger::~FileLogger() = default;

int FileLogger::level() const { return _level; }

void FileLogger::_setEnabled(bool enabled) { _enabled = enabled; }

void FileLogger::_setLevel(int level) { _level = level; }

bool FileLogger::isEnabled() const { return _enabled; }

void FileLogger::attach(std::weak_ptr<FileLogSink> sink)
{
    std::lock_guard lock(_sinkLock);
    _sink = std::move(sink);
}

void FileLogger::log(std::string_view text)
{
    std::shared_ptr<FileLogSink> sink;
    {
        std::lock_guard lock(_sinkLock);
        sink = _sink.lock();
    }
    if (sink)
        sink->write(name(), text);
}

} // namespace tessel
