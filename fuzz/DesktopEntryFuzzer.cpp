#include "platform/linux/DesktopEntry.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    auto entry = DesktopEntry::parse(text, &error);
    if (!entry && error.empty())
        std::abort();
    if (entry) {
        entry->localizedName({ "de-CH", "sr@latin", "zh_TW.UTF-8", "", "-" });
        for (const auto& [name, value] : entry->entitlements()) {
            if (name.empty() || value != Value(true))
                std::abort();
        }
        for (const auto& [key, value] : entry->info()) {
            if (key.empty())
                std::abort();
        }
    }
    DesktopEntry::desktopFileId(text);
    return 0;
}
