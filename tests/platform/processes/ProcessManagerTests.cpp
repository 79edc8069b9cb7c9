#include "platform/linux/LinuxProcessManager.h"
#include "platform/sim/SimulatedProcessManager.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

using namespace tessel;

namespace {

struct Recorder : ProcessManagerObserver {
    std::vector<std::string> events;
    void processManagerDidAddProcess(
        ProcessManager&, const std::shared_ptr<ApplicationProcess>& process) override
    {
        events.push_back("+" + std::to_string(process->pid()));
    }
    void processManagerDidRemoveProcess(
        ProcessManager&, const std::shared_ptr<ApplicationProcess>& process) override
    {
        events.push_back("-" + std::to_string(process->pid()));
    }
};

} // namespace

TEST(ProcessManager, ListsProcessesInLaunchOrderAndTellsObservers)
{
    SimulatedProcessManager manager;
    auto recorder = std::make_shared<Recorder>();
    manager.addObserver(recorder);
    auto first = manager.launch("com.example.a", ProcessVisibility::Background);
    auto other = manager.launch("com.example.b");
    auto second = manager.launch("com.example.a");
    auto listed = manager.processesForBundleIdentifier("com.example.a");
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed.back(), second);
    EXPECT_EQ(listed.front()->state().visibility, ProcessVisibility::Background);

    EXPECT_TRUE(manager.terminate(first->pid()));
    EXPECT_FALSE(manager.terminate(first->pid()));
    manager.removeObserver(recorder.get());
    manager.terminate(other->pid());
    auto pid = [](auto& p) { return std::to_string(p->pid()); };
    EXPECT_EQ(recorder->events,
        (std::vector<std::string> {
            "+" + pid(first), "+" + pid(other), "+" + pid(second), "-" + pid(first) }));
    EXPECT_TRUE(manager.processesForBundleIdentifier("com.example.b").empty());
}

TEST(LinuxProcessManager, DropsProcessesThatEndedWithoutSayingSo)
{
    LinuxProcessManager manager;
    auto recorder = std::make_shared<Recorder>();
    manager.addObserver(recorder);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        pause();
        _exit(0);
    }
    ASSERT_TRUE(manager.registerProcess("com.example.a", child, ProcessVisibility::Foreground, {}));
    ASSERT_TRUE(manager.registerProcess("com.example.a", getpid(), ProcessVisibility::Background, {}));
    EXPECT_FALSE(manager.registerProcess("com.example.a", -1, ProcessVisibility::Foreground, {}));
    EXPECT_FALSE(manager.registerProcess("", getpid(), ProcessVisibility::Foreground, {}));
    EXPECT_EQ(manager.processesForBundleIdentifier("com.example.a").size(), 2u);

    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    auto left = manager.processesForBundleIdentifier("com.example.a");
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0]->pid(), getpid());
    EXPECT_EQ(recorder->events.back(), "-" + std::to_string(child));
    EXPECT_TRUE(manager.unregisterProcess(getpid()));
    EXPECT_FALSE(manager.registerProcess("com.example.a", child, ProcessVisibility::Foreground, {}))
        << "a reaped pid names nothing";
}
