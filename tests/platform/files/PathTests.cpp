#include "platform/files/Path.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

using tessel::Path;

namespace {

TEST(Path, SingleArgumentOperations)
{
    using Operation = std::string (*)(std::string_view);
    struct Case {
        const char* name;
        Operation operation;
        std::vector<std::pair<const char*, const char*>> expectations;
    };
    const Case cases[] = {
        { "lastComponent", Path::lastComponent,
            { { "", "" }, { "/", "/" }, { "//", "/" }, { "a", "a" }, { "/a/b/", "b" }, { "a/b//", "b" },
                { "/a.txt", "a.txt" } } },
        { "deletingLastComponent", Path::deletingLastComponent,
            { { "", "" }, { "/", "/" }, { "a", "" }, { "/a", "/" }, { "/a/b/", "/a" }, { "a/b", "a" },
                { "/a//b", "/a" }, { "a/b/c", "a/b" } } },
        { "extension", Path::extension,
            { { "a.txt", "txt" }, { "/d/a.tar.gz", "gz" }, { "/d.dir/a", "" }, { ".profile", "" },
                { "/d/.profile", "" }, { "/d/.profile.bak", "bak" }, { "notes.", "" }, { "/d/a.log/", "log" },
                { "", "" }, { "/", "" } } },
        { "deletingExtension", Path::deletingExtension,
            { { "/d/a.tar.gz", "/d/a.tar" }, { "/d.dir/a", "/d.dir/a" }, { "/d/.profile", "/d/.profile" },
                { "/d/.profile.bak", "/d/.profile" }, { "notes.", "notes." }, { "/d/a.log/", "/d/a" },
                { "/", "/" } } },
        { "standardizing", Path::standardizing,
            { { "", "" }, { "//", "/" }, { "/a//b/", "/a/b" }, { "/a/./b/.", "/a/b" },
                { "/a/b/../c", "/a/c" }, { "/a/b/../../..", "/" }, { "/../a", "/a" }, { "a/../..", ".." },
                { "../a/./b", "../a/b" }, { "a/..", "." }, { "./a", "a" }, { "a/b/../../c/", "c" },
                { "~", "/home/tester" }, { "~/x/../y", "/home/tester/y" }, { "~user/x", "~user/x" },
                { "/a/~", "/a/~" } } },
    };
    setenv("HOME", "/home/tester", 1);
    for (const auto& c : cases) {
        for (auto [input, expected] : c.expectations)
            EXPECT_EQ(c.operation(input), expected) << c.name << "(" << input << ")";
    }
}

TEST(Path, Appending)
{
    using Operation = std::string (*)(std::string_view, std::string_view);
    struct Case {
        const char* name;
        Operation operation;
        const char* base;
        const char* argument;
        const char* expected;
    };
    const Case cases[] = {
        { "component", Path::appendingComponent, "", "b", "b" },
        { "component", Path::appendingComponent, "/", "b", "/b" },
        { "component", Path::appendingComponent, "/a/", "b", "/a/b" },
        { "component", Path::appendingComponent, "/a", "/b", "/a/b" },
        { "component", Path::appendingComponent, "/a", "", "/a" },
        { "component", Path::appendingComponent, "/a", "b/c", "/a/b/c" },
        { "extension", Path::appendingExtension, "a", "txt", "a.txt" },
        { "extension", Path::appendingExtension, "/d/a/", "plist", "/d/a.plist" },
        { "extension", Path::appendingExtension, "/d/a.tar", "gz", "/d/a.tar.gz" },
        { "extension", Path::appendingExtension, "a", "", "a" },
        { "extension", Path::appendingExtension, "", "txt", "" },
        { "extension", Path::appendingExtension, "/", "txt", "/" },
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.operation(c.base, c.argument), c.expected)
            << c.name << ": " << c.base << " + " << c.argument;
}

} // namespace
