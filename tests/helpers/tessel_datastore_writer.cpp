// Writes an increasing counter into the data store of $TESSEL_LIBRARY_DIR until
// it is killed, printing each value once its write has returned true.
#include "platform/Platform.h"
#include "platform/applications/ApplicationDataStore.h"
#include "platform/linux/LinuxPlatform.h"

#include <cinttypes>
#include <cstdio>

int main()
{
    using namespace tessel;
    Platform::install(LinuxPlatform::make());
    auto store = ApplicationDataStore::storeForApplication("com.example.crash");
    // Continue where the killed writer stopped, so the parent can tell old from new.
    int64_t counter = store->objectForKey("counter").integerValue();
    for (;;) {
        ++counter;
        if (!store->setObject(Value(counter), "counter"))
            return 1;
        std::printf("plain %" PRId64 "\n", counter);
        std::fflush(stdout);
        Value archived(
            Value::Array { Value(counter), Value(Value::Dictionary { { "counter", Value(counter) } }) });
        if (!store->setArchivedObject(archived, "archived"))
            return 1;
        std::printf("archived %" PRId64 "\n", counter);
        std::fflush(stdout);
    }
}
