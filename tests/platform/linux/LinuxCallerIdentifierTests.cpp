#include "platform/files/FileManager.h"
#include "platform/linux/LinuxCallerIdentifier.h"
#include "platform/sim/SimulatedApplicationWorkspace.h"
#include "platform/sim/SimulatedDevice.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

using namespace tessel;
namespace fs = std::filesystem;

namespace {

TEST(CallerIdentifier, ApplicationIdsOfUnitNames)
{
    struct Case {
        const char* unit;
        const char* id; // null: names no application
    } cases[] = {
        { "app-org.example.Mail@12ab.service", "org.example.Mail" },
        { "app-org.example.Mail.service", "org.example.Mail" },
        { "app-gnome-org.example.Mail@3.service", "org.example.Mail" },
        { "app-gnome-org.example.Mail-1234.scope", "org.example.Mail" },
        { "app-org.example.Mail-1234.scope", "org.example.Mail" },
        { "app-org.example.My\\x2dMail-5.scope", "org.example.My-Mail" },
        { "app-a-b-c-d.scope", nullptr },
        { "app-org.example.Mail.scope", nullptr },
        { "org.example.Mail.service", nullptr },
        { "app-org.example.Mail.socket", nullptr },
        { "app-bad\\xZZ-1.scope", nullptr },
        { "app-bad\\x2-1.scope", nullptr },
        { "app--1.scope", nullptr },
        { "app.service", nullptr },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.unit);
        auto id = LinuxCallerIdentifier::applicationIdFromUnitName(c.unit);
        if (c.id)
            EXPECT_EQ(id, std::optional<std::string>(c.id));
        else
            EXPECT_FALSE(id) << *id;
    }
}

TEST(CallerIdentifier, UserUnitFromTheUnifiedCgroupLine)
{
    EXPECT_EQ(LinuxCallerIdentifier::userUnitFromCgroup("1:name=systemd:/x.scope\n"
                                                        "0::/user.slice/user-1000.slice/user@1000.service/"
                                                        "app.slice/app-gnome-org.example.Mail-42.scope\n"),
        std::optional<std::string>("app-gnome-org.example.Mail-42.scope"));
    EXPECT_FALSE(
        LinuxCallerIdentifier::userUnitFromCgroup("0::/system.slice/app-org.example.Mail.service\n"));
    EXPECT_FALSE(
        LinuxCallerIdentifier::userUnitFromCgroup("0::/user.slice/user-1000.slice/session-2.scope\n"));
}

class CallerIdentifierRoot : public ::testing::Test {
protected:
    void SetUp() override
    {
        install("org.example.Mail", "bin/mail");
        install("org.example.Sandboxed", "");
        fs::create_directories(root.path());
    }

    void install(const std::string& id, const std::string& executable, bool writeExecutable = true)
    {
        SimulatedApplication application { .identifier = id };
        if (!executable.empty())
            application.info["Executable"] = Value(executable);
        if (!executable.empty() && writeExecutable)
            application.resources[executable] = Bytes { '#', '!' };
        ASSERT_TRUE(device.applicationWorkspace().install(application));
    }

    void write(int pid, const std::string& leaf, const std::string& text)
    {
        auto path = fs::path(root.path()) / std::to_string(pid) / leaf;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    void linkExecutable(int pid, const std::string& target)
    {
        fs::create_directories(fs::path(root.path()) / std::to_string(pid));
        fs::create_symlink(target, fs::path(root.path()) / std::to_string(pid) / "exe");
    }

    static std::string cgroupOf(const std::string& unit)
    {
        return "0::/user.slice/user-1000.slice/user@1000.service/app.slice/" + unit + "\n";
    }

    std::string identify(int pid)
    {
        return LinuxCallerIdentifier(device.platform().workspace, root.path()).bundleIdentifierForPid(pid);
    }

    SimulatedDevice device;
    TemporaryDirectory root;
};

TEST_F(CallerIdentifierRoot, SandboxThenUnitThenExecutable)
{
    auto bundle = device.applicationWorkspace().bundlePathForInstall("org.example.Mail");
    // A sandbox's own id wins over the unit it runs in.
    write(100, "root/.flatpak-info", "[Instance]\nname=x\n[Application]\nname=org.example.Sandboxed\n");
    write(100, "cgroup", cgroupOf("app-org.example.Mail-1.scope"));
    write(101, "cgroup", cgroupOf("app-gnome-org.example.Mail-7.scope"));
    // Units and sandboxes of applications that are not installed name nothing,
    // and a sandbox never falls through to what else the process claims.
    write(102, "cgroup", cgroupOf("app-org.example.Unknown-7.scope"));
    write(103, "root/.flatpak-info", "[Application]\nname=org.example.Unknown\n");
    write(103, "cgroup", cgroupOf("app-org.example.Mail-1.scope"));
    write(103, "exe", "");
    linkExecutable(104, bundle + "/bin/mail");
    linkExecutable(105, "/bin/sh");
    struct Case {
        int pid;
        const char* id;
    } cases[] = { { 100, "org.example.Sandboxed" }, { 101, "org.example.Mail" }, { 102, "" }, { 103, "" },
        { 104, "org.example.Mail" }, { 105, "" }, { 106, "" }, { 0, "" }, { -1, "" } };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pid);
        EXPECT_EQ(identify(c.pid), c.id);
    }
}

TEST_F(CallerIdentifierRoot, AManifestNamingAnExecutableOutsideItsBundleNamesNothing)
{
    auto outside = fs::path(root.path()) / "outside";
    std::ofstream(outside) << "x";
    install("org.example.Climber", "../../../../../../../../../../.." + outside.string(), false);
    linkExecutable(107, outside.string());
    EXPECT_EQ(identify(107), "");
}

TEST_F(CallerIdentifierRoot, ALiveChildWhoseExecutableLiesInAnInstalledBundle)
{
    auto bundle = device.applicationWorkspace().bundlePathForInstall("org.example.Mail");
    auto executable = bundle + "/bin/mail";
    fs::copy_file("/bin/sleep", executable, fs::copy_options::overwrite_existing);
    ::chmod(executable.c_str(), 0755);
    pid_t child = 0;
    char* arguments[] = { const_cast<char*>(executable.c_str()), const_cast<char*>("30"), nullptr };
    ASSERT_EQ(posix_spawn(&child, executable.c_str(), nullptr, nullptr, arguments, nullptr), 0);
    EXPECT_EQ(
        LinuxCallerIdentifier(device.platform().workspace).bundleIdentifierForPid(child), "org.example.Mail");
    EXPECT_EQ(LinuxCallerIdentifier(device.platform().workspace).bundleIdentifierForPid(getpid()), "");
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

} // namespace
