#include "platform/archive/PropertyList.h"

#include <cstddef>
#include <cstdint>

using namespace tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string error;
    auto value = PropertyList::read(data, size, &error);
    if (value) {
        PropertyList::data(*value, PropertyList::Format::Binary, &error);
        PropertyList::data(*value, PropertyList::Format::Xml, &error);
    }
    return 0;
}
