#pragma once

#include "bulletins/KTDefaultDataProvider.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/sim/SimulatedBulletinService.h"
#include "platform/sim/SimulatedDevice.h"
#include "store/KTNotificationStore.h"

#include <gtest/gtest.h>
#include <tessel/Tessel.h>

namespace tessel::testing {

inline constexpr const char* app = "com.example.app";

// A record as the store keeps it, dated seconds after the reference date.
inline Value::Dictionary storedRecord(double seconds, Value message = "Hello")
{
    Value::Dictionary record {
        { KTNotificationStoreCreationDateKey, Date(seconds) },
        { KTNotificationStoreNotificationTypeKey, kKTNotificationStoreNotificationTypeRemote },
    };
    if (!message.isNull())
        record[KTNotificationStoreMessageKey] = message;
    return record;
}

inline std::string identifierOf(const Value& record)
{
    return KTNotificationStore::uniqueIdentifierForNotification(record).value_or("");
}

// One application's provider hosted by the simulated bulletin service.
class ProviderTest : public ::testing::Test {
protected:
    using Kind = SimulatedBulletinService::Event::Kind;

    void TearDown() override
    {
        if (provider)
            provider->invalidate();
    }

    void host()
    {
        provider = std::make_shared<KTDefaultDataProvider>(app, "Example", queue);
        service.addDataProvider(provider, queue);
    }

    // Replaces the application's store file, as an older release or another
    // writer may have left it; records go newest first.
    void writeStore(const Value::Array& records)
    {
        auto directory = KTNotificationStore::storeDirectory();
        FileManager::createDirectoryAtPath(directory, true);
        auto data = KeyedArchive::archivedData(Value(records));
        ASSERT_TRUE(data);
        ASSERT_TRUE(FileManager::writeAtomically(
            Path::appendingComponent(directory, std::string(app) + ".pushstore"), *data));
    }

    // A remote notification saved the way the push server saves one.
    void save(const std::string& message)
    {
        KTNotificationStore::sharedInstance()->saveRemoteNotificationWithTitle(
            {}, message, {}, {}, {}, {}, {}, {}, app);
        device.waitUntilIdle();
    }

    // What the store tells its observers after a write of its own.
    void announceChange()
    {
        provider->pushStoreNotificationsDidChange();
        device.waitUntilIdle();
    }

    Value::Array stored()
    {
        return KTNotificationStore::sharedInstance()->savedNotificationsForBundleID(app).arrayValue();
    }

    std::vector<SimulatedBulletinService::Event> events(Kind kind)
    {
        auto all = service.events(app);
        std::erase_if(all, [&](const auto& event) { return event.kind != kind; });
        return all;
    }
    // The publisher bulletin identifiers of the events of one kind, in order.
    std::vector<std::string> bulletinIDs(Kind kind)
    {
        std::vector<std::string> identifiers;
        for (auto& event : events(kind))
            identifiers.push_back(event.publisherBulletinID);
        return identifiers;
    }
    std::vector<std::string> added() { return bulletinIDs(Kind::Add); }
    std::vector<std::string> withdrawn() { return bulletinIDs(Kind::Withdraw); }

    SimulatedDevice device;
    std::shared_ptr<WorkQueue> queue = WorkQueue::create("com.tamber.KTDefaultDataProviderFactory");
    SimulatedBulletinService service;
    std::shared_ptr<KTDefaultDataProvider> provider;
};

} // namespace tessel::testing
