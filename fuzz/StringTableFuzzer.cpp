#include "platform/applications/StringTable.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string error;
    auto table = StringTable::parse(data, size, &error);
    if (table) {
        // Whatever parses must survive the writer unchanged.
        auto text = StringTable::text(*table);
        auto again = StringTable::parse(text.data(), text.size(), &error);
        if (!again || *again != *table)
            std::abort();
    }
    StringTable::read(Bytes(data, data + size), &error);
    return 0;
}
