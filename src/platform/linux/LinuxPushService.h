#pragma once

#include "platform/push/DownloadManager.h"
#include "platform/push/ProfileConnection.h"
#include "platform/push/PushConnection.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessel {

class Preferences;

// A push service that never leaves the machine: tokens are made here and kept
// in the Library, and messages come from the host (see docs/push.md).
class LinuxPushService final : public PushService, public std::enable_shared_from_this<LinuxPushService> {
public:
    // Tokens live in <directory>/<environment>.plist.
    explicit LinuxPushService(std::string directory);

    std::shared_ptr<PushConnection> makeConnection(
        const std::string& environmentName, WorkQueue& callbackQueue) override;
    void notifySafeToSendFilter() override;

    // Hands a message to every live connection of the environment that enabled its
    // topic (or takes it opportunistically); false when none did.
    bool injectIncomingMessage(const std::string& environmentName, const IncomingPushMessage& message) override;

    // The environment's token for the topic under that identifier, made on first use.
    Bytes tokenForTopic(
        const std::string& environmentName, const std::string& topic, const std::string& identifier);
    void invalidateTokenForTopic(
        const std::string& environmentName, const std::string& topic, const std::string& identifier);
    Bytes publicToken(const std::string& environmentName);

private:
    std::string pathForEnvironment(const std::string& environmentName) const;
    Value::Dictionary readLocked(const std::string& environmentName);
    void writeLocked(const std::string& environmentName, const Value::Dictionary& contents);

    const std::string _directory;
    std::mutex _mutex;
    std::vector<std::pair<std::string, std::weak_ptr<PushConnection>>> _connections;
};

// Logs what a download service would be asked to do.
class LinuxDownloadManager final : public DownloadManager {
public:
    void reevaluateBackgroundDownloadsForBundleIdentifiers(
        const std::vector<std::string>& bundleIdentifiers) override;
};

// "AutomaticAppUpdatesAllowed" in the host's domain; allowed unless set false.
class LinuxProfileConnection final : public ProfileConnection {
public:
    LinuxProfileConnection(std::shared_ptr<Preferences> preferences, std::string domain);
    bool isAutomaticAppUpdatesAllowed() override;

private:
    const std::shared_ptr<Preferences> _preferences;
    const std::string _domain;
};

} // namespace tessel
