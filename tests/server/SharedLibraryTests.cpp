#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <set>
#include <string>

namespace {

std::set<std::string> symbols(const char* options = "-D --defined-only")
{
    std::set<std::string> symbols;
    std::string command = std::string("nm ") + options + " " + TESSEL_SHARED_LIBRARY + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return symbols;
    char line[4096];
    while (fgets(line, sizeof line, pipe)) {
        std::string text(line);
        auto last = text.find_last_of(' ');
        if (last != std::string::npos)
            symbols.insert(text.substr(last + 1, text.find_last_not_of("\r\n") - last));
    }
    pclose(pipe);
    return symbols;
}

TEST(SharedLibrary, ExportsOnlyTheInterface)
{
    auto symbols = ::symbols();
    ASSERT_FALSE(symbols.empty()) << "nm found nothing in " << TESSEL_SHARED_LIBRARY;
    // C names of the interface, and the public C++ API in namespace tessel.
    std::regex allowed("^(Tessel|KT|kKT|_VYS|_KT)[A-Za-z0-9_]*$|^_ZN?K?6tessel.*|^_ZT[IVS]N6tessel.*");
    for (const auto& symbol : symbols)
        EXPECT_TRUE(std::regex_match(symbol, allowed)) << "unexpected export " << symbol;
}

TEST(SharedLibrary, HoldsNothingOfTheSimulatedDevice)
{
    auto all = symbols("--defined-only");
    ASSERT_FALSE(all.empty());
    for (const auto& symbol : all)
        for (const char* name : { "SimulatedDevice", "ManualClock", "CapturedSystemLog" })
            EXPECT_EQ(symbol.find(name), std::string::npos) << symbol;
}

TEST(SharedLibrary, InterfaceLoadsThroughTheDynamicLinker)
{
    void* library = dlopen(TESSEL_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto number = static_cast<const double*>(dlsym(library, "TesselVersionNumber"));
    auto text = static_cast<const char*>(dlsym(library, "TesselVersionString"));
    using Function = unsigned long (*)(unsigned long);
    auto supported = reinterpret_cast<Function>(dlsym(library, "KTSupportedTypesForPushSettings"));
    auto enabled = reinterpret_cast<Function>(dlsym(library, "KTEnabledTypesForPushSettings"));
    ASSERT_TRUE(number && text && supported && enabled);
    EXPECT_TRUE(dlsym(library, "_KTPostRemoteNotificationRecievedPowerNotification"));
    EXPECT_EQ(*number, 1.0);
    EXPECT_STREQ(text, "@(#)PROGRAM:Tessel  PROJECT:Tessel-1\n");
    // Supported badge, sound and alert; enabled badge and alert; a stray high bit.
    EXPECT_EQ(supported(7 | 8 | 32 | 256), 7ul);
    EXPECT_EQ(enabled(7 | 8 | 32 | 256), 5ul);
    EXPECT_EQ(dlsym(library, "_ZNK6tessel5Value11descriptionB5cxx11Ev"), nullptr) << "internals stay hidden";
    dlclose(library);
}

} // namespace
