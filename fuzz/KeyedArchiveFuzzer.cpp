#include "platform/archive/KeyedArchive.h"
#include "platform/archive/KeyedArchiver.h"
#include "platform/archive/KeyedUnarchiver.h"
#include "platform/foundation/Archivable.h"

#include <cstddef>
#include <cstdint>

using namespace tessel;

namespace {

// A small class so that fuzzed archives can reach object decoding and factories.
class FuzzRecord : public Archivable {
public:
    std::string className() const override { return "FuzzRecord"; }
    void encodeWithCoder(KeyedArchiver& coder) const override
    {
        coder.encodeObject(payload, "payload");
        coder.encodeInt32(count, "count");
    }

    Value payload;
    int32_t count = 0;
};

bool registerClasses()
{
    KeyedArchive::registerClass("FuzzRecord", [](KeyedUnarchiver& coder) -> std::shared_ptr<Archivable> {
        if (coder.decodeBool("absent"))
            return nullptr;
        auto record = std::make_shared<FuzzRecord>();
        record->payload = coder.decodeObject("payload");
        record->count = coder.decodeInt32("count");
        coder.decodeObjectOfClass("child", "FuzzRecord");
        coder.decodeDouble("ratio");
        return record;
    });
    KeyedArchive::registerAlias("OldFuzzRecord", "FuzzRecord");
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool registered = registerClasses();
    (void)registered;
    Bytes bytes(data, data + size);
    std::string error;
    auto value = KeyedArchive::unarchive(bytes, &error);
    if (value) {
        // Whatever decodes must archive again.
        auto again = KeyedArchive::archivedData(*value, &error);
        if (!again)
            __builtin_trap();
    }
    UnarchiveOptions options;
    options.expectedClass = "FuzzRecord";
    options.allowedClasses = { "FuzzRecord" };
    KeyedArchive::unarchive(bytes, options, &error);
    return 0;
}
