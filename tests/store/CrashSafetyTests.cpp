#include "platform/archive/KeyedArchive.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <sys/wait.h>
#include <tessel/Tessel.h>
#include <unistd.h>

using namespace tessel;

namespace {

// Starts the saver and returns once its first save is on disk.
pid_t startSaver(const std::string& library)
{
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    pid_t child = fork();
    if (child == 0) {
        dup2(ready[1], STDOUT_FILENO);
        close(ready[0]);
        setenv("TESSEL_LIBRARY_DIR", library.c_str(), 1);
        std::string program = std::string(TESSEL_HELPER_DIR) + "/tessel_store_saver";
        execl(program.c_str(), program.c_str(), nullptr);
        _exit(127);
    }
    close(ready[1]);
    char byte;
    bool started = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    return started ? child : -1;
}

TEST(NotificationStoreCrashSafety, AKilledSaveLeavesAWholeStore)
{
    SimulatedDevice device;
    auto path
        = Path::appendingComponent(KTNotificationStore::storeDirectory(), "com.example.crash.pushstore");
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> delay(0, 20000);
    for (int round = 0; round < 12; ++round) {
        pid_t child = startSaver(device.libraryDirectory());
        ASSERT_GT(child, 0);
        // A random moment inside the save loop: killing it there is the point.
        usleep(static_cast<useconds_t>(delay(random)));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));

        auto data = FileManager::contentsAtPath(path);
        ASSERT_TRUE(data) << "round " << round;
        std::string error;
        auto list = KeyedArchive::unarchive(*data, &error);
        ASSERT_TRUE(list) << "round " << round << ": " << error;
        ASSERT_TRUE(list->isArray());
        ASSERT_GE(list->length(), 1u);
        ASSERT_LE(list->length(), 101u);
        // Every round starts again at 0, so the newest badge only tells the file is whole.
        EXPECT_GE(list->at(0)[KTNotificationStoreBadgeNumberKey].integerValue(), 0);
    }
    // Whatever temporary files the kills left are gone once a store starts.
    FileManager::writeAtomically(path + ".leftover", Bytes { 1 });
    auto planted = Path::appendingComponent(
        KTNotificationStore::storeDirectory(), ".com.example.crash.pushstore.0123456789abcdef.tmp");
    ASSERT_TRUE(FileManager::writeAtomically(planted, Bytes { 1 }));
    KTNotificationStore::sharedInstance();
    auto entries = FileManager::contentsOfDirectoryAtPath(KTNotificationStore::storeDirectory());
    ASSERT_TRUE(entries);
    EXPECT_EQ(*entries,
        (std::vector<std::string> { "com.example.crash.pushstore", "com.example.crash.pushstore.leftover" }));
}

} // namespace
