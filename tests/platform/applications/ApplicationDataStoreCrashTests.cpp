#include "platform/applications/ApplicationDataStore.h"
#include "platform/applications/ApplicationDataStoreDatabase.h"
#include "platform/files/Path.h"
#include "platform/sim/SimulatedDevice.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <sqlite3.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace tessel;

namespace {

struct Writer {
    pid_t pid = -1;
    int output = -1;
};

Writer startWriter(const std::string& library)
{
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0)
        return {};
    pid_t child = fork();
    if (child == 0) {
        dup2(pipeEnds[1], STDOUT_FILENO);
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        setenv("TESSEL_LIBRARY_DIR", library.c_str(), 1);
        std::string program = std::string(TESSEL_HELPER_DIR) + "/tessel_datastore_writer";
        execl(program.c_str(), program.c_str(), nullptr);
        _exit(127);
    }
    close(pipeEnds[1]);
    if (child < 0) {
        close(pipeEnds[0]);
        return {};
    }
    return { child, pipeEnds[0] };
}

// The writer's next whole line; a line cut short by the kill does not count.
bool nextLine(FILE* output, std::string& line)
{
    char* buffer = nullptr;
    size_t capacity = 0;
    ssize_t length = getline(&buffer, &capacity, output);
    bool whole = length > 0 && buffer[length - 1] == '\n';
    if (whole)
        line.assign(buffer, static_cast<size_t>(length - 1));
    free(buffer);
    return whole;
}

std::string integrityCheck(const std::string& path)
{
    sqlite3* database = nullptr;
    std::string result;
    if (sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_exec(
            database, "PRAGMA integrity_check",
            [](void* out, int, char** values, char**) {
                *static_cast<std::string*>(out) += values[0] ? values[0] : "(null)";
                return 0;
            },
            &result, nullptr);
    } else {
        result = sqlite3_errmsg(database);
    }
    sqlite3_close_v2(database);
    return result;
}

TEST(ApplicationDataStoreCrashSafety, EveryCompletedWriteSurvivesSIGKILL)
{
    SimulatedDevice device;
    auto path = Path::appendingComponent(device.libraryDirectory(), ApplicationDataStoreDatabase::fileName);
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int> delay(0, 100000);
    int64_t previous = 0, previousArchived = 0;
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        auto writer = startWriter(device.libraryDirectory());
        ASSERT_GT(writer.pid, 0);
        FILE* output = fdopen(writer.output, "r");
        ASSERT_TRUE(output);
        std::string line;
        // Killing before the first write proves nothing.
        bool started = nextLine(output, line);
        if (started)
            usleep(static_cast<useconds_t>(delay(random)));
        kill(writer.pid, SIGKILL);
        int status = 0;
        waitpid(writer.pid, &status, 0);
        ASSERT_TRUE(started) << "the writer failed before its first write";
        ASSERT_TRUE(WIFSIGNALED(status));

        int64_t lastPlain = 0, lastArchived = 0;
        do {
            long long number = 0;
            if (std::sscanf(line.c_str(), "plain %lld", &number) == 1)
                lastPlain = number;
            else if (std::sscanf(line.c_str(), "archived %lld", &number) == 1)
                lastArchived = number;
        } while (nextLine(output, line));
        fclose(output);
        ASSERT_GT(lastPlain, previous);

        EXPECT_EQ(integrityCheck(path), "ok");
        ApplicationDataStore store("com.example.crash", std::make_shared<ApplicationDataStoreDatabase>(path));
        // At most one write can have completed without being reported.
        auto counter = store.objectForKey("counter").integerValue();
        EXPECT_GE(counter, lastPlain);
        EXPECT_LE(counter, lastPlain + 1);
        auto archived = store.archivedObjectForKey("archived", {}, Value::Type::Array);
        auto archivedCounter = archived.at(0).integerValue();
        EXPECT_GE(archivedCounter, std::max(lastArchived, previousArchived));
        // Each archived value is written only after its plain one was reported.
        EXPECT_LE(archivedCounter, lastPlain);
        EXPECT_EQ(archived.at(1)["counter"], Value(archivedCounter));
        previous = counter;
        previousArchived = archivedCounter;
    }
}

} // namespace
