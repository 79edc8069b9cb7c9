#include "platform/Path.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

using tessel::Path;

namespace {

struct Case {
    const char* input;
    const char* expected;
};

struct PairCase {
    const char* base;
    const char* argument;
    const char* expected;
};

TEST(Path, LastComponent)
{
    const Case cases[] = {
        { "", "" },
        { "/", "/" },
        { "//", "/" },
        { "a", "a" },
        { "/a/b", "b" },
        { "/a/b/", "b" },
        { "a/b//", "b" },
        { "/a.txt", "a.txt" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(Path::lastComponent(c.input), c.expected) << c.input;
}

TEST(Path, DeletingLastComponent)
{
    const Case cases[] = {
        { "", "" },
        { "/", "/" },
        { "a", "" },
        { "/a", "/" },
        { "/a/b", "/a" },
        { "/a/b/", "/a" },
        { "a/b", "a" },
        { "/a//b", "/a" },
        { "a/b/c", "a/b" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(Path::deletingLastComponent(c.input), c.expected) << c.input;
}

TEST(Path, AppendingComponent)
{
    const PairCase cases[] = {
        { "", "b", "b" },
        { "/", "b", "/b" },
        { "/a", "b", "/a/b" },
        { "/a/", "b", "/a/b" },
        { "/a", "/b", "/a/b" },
        { "/a", "", "/a" },
        { "/a", "b/c", "/a/b/c" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(Path::appendingComponent(c.base, c.argument), c.expected) << c.base << " + " << c.argument;
}

TEST(Path, ExtensionsAndTheirRemoval)
{
    struct ExtensionCase {
        const char* path;
        const char* extension;
        const char* withoutExtension;
    };
    const ExtensionCase cases[] = {
        { "a.txt", "txt", "a" },
        { "/d/a.tar.gz", "gz", "/d/a.tar" },
        { "/d.dir/a", "", "/d.dir/a" },
        { ".profile", "", ".profile" },
        { "/d/.profile", "", "/d/.profile" },
        { "/d/.profile.bak", "bak", "/d/.profile" },
        { "notes.", "", "notes." },
        { "/d/a.log/", "log", "/d/a" },
        { "", "", "" },
        { "/", "", "/" },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Path::extension(c.path), c.extension) << c.path;
        EXPECT_EQ(Path::deletingExtension(c.path), c.withoutExtension) << c.path;
    }
}

TEST(Path, AppendingExtension)
{
    const PairCase cases[] = {
        { "a", "txt", "a.txt" },
        { "/d/a/", "plist", "/d/a.plist" },
        { "/d/a.tar", "gz", "/d/a.tar.gz" },
        { "a", "", "a" },
        { "", "txt", "" },
        { "/", "txt", "/" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(Path::appendingExtension(c.base, c.argument), c.expected) << c.base << " + " << c.argument;
}

TEST(Path, Standardizing)
{
    const Case cases[] = {
        { "", "" },
        { "/", "/" },
        { "//", "/" },
        { "/a//b/", "/a/b" },
        { "/a/./b/.", "/a/b" },
        { "/a/b/../c", "/a/c" },
        { "/a/b/../../..", "/" },
        { "/../a", "/a" },
        { "a/../..", ".." },
        { "../a/./b", "../a/b" },
        { "a/..", "." },
        { "./a", "a" },
        { "a/b/../../c/", "c" },
        { "~", "/home/tester" },
        { "~/x/../y", "/home/tester/y" },
        { "~user/x", "~user/x" },
        { "/a/~", "/a/~" },
    };
    setenv("HOME", "/home/tester", 1);
    for (const auto& c : cases)
        EXPECT_EQ(Path::standardizing(c.input), c.expected) << c.input;
}

} // namespace
