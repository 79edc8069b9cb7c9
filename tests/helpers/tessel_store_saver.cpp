// Saves notifications into the store of $TESSEL_LIBRARY_DIR until it is killed.
#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"
#include "store/KTNotificationStore.h"

#include <cstdio>
#include <string>

int main()
{
    using namespace tessel;
    Platform::install(LinuxPlatform::make());
    auto store = KTNotificationStore::sharedInstance();
    for (long i = 0;; ++i) {
        store->saveRemoteNotificationWithTitle(
            "title", "message " + std::to_string(i), {}, {}, Value(i), {}, {}, {}, "com.example.crash");
        if (i == 0) {
            std::puts("saved");
            std::fflush(stdout);
        }
    }
}
