// Push registrations as the data store hands them back: whatever decodes keeps
// the record's rules and survives archiving again unchanged.
#include "platform/archive/KeyedArchive.h"
#include "platform/push/PushEnvironment.h"
#include "remote/KTRemoteNotificationClient.h"

#include <cstddef>
#include <cstdint>

using namespace tessel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    KTRemoteNotificationClient::registerArchivableClasses();
    UnarchiveOptions options { .expectedClass = KTRemoteNotificationClient::archivedClassName,
        .allowedClasses = { KTRemoteNotificationClient::archivedClassName } };
    auto decoded = KeyedArchive::unarchive(Bytes(data, data + size), options);
    auto client = decoded ? decoded->objectAs<KTRemoteNotificationClient>() : nullptr;
    if (!client)
        return 0;
    if (client->bundleIdentifier().empty() || client->tokenIdentifier().empty()
        || client->dailyCountOfGazettePushes() < 0 || client->pushDisabledReason())
        __builtin_trap();
    if (auto& environment = client->environment(); environment && *environment != PushEnvironmentProduction
        && *environment != PushEnvironmentDevelopment && *environment != PushEnvironmentDemo
        && *environment != PushEnvironmentQA2)
        __builtin_trap();
    (void)client->description();
    auto archived = KeyedArchive::archivedData(Value(client));
    if (!archived)
        __builtin_trap();
    auto again = KeyedArchive::unarchive(*archived, options);
    auto copy = again ? again->objectAs<KTRemoteNotificationClient>() : nullptr;
    if (!copy || !copy->isEqual(*client))
        __builtin_trap();
    return 0;
}
