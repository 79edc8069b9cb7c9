#include "platform/files/FileManager.h"

#include "platform/files/Path.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tessel {

namespace {

    // Each directory level holds a descriptor while its children are removed.
    constexpr int maximumRemovalDepth = 256;

    bool fail(std::string* error, std::string_view operation, const std::string& path, int code)
    {
        if (error) {
            *error = std::string(operation);
            *error += ' ';
            *error += path;
            *error += ": ";
            *error += strerror(code);
        }
        return false;
    }

    bool fail(std::string* error, std::string_view operation, const std::string& path)
    {
        return fail(error, operation, path, errno);
    }

    // Keeps going through short writes and interrupted calls.
    bool writeAll(int fd, const uint8_t* bytes, size_t length)
    {
        while (length) {
            ssize_t written = write(fd, bytes, length);
            if (written < 0) {
                if (errno == EINTR)
                    continue;
                return false;
            }
            if (written == 0) {
                errno = EIO;
                return false;
            }
            bytes += written;
            length -= static_cast<size_t>(written);
        }
        return true;
    }

    int closeKeepingErrno(int fd)
    {
        int saved = errno;
        int result = close(fd);
        errno = saved;
        return result;
    }

    std::string temporaryPathNextTo(const std::string& path)
    {
        uint8_t random[8] = {};
        if (getrandom(random, sizeof random, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof random)) {
            // Uniqueness still comes from O_EXCL; this only spreads the names.
            uint64_t fallback = static_cast<uint64_t>(getpid()) << 32 ^ reinterpret_cast<uintptr_t>(&random);
            memcpy(random, &fallback, sizeof random);
        }
        char suffix[2 * sizeof random + 1];
        for (size_t i = 0; i < sizeof random; ++i)
            snprintf(suffix + 2 * i, 3, "%02x", random[i]);
        std::string directory = Path::deletingLastComponent(path);
        std::string name = "." + Path::lastComponent(path) + "." + suffix + ".tmp";
        return directory.empty() ? name : Path::appendingComponent(directory, name);
    }

    bool syncDirectory(const std::string& directory, std::string* error)
    {
        int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            return fail(error, "open", directory);
        // Some file systems cannot sync directories; they also have nothing to lose.
        if (fsync(fd) != 0 && errno != EINVAL) {
            closeKeepingErrno(fd);
            return fail(error, "fsync", directory);
        }
        close(fd);
        return true;
    }

    bool removeEntry(
        int directoryFd, const char* name, const std::string& path, std::string* error, int depth)
    {
        struct stat status { };
        if (fstatat(directoryFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return fail(error, "remove", path);
        if (!S_ISDIR(status.st_mode)) {
            if (unlinkat(directoryFd, name, 0) != 0)
                return fail(error, "remove", path);
            return true;
        }
        if (depth >= maximumRemovalDepth)
            return fail(error, "remove", path, ELOOP);

        int fd = openat(directoryFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0)
            return fail(error, "remove", path);
        DIR* directory = fdopendir(fd);
        if (!directory) {
            closeKeepingErrno(fd);
            return fail(error, "remove", path);
        }
        std::vector<std::string> children;
        errno = 0;
        while (dirent* entry = readdir(directory)) {
            if (strcmp(entry->d_name, ".") && strcmp(entry->d_name, ".."))
                children.emplace_back(entry->d_name);
        }
        bool ok = true;
        for (const auto& child : children) {
            if (!removeEntry(dirfd(directory), child.c_str(), Path::appendingComponent(path, child), error,
                    depth + 1)) {
                ok = false;
                break;
            }
        }
        closedir(directory);
        if (!ok)
            return false;
        if (unlinkat(directoryFd, name, AT_REMOVEDIR) != 0)
            return fail(error, "remove", path);
        return true;
    }

    bool copyRegularFileExclusively(
        const std::string& from, const std::string& to, mode_t mode, std::string* error)
    {
        auto contents = FileManager::contentsAtPath(from, error);
        if (!contents)
            return false;
        int fd = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode & 07777);
        if (fd < 0)
            return fail(error, "move", to);
        if (!writeAll(fd, contents->data(), contents->size()) || fsync(fd) != 0) {
            closeKeepingErrno(fd);
            int saved = errno;
            unlink(to.c_str());
            return fail(error, "move", to, saved);
        }
        if (close(fd) != 0) {
            int saved = errno;
            unlink(to.c_str());
            return fail(error, "move", to, saved);
        }
        return true;
    }

    std::string homeDirectory()
    {
        const char* home = getenv("HOME");
        if (home && *home)
            return home;
        if (struct passwd* entry = getpwuid(getuid()); entry && entry->pw_dir)
            return entry->pw_dir;
        return "/";
    }

} // namespace

bool FileManager::writeAtomically(
    const std::string& path, const void* bytes, size_t length, std::string* error, bool durable)
{
    std::string temporary;
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temporary = temporaryPathNextTo(path);
        fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0 && errno != EEXIST)
            return fail(error, "open", temporary);
    }
    if (fd < 0)
        return fail(error, "open", temporary, EEXIST);

    auto abandon = [&](std::string_view operation, const std::string& failedPath) {
        int saved = errno;
        if (fd >= 0)
            close(fd);
        unlink(temporary.c_str());
        return fail(error, operation, failedPath, saved);
    };

    if (!writeAll(fd, static_cast<const uint8_t*>(bytes), length))
        return abandon("write", temporary);
    if (durable && fsync(fd) != 0)
        return abandon("fsync", temporary);
    // Deferred write errors can surface only at close.
    int closed = close(fd);
    fd = -1;
    if (closed != 0)
        return abandon("close", temporary);
    if (rename(temporary.c_str(), path.c_str()) != 0)
        return abandon("rename", path);
    if (durable) {
        std::string directory = Path::deletingLastComponent(path);
        return syncDirectory(directory.empty() ? "." : directory, error);
    }
    return true;
}

std::optional<Bytes> FileManager::contentsAtPath(
    const std::string& path, std::string* error, size_t maximumLength)
{
    // Non-blocking so that opening a FIFO without a writer cannot hang; such
    // files are refused below anyway.
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        fail(error, "open", path);
        return std::nullopt;
    }
    struct stat status { };
    if (fstat(fd, &status) != 0) {
        fail(error, "stat", path);
        close(fd);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        fail(error, "read", path, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
        close(fd);
        return std::nullopt;
    }
    if (static_cast<uint64_t>(status.st_size) > maximumLength) {
        fail(error, "read", path, EFBIG);
        close(fd);
        return std::nullopt;
    }

    Bytes contents;
    // The size may change under us (or be 0 for generated files), so read
    // until end of file and check the bound as we go.
    contents.resize(std::min<size_t>(static_cast<size_t>(status.st_size), maximumLength) + 1);
    size_t used = 0;
    while (true) {
        if (used == contents.size()) {
            if (used > maximumLength) {
                fail(error, "read", path, EFBIG);
                close(fd);
                return std::nullopt;
            }
            contents.resize(std::min(maximumLength + 1, std::max<size_t>(used * 2, 4096)));
        }
        ssize_t count = read(fd, contents.data() + used, contents.size() - used);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            fail(error, "read", path);
            closeKeepingErrno(fd);
            return std::nullopt;
        }
        if (count == 0)
            break;
        used += static_cast<size_t>(count);
    }
    close(fd);
    if (used > maximumLength) {
        fail(error, "read", path, EFBIG);
        return std::nullopt;
    }
    contents.resize(used);
    return contents;
}

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory)
{
    struct stat status { };
    bool exists = stat(path.c_str(), &status) == 0;
    if (isDirectory)
        *isDirectory = exists && S_ISDIR(status.st_mode);
    return exists;
}

bool FileManager::isSymbolicLinkAtPath(const std::string& path)
{
    struct stat status { };
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

size_t FileManager::removeAbandonedTemporaryFiles(const std::string& directory)
{
    size_t removed = 0;
    // Names as temporaryPathNextTo makes them: ".<name>.<16 hex digits>.tmp".
    auto isTemporaryName = [](std::string_view name) {
        constexpr size_t tail = 1 + 16 + 4;
        if (name.size() < 1 + tail + 1 || name.front() != '.' || !name.ends_with(".tmp"))
            return false;
        auto digits = name.substr(name.size() - tail + 1, 16);
        return name[name.size() - tail] == '.' && std::all_of(digits.begin(), digits.end(), [](char c) {
            return std::isxdigit(static_cast<unsigned char>(c));
        });
    };
    for (const auto& name : contentsOfDirectoryAtPath(directory).value_or(std::vector<std::string> {})) {
        auto path = Path::appendingComponent(directory, name);
        bool isDirectory = false;
        if (isTemporaryName(name) && !isSymbolicLinkAtPath(path) && fileExistsAtPath(path, &isDirectory)
            && !isDirectory && unlink(path.c_str()) == 0)
            ++removed;
    }
    return removed;
}

std::optional<FileManager::FileIdentity> FileManager::identityOfItemAtPath(const std::string& path)
{
    struct stat status { };
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return FileIdentity { static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino),
        static_cast<int64_t>(status.st_size),
        static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec };
}

std::optional<int64_t> FileManager::modificationTime(const std::string& path, std::string* error)
{
    struct stat status { };
    if (stat(path.c_str(), &status) != 0) {
        fail(error, "stat", path);
        return std::nullopt;
    }
    return static_cast<int64_t>(status.st_mtim.tv_sec);
}

std::optional<std::vector<std::string>> FileManager::contentsOfDirectoryAtPath(
    const std::string& path, std::string* error)
{
    DIR* directory = opendir(path.c_str());
    if (!directory) {
        fail(error, "opendir", path);
        return std::nullopt;
    }
    std::vector<std::string> names;
    errno = 0;
    while (dirent* entry = readdir(directory)) {
        if (strcmp(entry->d_name, ".") && strcmp(entry->d_name, ".."))
            names.emplace_back(entry->d_name);
    }
    int readError = errno;
    closedir(directory);
    if (readError) {
        fail(error, "readdir", path, readError);
        return std::nullopt;
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool FileManager::removeItemAtPath(const std::string& path, std::string* error)
{
    if (path.empty())
        return fail(error, "remove", path, ENOENT);
    return removeEntry(AT_FDCWD, path.c_str(), path, error, 0);
}

bool FileManager::moveItemAtPath(const std::string& from, const std::string& to, std::string* error)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    int code = errno;
    struct stat source { };
    struct stat destination { };
    if (code == EINVAL || code == ENOSYS) {
        // The file system cannot refuse to replace; check first instead.
        if (lstat(to.c_str(), &destination) == 0)
            return fail(error, "move", to, EEXIST);
        if (rename(from.c_str(), to.c_str()) == 0)
            return true;
        code = errno;
    }
    if (code != EXDEV)
        return fail(error, "move", code == EEXIST ? to : from, code);
    if (lstat(from.c_str(), &source) != 0)
        return fail(error, "move", from);
    if (!S_ISREG(source.st_mode))
        return fail(error, "move", from, EXDEV);
    if (!copyRegularFileExclusively(from, to, source.st_mode, error))
        return false;
    if (unlink(from.c_str()) != 0)
        return fail(error, "remove", from);
    return true;
}

bool FileManager::createDirectoryAtPath(
    const std::string& path, bool withIntermediateDirectories, std::string* error)
{
    if (path.empty())
        return fail(error, "mkdir", path, ENOENT);
    if (!withIntermediateDirectories) {
        if (mkdir(path.c_str(), 0755) != 0)
            return fail(error, "mkdir", path);
        return true;
    }
    size_t position = 0;
    while (true) {
        size_t slash = path.find('/', position);
        std::string prefix = path.substr(0, slash);
        position = slash == std::string::npos ? path.size() : slash + 1;
        if (!prefix.empty() && prefix.back() != '/' && mkdir(prefix.c_str(), 0755) != 0) {
            int code = errno;
            bool isDirectory = false;
            if (code != EEXIST || !fileExistsAtPath(prefix, &isDirectory) || !isDirectory)
                return fail(error, "mkdir", prefix, code == EEXIST ? ENOTDIR : code);
        }
        if (slash == std::string::npos)
            return true;
    }
}

std::string FileManager::libraryDirectory()
{
    if (const char* library = getenv("TESSEL_LIBRARY_DIR"); library && *library)
        return library;
    std::string data;
    if (const char* xdg = getenv("XDG_DATA_HOME"); xdg && *xdg)
        data = xdg;
    else
        data = Path::appendingComponent(homeDirectory(), ".local/share");
    return Path::appendingComponent(data, "tessel/Library");
}

} // namespace tessel
