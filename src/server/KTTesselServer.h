#pragma once

#include <memory>
#include <string>
#include <tessel/TesselExport.h>

namespace tessel {

class KTNotificationRegistrarConnectionListener;
class KTNotificationSchedulerConnectionListener;
class KTSystemStateProviding;

// The principal object of a started server; it lives until the process ends.
class KTTesselServer {
public:
    // Null before the server has started.
    static std::shared_ptr<KTTesselServer> sharedInstance();

    // initWithSystemStateProvider: the provider is handed on, not kept.
    explicit KTTesselServer(const std::shared_ptr<KTSystemStateProviding>& systemStateProvider);

    const std::shared_ptr<KTNotificationRegistrarConnectionListener>& registrarConnectionListener() const
    {
        return _registrarConnectionListener;
    }
    const std::shared_ptr<KTNotificationSchedulerConnectionListener>& schedulerConnectionListener() const
    {
        return _schedulerConnectionListener;
    }

private:
    friend void KTTesselServerStart(std::shared_ptr<KTSystemStateProviding> systemStateProvider);
    static void setSharedInstance(std::shared_ptr<KTTesselServer> server);

    // Owns the push server.
    const std::shared_ptr<KTNotificationRegistrarConnectionListener> _registrarConnectionListener;
    const std::shared_ptr<KTNotificationSchedulerConnectionListener> _schedulerConnectionListener;
};

// Runs the start sequence once per process, synchronously; later calls return at
// once. Installs the Linux platform when the host installed none.
TESSEL_EXPORT void KTTesselServerStart(std::shared_ptr<KTSystemStateProviding> systemStateProvider);

// The one place where the library chooses a platform: the Linux one, unless the
// host installed its own before its first call.
void ensurePlatformInstalled();

// Reloads the loggers' preferences when "com.tamber.tessel.prefsChanged" arrives.
void KTPreferencesChanged(const std::string& name);

} // namespace tessel
