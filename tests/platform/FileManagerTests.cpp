#include "platform/FileManager.h"

#include "TemporaryDirectory.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tessel;

namespace {

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::string textAt(const std::string& path)
{
    auto contents = FileManager::contentsAtPath(path);
    return contents ? std::string(contents->begin(), contents->end()) : "<absent>";
}

std::vector<std::string> listing(const std::string& path)
{
    return FileManager::contentsOfDirectoryAtPath(path).value_or(std::vector<std::string> { "<absent>" });
}

TEST(FileManager, WriteAtomicallyCreatesAndReplaces)
{
    TemporaryDirectory directory;
    std::string path = directory / "settings.plist";
    mode_t oldMask = umask(022);
    for (bool durable : { true, false }) {
        std::string error;
        ASSERT_TRUE(FileManager::writeAtomically(path, bytesOf("first"), &error, durable)) << error;
        EXPECT_EQ(textAt(path), "first");
        ASSERT_TRUE(FileManager::writeAtomically(path, bytesOf("second, longer"), &error, durable)) << error;
        EXPECT_EQ(textAt(path), "second, longer");
        ASSERT_TRUE(FileManager::writeAtomically(path, Bytes {}, &error, durable)) << error;
        EXPECT_EQ(textAt(path), "");
    }
    umask(oldMask);
    struct stat status { };
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
    EXPECT_EQ(listing(directory.path()), std::vector<std::string> { "settings.plist" });
}

TEST(FileManager, WriteAtomicallyIntoMissingDirectoryReportsAndLeavesNothing)
{
    TemporaryDirectory directory;
    std::string error;
    EXPECT_FALSE(FileManager::writeAtomically(directory / "missing/file", bytesOf("x"), &error));
    EXPECT_EQ(error.rfind("open " + directory.path() + "/missing/.file.", 0), 0u) << error;
    EXPECT_NE(error.find(": No such file or directory"), std::string::npos) << error;
    EXPECT_TRUE(listing(directory.path()).empty());
}

TEST(FileManager, FailedWriteKeepsTheOldFileWhole)
{
    TemporaryDirectory directory;
    std::string path = directory / "state";
    std::string old(1000, 'o');
    ASSERT_TRUE(FileManager::writeAtomically(path, bytesOf(old)));

    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // The file size limit makes the write fail part way with EFBIG.
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit {
            100, 100
        };
        setrlimit(RLIMIT_FSIZE, &limit);
        std::string error;
        bool written = FileManager::writeAtomically(path, Bytes(64 * 1024, 'n'), &error);
        bool reported = error.find(strerror(EFBIG)) != std::string::npos;
        _exit(!written && reported ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "write did not fail with EFBIG";
    EXPECT_EQ(textAt(path), old);
    EXPECT_EQ(listing(directory.path()), std::vector<std::string> { "state" });
}

TEST(FileManager, ContentsRespectTheMaximumLength)
{
    TemporaryDirectory directory;
    std::string path = directory / "data";
    ASSERT_TRUE(FileManager::writeAtomically(path, Bytes(5000, 7)));
    struct Case {
        size_t maximum;
        bool readable;
    };
    for (auto [maximum, readable] :
        { Case { 5000, true }, Case { 100000, true }, Case { 4999, false }, Case { 0, false } }) {
        std::string error;
        auto contents = FileManager::contentsAtPath(path, &error, maximum);
        EXPECT_EQ(contents.has_value(), readable) << maximum;
        if (contents)
            EXPECT_EQ(*contents, Bytes(5000, 7));
        else
            EXPECT_EQ(error, "read " + path + ": " + strerror(EFBIG));
    }
}

TEST(FileManager, ContentsFailuresAreReported)
{
    TemporaryDirectory directory;
    ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
    struct Case {
        std::string path;
        std::string error;
    };
    const Case cases[] = {
        { directory / "missing", "open " + (directory / "missing") + ": " + strerror(ENOENT) },
        { directory.path(), "read " + directory.path() + ": " + strerror(EISDIR) },
        { directory / "fifo", "read " + (directory / "fifo") + ": " + strerror(EINVAL) },
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(FileManager::contentsAtPath(c.path, &error)) << c.path;
        EXPECT_EQ(error, c.error);
    }
}

TEST(FileManager, ExistenceAndLinks)
{
    TemporaryDirectory directory;
    ASSERT_TRUE(FileManager::writeAtomically(directory / "file", bytesOf("x")));
    ASSERT_TRUE(FileManager::createDirectoryAtPath(directory / "dir", false));
    ASSERT_EQ(symlink("file", (directory / "linkToFile").c_str()), 0);
    ASSERT_EQ(symlink("dir", (directory / "linkToDir").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (directory / "dangling").c_str()), 0);
    struct Case {
        const char* name;
        bool exists;
        bool isDirectory;
        bool isLink;
    };
    const Case cases[] = {
        { "file", true, false, false },
        { "dir", true, true, false },
        { "linkToFile", true, false, true },
        { "linkToDir", true, true, true },
        { "dangling", false, false, true },
        { "missing", false, false, false },
        { "linkToDir/", true, true, false },
    };
    for (const auto& c : cases) {
        bool isDirectory = !c.isDirectory;
        EXPECT_EQ(FileManager::fileExistsAtPath(directory / c.name, &isDirectory), c.exists) << c.name;
        EXPECT_EQ(isDirectory, c.isDirectory) << c.name;
        EXPECT_EQ(FileManager::isSymbolicLinkAtPath(directory / c.name), c.isLink) << c.name;
    }
}

TEST(FileManager, ModificationTime)
{
    TemporaryDirectory directory;
    std::string path = directory / "file";
    ASSERT_TRUE(FileManager::writeAtomically(path, bytesOf("x")));
    struct timespec times[2] = { { 1700000000, 0 }, { 1600000000, 999999999 } };
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    EXPECT_EQ(FileManager::modificationTime(path), 1600000000);
    std::string error;
    EXPECT_FALSE(FileManager::modificationTime(directory / "missing", &error));
    EXPECT_EQ(error, "stat " + (directory / "missing") + ": " + strerror(ENOENT));
}

TEST(FileManager, DirectoryListingIsSortedWithoutDotEntries)
{
    TemporaryDirectory directory;
    for (const char* name : { "b", "a", ".hidden", "C", "a2" })
        ASSERT_TRUE(FileManager::writeAtomically(directory / name, bytesOf("x")));
    ASSERT_TRUE(FileManager::createDirectoryAtPath(directory / "d", false));
    EXPECT_EQ(listing(directory.path()), (std::vector<std::string> { ".hidden", "C", "a", "a2", "b", "d" }));
    std::string error;
    EXPECT_FALSE(FileManager::contentsOfDirectoryAtPath(directory / "b", &error));
    EXPECT_EQ(error, "opendir " + (directory / "b") + ": " + strerror(ENOTDIR));
}

TEST(FileManager, RemoveTreeWithoutFollowingLinks)
{
    TemporaryDirectory directory;
    std::string outside = directory / "outside";
    ASSERT_TRUE(FileManager::createDirectoryAtPath(outside, false));
    ASSERT_TRUE(FileManager::writeAtomically(outside + "/keep", bytesOf("k")));
    std::string tree = directory / "tree";
    ASSERT_TRUE(FileManager::createDirectoryAtPath(tree + "/a/b/c", true));
    ASSERT_TRUE(FileManager::writeAtomically(tree + "/a/b/c/f", bytesOf("x")));
    ASSERT_TRUE(FileManager::writeAtomically(tree + "/top", bytesOf("x")));
    ASSERT_EQ(symlink(outside.c_str(), (tree + "/a/link").c_str()), 0);

    std::string error;
    ASSERT_TRUE(FileManager::removeItemAtPath(tree, &error)) << error;
    EXPECT_FALSE(FileManager::fileExistsAtPath(tree));
    EXPECT_EQ(textAt(outside + "/keep"), "k");

    ASSERT_EQ(symlink("outside", (directory / "link").c_str()), 0);
    ASSERT_TRUE(FileManager::removeItemAtPath(directory / "link", &error)) << error;
    EXPECT_FALSE(FileManager::isSymbolicLinkAtPath(directory / "link"));
    EXPECT_EQ(textAt(outside + "/keep"), "k");

    EXPECT_FALSE(FileManager::removeItemAtPath(directory / "missing", &error));
    EXPECT_EQ(error, "remove " + (directory / "missing") + ": " + strerror(ENOENT));
}

TEST(FileManager, MoveRefusesToReplace)
{
    TemporaryDirectory directory;
    ASSERT_TRUE(FileManager::writeAtomically(directory / "a", bytesOf("A")));
    ASSERT_TRUE(FileManager::writeAtomically(directory / "b", bytesOf("B")));
    std::string error;
    EXPECT_FALSE(FileManager::moveItemAtPath(directory / "a", directory / "b", &error));
    EXPECT_EQ(error, "move " + (directory / "b") + ": " + strerror(EEXIST));
    EXPECT_EQ(textAt(directory / "a"), "A");
    EXPECT_EQ(textAt(directory / "b"), "B");

    ASSERT_TRUE(FileManager::moveItemAtPath(directory / "a", directory / "c", &error)) << error;
    EXPECT_FALSE(FileManager::fileExistsAtPath(directory / "a"));
    EXPECT_EQ(textAt(directory / "c"), "A");

    EXPECT_FALSE(FileManager::moveItemAtPath(directory / "a", directory / "d", &error));
    EXPECT_EQ(error, "move " + (directory / "a") + ": " + strerror(ENOENT));
}

TEST(FileManager, MoveAcrossFileSystemsCopiesRegularFiles)
{
    TemporaryDirectory directory;
    struct stat here { };
    struct stat there { };
    if (stat(directory.path().c_str(), &here) != 0 || stat("/dev/shm", &there) != 0
        || here.st_dev == there.st_dev || access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "no second writable file system";
    std::string destination = "/dev/shm/tessel-move-" + std::to_string(getpid());
    ASSERT_TRUE(FileManager::writeAtomically(directory / "a", bytesOf("payload")));
    ASSERT_EQ(chmod((directory / "a").c_str(), 0600), 0);
    std::string error;
    ASSERT_TRUE(FileManager::moveItemAtPath(directory / "a", destination, &error)) << error;
    EXPECT_FALSE(FileManager::fileExistsAtPath(directory / "a"));
    EXPECT_EQ(textAt(destination), "payload");
    struct stat moved { };
    ASSERT_EQ(stat(destination.c_str(), &moved), 0);
    EXPECT_EQ(moved.st_mode & 0777, 0600u);
    unlink(destination.c_str());
}

TEST(FileManager, CreateDirectory)
{
    TemporaryDirectory directory;
    ASSERT_TRUE(FileManager::writeAtomically(directory / "file", bytesOf("x")));
    struct Case {
        std::string path;
        bool intermediates;
        bool succeeds;
    };
    const Case cases[] = {
        { directory / "a", false, true },
        { directory / "a", false, false },
        { directory / "a", true, true },
        { directory / "x/y/z", false, false },
        { directory / "x/y//z/", true, true },
        { directory / "x/y/z", true, true },
        { directory / "file", true, false },
        { directory / "file/sub", true, false },
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_EQ(FileManager::createDirectoryAtPath(c.path, c.intermediates, &error), c.succeeds)
            << c.path << " " << c.intermediates;
        EXPECT_EQ(error.empty(), c.succeeds) << error;
    }
    bool isDirectory = false;
    EXPECT_TRUE(FileManager::fileExistsAtPath(directory / "x/y/z", &isDirectory) && isDirectory);
    struct stat status { };
    mode_t oldMask = umask(0);
    ASSERT_TRUE(FileManager::createDirectoryAtPath(directory / "m", false));
    umask(oldMask);
    ASSERT_EQ(stat((directory / "m").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0755u);
}

TEST(FileManager, LibraryDirectoryFromEnvironment)
{
    struct Case {
        const char* library;
        const char* dataHome;
        const char* expected;
    };
    const Case cases[] = {
        { "/srv/lib", "/data", "/srv/lib" },
        { "", "/data", "/data/tessel/Library" },
        { nullptr, "/data/", "/data/tessel/Library" },
        { nullptr, "", "/home/u/.local/share/tessel/Library" },
        { nullptr, nullptr, "/home/u/.local/share/tessel/Library" },
    };
    setenv("HOME", "/home/u", 1);
    for (const auto& c : cases) {
        auto set = [](const char* name, const char* value) {
            if (value)
                setenv(name, value, 1);
            else
                unsetenv(name);
        };
        set("TESSEL_LIBRARY_DIR", c.library);
        set("XDG_DATA_HOME", c.dataHome);
        EXPECT_EQ(FileManager::libraryDirectory(), c.expected);
    }
}

} // namespace
