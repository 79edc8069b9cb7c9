// The daemon's command line and where it keeps its files.
#include "DaemonOptions.h"
#include "DaemonPaths.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

using namespace tessel;

namespace {

std::optional<DaemonOptions> parse(std::vector<const char*> arguments, std::string& error)
{
    arguments.insert(arguments.begin(), "tesseld");
    return DaemonOptions::parse(static_cast<int>(arguments.size()), arguments.data(), error);
}

TEST(DaemonOptions, CommandLines)
{
    std::string error;
    auto options = parse({ "--library", "/l", "--bus=unix:path=/b", "--applications=/a", "--simulate" }, error);
    ASSERT_TRUE(options) << error;
    EXPECT_EQ(options->libraryDirectory, "/l");
    EXPECT_EQ(options->bus, "unix:path=/b");
    EXPECT_EQ(options->applicationsDirectory, "/a");
    EXPECT_TRUE(options->simulate);
    EXPECT_EQ(parse({ "--version" }, error)->action, DaemonOptions::Action::Version);
    EXPECT_EQ(parse({ "-h" }, error)->action, DaemonOptions::Action::Help);
    struct Case {
        std::vector<const char*> arguments;
        const char* error;
    } bad[] = {
        { { "--library" }, "option --library needs a value" },
        { { "--bus=" }, "option --bus needs a value" },
        { { "--frobnicate" }, "unknown argument --frobnicate" },
        { { "extra" }, "unknown argument extra" },
    };
    for (const auto& entry : bad) {
        EXPECT_FALSE(parse(entry.arguments, error));
        EXPECT_EQ(error, entry.error);
    }
}

TEST(DaemonPaths, XdgDirectoriesUnlessALibraryIsGiven)
{
    std::map<std::string, std::string> variables { { "HOME", "/home/ada" }, { "XDG_CONFIG_HOME", "/cfg" },
        { "XDG_STATE_HOME", "relative/ignored" } };
    auto getenv = [&](const char* name) { return variables.count(name) ? variables[name] : std::string(); };
    DaemonOptions options;
    auto paths = DaemonPaths::resolve(options, getenv, "/opt/tessel/bin/tesseld");
    EXPECT_EQ(paths.library, "/home/ada/.local/share/tessel/Library");
    EXPECT_EQ(paths.applications, "/home/ada/.local/share/tessel/Applications");
    EXPECT_EQ(paths.preferences, "/cfg/tessel/Preferences");
    EXPECT_EQ(paths.logs, "/home/ada/.local/state/tessel/Logs");
    EXPECT_EQ(paths.systemApplications, "/opt/tessel/lib/tessel/Applications");
    options.libraryDirectory = "/srv/lib";
    options.systemApplicationsDirectory = "/sys-apps";
    paths = DaemonPaths::resolve(options, getenv, "/opt/tessel/bin/tesseld");
    EXPECT_EQ(paths.preferences, "/srv/lib/Preferences");
    EXPECT_EQ(paths.logs, "/srv/lib/Logs");
    EXPECT_EQ(paths.applications, "/srv/lib/Applications");
    EXPECT_EQ(paths.systemApplications, "/sys-apps");
}

} // namespace
