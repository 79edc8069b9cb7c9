#include "server/KTTesselServer.h"

#include "bulletins/KTDefaultDataProviderFactory.h"
#include "core/KTLocalNotificationLogger.h"
#include "core/KTRemoteNotificationLogger.h"
#include "core/KTSystemStateProviding.h"
#include "ipc/KTNotificationRegistrarConnectionListener.h"
#include "ipc/KTNotificationSchedulerConnectionListener.h"
#include "local/KTLocalNotificationService.h"
#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"
#include "platform/events/SystemNotificationCenter.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/logging/FileLogManager.h"
#include "store/KTNotificationStore.h"

#include <atomic>
#include <mutex>

namespace tessel {

namespace {

    std::atomic<KTTesselServer*> sharedServerPointer { nullptr };

    std::shared_ptr<KTTesselServer>& sharedServer()
    {
        static std::shared_ptr<KTTesselServer> server;
        return server;
    }

    void registerLoggers(FileLogManager& manager)
    {
        auto local = std::make_shared<KTLocalNotificationLogger>();
        manager.registerLogger(local);
        KTLocalNotificationLogger::setRegisteredLogger(local);
        auto remote = std::make_shared<KTRemoteNotificationLogger>();
        manager.registerLogger(remote);
        KTRemoteNotificationLogger::setRegisteredLogger(remote);
    }

} // namespace

std::shared_ptr<KTTesselServer> KTTesselServer::sharedInstance()
{
    // Written once, under the start guard, before the pointer is published.
    return sharedServerPointer.load(std::memory_order_acquire) ? sharedServer() : nullptr;
}

void KTTesselServer::setSharedInstance(std::shared_ptr<KTTesselServer> server)
{
    sharedServer() = std::move(server);
    sharedServerPointer.store(sharedServer().get(), std::memory_order_release);
}

KTTesselServer::KTTesselServer(const std::shared_ptr<KTSystemStateProviding>& systemStateProvider)
    : _registrarConnectionListener(
        KTNotificationRegistrarConnectionListener::initWithSystemStateProvider(systemStateProvider))
    , _schedulerConnectionListener(KTNotificationSchedulerConnectionListener::init())
{
}

void ensurePlatformInstalled()
{
    static std::mutex lock;
    std::lock_guard guard(lock);
    if (!Platform::isInstalled())
        Platform::install(LinuxPlatform::make());
}

void KTPreferencesChanged(const std::string&)
{
    WorkQueue::global().async([] { Platform::current().fileLogManager->reloadFromDefaults(); });
}

void KTTesselServerStart(std::shared_ptr<KTSystemStateProviding> systemStateProvider)
{
    static std::once_flag once;
    std::call_once(once, [&] {
        ensurePlatformInstalled();
        // The start task keeps the provider for the life of the process.
        static std::shared_ptr<KTSystemStateProviding> retainedProvider = systemStateProvider;
        auto& platform = Platform::current();
        platform.systemNotificationCenter->addObserver(
            "com.tamber.tessel.prefsChanged", KTPreferencesChanged);
        registerLoggers(*platform.fileLogManager);
        KTNotificationStore::migratePushStore();
        // After the migration, so that no provider ever reads an old store.
        KTDefaultDataProviderFactory::sharedInstance();
        KTLocalNotificationService::sharedInstance();
        KTTesselServer::setSharedInstance(std::make_shared<KTTesselServer>(retainedProvider));
    });
}

} // namespace tessel
