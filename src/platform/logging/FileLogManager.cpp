#include "platform/logging/FileLogManager.h"

#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/Preferences.h"
#include "platform/logging/FileLogger.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace tessel {

namespace {

    bool isSingleComponent(const std::string& name)
    {
        return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos
            && name.find('\0') == std::string::npos;
    }

} // namespace

FileLogSink::FileLogSink(std::string logsDirectory, std::function<Date()> now)
    : _directory(std::move(logsDirectory))
    , _now(std::move(now))
{
}

FileLogSink::~FileLogSink()
{
    for (const auto& [name, fd] : _files)
        close(fd);
}

std::string FileLogSink::timestamp(Date date)
{
    // Whole microseconds first: the conversion from the 2001 reference date
    // leaves noise below that which must not push a value across a millisecond.
    double microseconds = std::round(date.timeIntervalSince1970() * 1e6);
    if (!std::isfinite(microseconds) || std::fabs(microseconds) > 9e18)
        return "(invalid date)";
    auto total = static_cast<int64_t>(microseconds);
    // Floor division, so dates before 1970 still get a positive fraction.
    int64_t seconds = total / 1000000 - (total % 1000000 < 0 ? 1 : 0);
    int millis = static_cast<int>((total - seconds * 1000000) / 1000);
    time_t wholeSeconds = static_cast<time_t>(seconds);
    struct tm parts { };
    if (!gmtime_r(&wholeSeconds, &parts))
        return "(invalid date)";
    char text[64];
    size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + length, sizeof text - length, ".%03dZ", millis);
    return text;
}

int FileLogSink::fileLocked(const std::string& name)
{
    if (auto found = _files.find(name); found != _files.end())
        return found->second;
    if (!FileManager::createDirectoryAtPath(_directory, true))
        return -1;
    std::string path = Path::appendingComponent(_directory, name + ".log");
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0)
        _files.emplace(name, fd);
    return fd;
}

bool FileLogSink::write(const std::string& name, std::string_view text)
{
    if (!isSingleComponent(name))
        return false;
    std::lock_guard lock(_lock);
    std::string line = timestamp(_now ? _now() : Date());
    line += ' ';
    line += text;
    line += '\n';
    int fd = fileLocked(name);
    if (fd < 0)
        return false;
    // One write per line keeps lines whole among several writers of the file.
    const char* bytes = line.data();
    size_t remaining = line.size();
    while (remaining) {
        ssize_t written = ::write(fd, bytes, remaining);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            // Reopen next time: the file may have been removed or its disk freed up.
            close(fd);
            _files.erase(name);
            return false;
        }
        bytes += written;
        remaining -= static_cast<size_t>(written);
    }
    return true;
}

FileLogManager::FileLogManager(
    std::shared_ptr<Preferences> preferences, std::string logsDirectory, std::function<Date()> now)
    : _preferences(std::move(preferences))
    , _sink(std::make_shared<FileLogSink>(std::move(logsDirectory), std::move(now)))
{
}

void FileLogManager::apply(FileLogger& logger)
{
    std::string key = logger.logPreferenceName();
    std::string domain = logger.logPreferenceDomain();
    logger._setEnabled(_preferences && _preferences->boolForKey(key, domain));
    std::string levelKey = key + "Level";
    if (_preferences && _preferences->hasValueForKey(levelKey, domain)) {
        int64_t level = _preferences->integerForKey(levelKey, domain);
        logger._setLevel(static_cast<int>(std::clamp<int64_t>(level, INT_MIN, INT_MAX)));
    }
}

void FileLogManager::registerLogger(std::shared_ptr<FileLogger> logger)
{
    if (!logger)
        return;
    {
        std::lock_guard lock(_lock);
        if (std::find(_loggers.begin(), _loggers.end(), logger) != _loggers.end())
            return;
        _loggers.push_back(logger);
    }
    logger->attach(_sink);
    // Hooks run unlocked: a subclass may log or look at the manager from them.
    apply(*logger);
}

void FileLogManager::reloadFromDefaults()
{
    if (_preferences)
        _preferences->reload();
    for (const auto& logger : loggers())
        apply(*logger);
}

std::vector<std::shared_ptr<FileLogger>> FileLogManager::loggers() const
{
    std::lock_guard lock(_lock);
    return _loggers;
}

} // namespace tessel
