// A full registry scan against reading and parsing the same property lists
// directly. Each of the 500 bundles has a manifest and a 20-entry string table
// (both binary property lists); the scan reads both, since the record's name
// comes from the table. The baseline reads and parses those 1000 files with
// FileManager and PropertyList and nothing else.
#include "platform/applications/ApplicationProxy.h"
#include "platform/applications/DirectoryApplicationWorkspace.h"
#include "platform/archive/PropertyList.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <stdexcept>

using namespace tessel;

namespace {

constexpr int applicationCount = 500;

struct Fixture {
    std::string root;
    std::string applications;
    std::string containers;
    std::vector<std::string> files;

    Fixture()
    {
        const char* base = std::getenv("TMPDIR");
        root = std::string(base && *base ? base : "/tmp") + "/tessel-registry-bench-XXXXXX";
        if (!mkdtemp(root.data()))
            throw std::runtime_error("mkdtemp");
        applications = Path::appendingComponent(root, "Applications");
        containers = Path::appendingComponent(root, "Containers");
        for (int i = 0; i < applicationCount; ++i) {
            auto identifier = "com.example.bench" + std::to_string(i);
            auto bundle = Path::appendingComponent(applications, identifier + ".tapp");
            Value manifest(Value::Dictionary {
                { "Identifier", identifier },
                { "DisplayName", "Bench " + std::to_string(i) },
                { "ApplicationType", i % 10 ? "User" : "System" },
                { "Executable", "bench" },
                { "DevelopmentLocalization", "en" },
                { "KTRequiresLocalNotifications", true },
                { "VYAppUsesLocalNotifications", false },
                { "Version", "1.0." + std::to_string(i) },
                { "Entitlements",
                    Value(Value::Dictionary { { "push-environment", "production" },
                        { "application-groups", Value(Value::Array { "group.example.bench" }) } }) },
            });
            Value::Dictionary strings { { "DisplayName", "Banc " + std::to_string(i) } };
            for (int k = 1; k < 20; ++k)
                strings.emplace(
                    "Key" + std::to_string(k), "A localized text of some length " + std::to_string(k));
            write(Path::appendingComponent(bundle, "Manifest.plist"), manifest);
            write(Path::appendingComponent(bundle, "en.lang/Manifest.strings"), Value(strings));
        }
    }
    ~Fixture() { FileManager::removeItemAtPath(root); }

    void write(const std::string& path, const Value& value)
    {
        FileManager::createDirectoryAtPath(Path::deletingLastComponent(path), true);
        FileManager::writeAtomically(
            path, *PropertyList::data(value, PropertyList::Format::Binary), nullptr, false);
        files.push_back(path);
    }
};

Fixture& fixture()
{
    static Fixture shared;
    return shared;
}

void BM_ParsePlistFiles500(benchmark::State& state)
{
    auto& files = fixture().files;
    for (auto _ : state) {
        for (const auto& path : files) {
            auto bytes = FileManager::contentsAtPath(path);
            auto value = PropertyList::read(*bytes);
            benchmark::DoNotOptimize(value);
        }
    }
    state.counters["files"] = static_cast<double>(files.size());
}

void BM_RegistryScan500(benchmark::State& state)
{
    auto& shared = fixture();
    for (auto _ : state) {
        DirectoryApplicationWorkspace workspace(shared.applications, shared.containers);
        auto all = workspace.allInstalledApplications();
        if (all.size() != applicationCount || all.front()->localizedName().rfind("Banc ", 0) != 0)
            state.SkipWithError("the scan missed applications or their tables");
    }
}

// What the watcher pays per change once everything is known.
void BM_RegistryRescanUnchanged500(benchmark::State& state)
{
    auto& shared = fixture();
    DirectoryApplicationWorkspace workspace(shared.applications, shared.containers);
    for (auto _ : state)
        workspace.rescan();
}

// Longer runs: both are mostly system calls, which a busy machine makes noisy.
BENCHMARK(BM_ParsePlistFiles500)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_RegistryScan500)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_RegistryRescanUnchanged500)->Unit(benchmark::kMillisecond);

} // namespace
