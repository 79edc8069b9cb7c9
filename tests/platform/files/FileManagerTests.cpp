#include "platform/files/FileManager.h"

#include "support/TemporaryDirectory.h"

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

using Names = std::vector<std::string>;

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::string textAt(const std::string& path)
{
    auto contents = FileManager::contentsAtPath(path);
    return contents ? std::string(contents->begin(), contents->end()) : "<absent>";
}

Names listing(const std::string& path)
{
    return FileManager::contentsOfDirectoryAtPath(path).value_or(Names { "<absent>" });
}

mode_t permissions(const std::string& path)
{
    struct stat status { };
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

class FileManagerTest : public testing::Test {
protected:
    void write(const std::string& name, std::string_view text = "x")
    {
        ASSERT_TRUE(FileManager::writeAtomically(directory / name, bytesOf(text))) << name;
    }

    TemporaryDirectory directory;
};

TEST_F(FileManagerTest, FailedWriteKeepsTheOldFileWhole)
{
    std::string path = directory / "state";
    std::string old(1000, 'o');
    write("state", old);

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
    EXPECT_EQ(listing(directory.path()), Names { "state" });
}

TEST_F(FileManagerTest, FailuresNameTheCallThePathAndTheCause)
{
    write("file");
    write("data", std::string(5000, 'd'));
    ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
    write("a", "A");
    write("b", "B");
    auto d = [&](const char* name) { return directory / name; };
    struct Case {
        std::function<bool(std::string*)> call;
        std::string prefix;
        int cause;
    };
    const Case cases[] = {
        // The temporary name after the prefix is random.
        { [&](auto e) { return FileManager::writeAtomically(d("missing/f"), bytesOf("x"), e); },
            "open " + d("missing/.f."), ENOENT },
        { [&](auto e) { return !!FileManager::contentsAtPath(directory.path(), e); },
            "read " + directory.path(), EISDIR },
        { [&](auto e) { return !!FileManager::contentsAtPath(d("fifo"), e); }, "read " + d("fifo"), EINVAL },
        { [&](auto e) { return !!FileManager::contentsAtPath(d("data"), e, 4999); }, "read " + d("data"),
            EFBIG },
        { [&](auto e) { return !!FileManager::contentsOfDirectoryAtPath(d("file"), e); },
            "opendir " + d("file"), ENOTDIR },
        { [&](auto e) { return FileManager::removeItemAtPath(d("missing"), e); }, "remove " + d("missing"),
            ENOENT },
        { [&](auto e) { return FileManager::moveItemAtPath(d("a"), d("b"), e); }, "move " + d("b"), EEXIST },
        { [&](auto e) { return FileManager::moveItemAtPath(d("missing"), d("c"), e); },
            "move " + d("missing"), ENOENT },
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(c.call(&error)) << c.prefix;
        EXPECT_TRUE(error.starts_with(c.prefix)) << error;
        EXPECT_TRUE(error.ends_with(std::string(": ") + strerror(c.cause))) << error;
    }
    // Nothing was left behind or replaced on the way.
    EXPECT_EQ(listing(directory.path()), (Names { "a", "b", "data", "fifo", "file" }));
    EXPECT_EQ(textAt(d("a")), "A");
    EXPECT_EQ(textAt(d("b")), "B");
    for (size_t maximum : { 5000, 100000 })
        EXPECT_EQ(FileManager::contentsAtPath(d("data"), nullptr, maximum), bytesOf(std::string(5000, 'd')));
}

TEST_F(FileManagerTest, ExistenceAndLinks)
{
    write("file");
    ASSERT_TRUE(FileManager::createDirectoryAtPath(directory / "dir", false));
    ASSERT_EQ(symlink("file", (directory / "linkToFile").c_str()), 0);
    ASSERT_EQ(symlink("dir", (directory / "linkToDir").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (directory / "dangling").c_str()), 0);
    // Name, whether it exists, is a directory, is a link.
    const std::tuple<const char*, bool, bool, bool> cases[] = {
        { "file", true, false, false },
        { "dir", true, true, false },
        { "linkToFile", true, false, true },
        { "linkToDir", true, true, true },
        { "dangling", false, false, true },
        { "missing", false, false, false },
        { "linkToDir/", true, true, false },
    };
    for (const auto& [name, exists, expectedDirectory, isLink] : cases) {
        bool isDirectory = !expectedDirectory;
        EXPECT_EQ(FileManager::fileExistsAtPath(directory / name, &isDirectory), exists) << name;
        EXPECT_EQ(isDirectory, expectedDirectory) << name;
        EXPECT_EQ(FileManager::isSymbolicLinkAtPath(directory / name), isLink) << name;
    }
}

TEST_F(FileManagerTest, RemoveTreeWithoutFollowingLinks)
{
    std::string outside = directory / "outside";
    std::string tree = directory / "tree";
    ASSERT_TRUE(FileManager::createDirectoryAtPath(outside, false));
    write("outside/keep", "k");
    ASSERT_TRUE(FileManager::createDirectoryAtPath(tree + "/a/b/c", true));
    write("tree/a/b/c/f");
    write("tree/top");
    ASSERT_EQ(symlink(outside.c_str(), (tree + "/a/link").c_str()), 0);

    std::string error;
    ASSERT_TRUE(FileManager::removeItemAtPath(tree, &error)) << error;
    EXPECT_FALSE(FileManager::fileExistsAtPath(tree));
    EXPECT_EQ(textAt(outside + "/keep"), "k");

    ASSERT_EQ(symlink("outside", (directory / "link").c_str()), 0);
    ASSERT_TRUE(FileManager::removeItemAtPath(directory / "link", &error)) << error;
    EXPECT_FALSE(FileManager::isSymbolicLinkAtPath(directory / "link"));
    EXPECT_EQ(textAt(outside + "/keep"), "k");
}

TEST_F(FileManagerTest, MoveWithinAndAcrossFileSystems)
{
    write("a", "payload");
    ASSERT_EQ(chmod((directory / "a").c_str(), 0600), 0);
    std::string error;
    ASSERT_TRUE(FileManager::moveItemAtPath(directory / "a", directory / "c", &error)) << error;
    EXPECT_FALSE(FileManager::fileExistsAtPath(directory / "a"));
    EXPECT_EQ(textAt(directory / "c"), "payload");

    // Across file systems a regular file is copied with its mode.
    struct stat here { };
    struct stat there { };
    if (stat(directory.path().c_str(), &here) != 0 || stat("/dev/shm", &there) != 0
        || here.st_dev == there.st_dev || access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "no second writable file system";
    std::string destination = "/dev/shm/tessel-move-" + std::to_string(getpid());
    ASSERT_TRUE(FileManager::moveItemAtPath(directory / "c", destination, &error)) << error;
    EXPECT_FALSE(FileManager::fileExistsAtPath(directory / "c"));
    EXPECT_EQ(textAt(destination), "payload");
    EXPECT_EQ(permissions(destination), 0600u);
    unlink(destination.c_str());
}

TEST(FileManager, LibraryDirectoryFromEnvironment)
{
    // TESSEL_LIBRARY_DIR, XDG_DATA_HOME (null: unset), the directory they give.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        { "/srv/lib", "/data", "/srv/lib" },
        { "", "/data", "/data/tessel/Library" },
        { nullptr, "/data/", "/data/tessel/Library" },
        { nullptr, "", "/home/u/.local/share/tessel/Library" },
        { nullptr, nullptr, "/home/u/.local/share/tessel/Library" },
    };
    auto set = [](const char* name, const char* value) {
        if (value)
            setenv(name, value, 1);
        else
            unsetenv(name);
    };
    setenv("HOME", "/home/u", 1);
    for (const auto& [library, dataHome, expected] : cases) {
        set("TESSEL_LIBRARY_DIR", library);
        set("XDG_DATA_HOME", dataHome);
        EXPECT_EQ(FileManager::libraryDirectory(), expected);
    }
}

} // namespace
