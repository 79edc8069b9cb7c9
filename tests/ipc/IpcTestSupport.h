#pragma once

#include "ipc/PrivateBus.h"
#include "ipc/RecordingServer.h"
#include "platform/archive/KeyedArchive.h"
#include "platform/ipc/IpcConnection.h"
#include "platform/ipc/IpcListener.h"
#include "platform/sim/InProcessIpcService.h"
#include "platform/sim/SimulatedDevice.h"
#include "services/KTSConstants.h"
#include "services/KTSNotificationRegistrarClientProtocol.h"
#include "services/KTSNotificationRegistrarServerProtocol.h"
#include "services/KTSNotificationRegistrarService.h"
#include "services/KTSNotificationSchedulerServerProtocol.h"
#include "services/KTSNotificationSchedulerService.h"
#include "services/KTSNotificationSettingsWhitelistedUnarchive.h"

#include "dbus/registrar-proxy.h"
#include "dbus/scheduler-proxy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

// One client per transport, the same to the tests.
namespace tessel::ipctest {

// The outcome of one call as a client sees it.
struct Outcome {
    bool answered = false;
    uint64_t value = 0;
    // The bus's error name; empty when answered or left unanswered.
    std::string error;
};

struct Token {
    Bytes token;
    std::string bundleIdentifier;
    bool operator==(const Token&) const = default;
    friend void PrintTo(const Token& token, std::ostream* out)
    {
        *out << token.bundleIdentifier << ":" << token.token.size() << " bytes";
    }
};

// A client of the registrar, the same to the tests on either transport.
class TestClient {
public:
    virtual ~TestClient() = default;
    virtual Outcome notificationTypes(const std::string& bundleIdentifier) = 0;
    // The settings the service answered; null when it did not.
    virtual std::shared_ptr<NotificationSettings> registerSettings(
        std::shared_ptr<NotificationSettings> settings)
        = 0;
    virtual bool setObserving(const std::string& bundleIdentifier) = 0;
    virtual void disconnect() = 0;

    // As the service must see it.
    const IpcPeer& peer() const { return _peer; }
    const std::shared_ptr<Mailbox<Token>> tokens = std::make_shared<Mailbox<Token>>();

protected:
    IpcPeer _peer;
};

class TokenReceiver : public KTSNotificationRegistrarClientProtocol {
public:
    explicit TokenReceiver(std::shared_ptr<Mailbox<Token>> tokens)
        : _tokens(std::move(tokens))
    {
    }
    void didReceiveDeviceToken(const Bytes& token, const std::string& id) override
    {
        _tokens->push({ token, id });
    }

private:
    std::shared_ptr<Mailbox<Token>> _tokens;
};

// The client's end of an in-process connection. Requests on one connection are
// served in order, so a second one answered proves the first had its chance.
class InProcessTestClient : public TestClient {
public:
    InProcessTestClient(InProcessIpcService& ipc, IpcPeer peer)
    {
        _peer = std::move(peer);
        _end = ipc.connect(KTSNotificationRegistrarServiceName, _peer);
        if (!_end) {
            ADD_FAILURE() << "nothing listens";
            return;
        }
        _end->setExportedInterface(KTSNotificationRegistrarService::clientInterface());
        _end->setExportedObject<KTSNotificationRegistrarClientProtocol>(
            std::make_shared<TokenReceiver>(tokens));
        _end->setRemoteObjectInterface(KTSNotificationRegistrarService::serverInterface());
        _end->resume();
        _server = _end->remoteObjectProxy<KTSNotificationRegistrarServerProtocol>();
    }

    Outcome notificationTypes(const std::string& bundleIdentifier) override
    {
        auto answer = std::make_shared<Mailbox<uint64_t>>();
        auto barrier = std::make_shared<Mailbox<uint64_t>>();
        _server->notificationTypesForBundleIdentifier(
            bundleIdentifier, [answer](uint64_t types) { answer->push(types); });
        _server->notificationTypesForBundleIdentifier(
            "barrier", [barrier](uint64_t types) { barrier->push(types); });
        EXPECT_TRUE(barrier->waitFor(1)) << "the service stopped answering";
        auto answers = answer->items();
        return answers.empty() ? Outcome {} : Outcome { true, answers[0], {} };
    }
    std::shared_ptr<NotificationSettings> registerSettings(
        std::shared_ptr<NotificationSettings> settings) override
    {
        auto answer = std::make_shared<Mailbox<std::shared_ptr<NotificationSettings>>>();
        _server->registerNotificationSettings(settings, "com.example.app",
            [answer](std::shared_ptr<NotificationSettings> registered) { answer->push(registered); });
        return answer->waitFor(1) ? answer->items()[0] : nullptr;
    }
    bool setObserving(const std::string& bundleIdentifier) override
    {
        auto done = std::make_shared<Mailbox<bool>>();
        _server->setObservingRemoteNotifications(true, bundleIdentifier, [done] { done->push(true); });
        return done->waitFor(1);
    }
    void disconnect() override
    {
        if (_end)
            _end->invalidate();
    }

private:
    std::shared_ptr<IpcConnection> _end;
    std::shared_ptr<KTSNotificationRegistrarServerProtocol> _server;
};

class RegistrarProxy final : public sdbus::ProxyInterfaces<com::tamber::Tessel::Registrar1_proxy,
                                 com::tamber::Tessel::RegistrarClient1_proxy> {
public:
    RegistrarProxy(sdbus::IConnection& connection, std::shared_ptr<Mailbox<Token>> tokens)
        : ProxyInterfaces(
            connection, KTSNotificationRegistrarServiceName, KTSNotificationRegistrarService::objectPath())
        , _tokens(std::move(tokens))
    {
        registerProxy();
    }
    ~RegistrarProxy() { unregisterProxy(); }
    sdbus::IProxy& proxy() { return getProxy(); }

private:
    void onDidReceiveDeviceToken(const std::vector<uint8_t>& token, const std::string& id) override
    {
        _tokens->push({ token, id });
    }

    std::shared_ptr<Mailbox<Token>> _tokens;
};

class SchedulerProxy final : public sdbus::ProxyInterfaces<com::tamber::Tessel::Scheduler1_proxy,
                                 com::tamber::Tessel::SchedulerClient1_proxy> {
public:
    explicit SchedulerProxy(sdbus::IConnection& connection)
        : ProxyInterfaces(
            connection, KTSNotificationSchedulerServiceName, KTSNotificationSchedulerService::objectPath())
    {
        registerProxy();
    }
    ~SchedulerProxy() { unregisterProxy(); }

private:
    void onDidChangeScheduledLocalNotifications(
        const std::vector<std::vector<uint8_t>>&, const std::string&) override
    {
    }
    void onDidFireLocalNotifications(const std::vector<std::vector<uint8_t>>&, const std::string&) override {
    }
};

// A raw bus client made of the generated proxies, on a connection of its own.
class DbusTestClient : public TestClient {
public:
    // The service names the client's application expectedBundleIdentifier.
    DbusTestClient(const std::string& address, std::string expectedBundleIdentifier)
    {
        _connection = sdbus::createSessionBusConnectionWithAddress(address);
        _connection->setMethodCallTimeout(std::chrono::seconds(10));
        _registrar = std::make_unique<RegistrarProxy>(*_connection, tokens);
        _scheduler = std::make_unique<SchedulerProxy>(*_connection);
        _connection->enterEventLoopAsync();
        _peer = IpcPeer { .pid = getpid(),
            .uid = getuid(),
            .name = _connection->getUniqueName(),
            .bundleIdentifier = std::move(expectedBundleIdentifier) };
    }
    ~DbusTestClient() override { disconnect(); }

    Outcome notificationTypes(const std::string& bundleIdentifier) override
    {
        return outcome([&] { return _registrar->NotificationTypes(bundleIdentifier); });
    }
    std::shared_ptr<NotificationSettings> registerSettings(
        std::shared_ptr<NotificationSettings> settings) override
    {
        auto data = KeyedArchive::archivedData(Value(settings));
        if (!data)
            return nullptr;
        try {
            return KTSNotificationSettingsWhitelistedUnarchiveFromData(
                _registrar->RegisterNotificationSettings(*data, "com.example.app"));
        } catch (const sdbus::Error& error) {
            ADD_FAILURE() << error.what();
            return nullptr;
        }
    }
    bool setObserving(const std::string& bundleIdentifier) override
    {
        return outcome([&] {
            _registrar->SetObservingRemoteNotifications(true, bundleIdentifier);
            return uint64_t(0);
        }).answered;
    }
    void disconnect() override
    {
        _registrar.reset();
        _scheduler.reset();
        _connection.reset();
    }

    // The raw calls the bounds are tried with.
    Outcome registerSettingsData(const Bytes& data)
    {
        return outcome(
            [&] { return _registrar->RegisterNotificationSettings(data, "com.example.app").size(); });
    }
    Outcome addNotifications(const std::vector<Bytes>& archives)
    {
        return outcome([&] {
            _scheduler->AddScheduledLocalNotifications(archives, "com.example.app");
            return uint64_t(archives.size());
        });
    }
    Outcome schedule(const Bytes& fetchRequest)
    {
        return outcome([&] { return _scheduler->Schedule("com.example.app", fetchRequest).size(); });
    }
    // Sent without waiting; the outcome arrives in outcomes.
    void notificationTypesAsync(
        const std::string& bundleIdentifier, std::shared_ptr<Mailbox<Outcome>> outcomes)
    {
        _registrar->proxy()
            .callMethodAsync("NotificationTypes")
            .onInterface(com::tamber::Tessel::Registrar1_proxy::INTERFACE_NAME)
            .withArguments(bundleIdentifier)
            .uponReplyInvoke([outcomes](const sdbus::Error* error, uint64_t types) {
                outcomes->push(error ? Outcome { false, 0, error->getName() } : Outcome { true, types, {} });
            });
    }

private:
    template <typename Body> Outcome outcome(Body body)
    {
        try {
            return Outcome { true, static_cast<uint64_t>(body()), {} };
        } catch (const sdbus::Error& error) {
            return Outcome { false, 0, error.getName() };
        }
    }

    std::unique_ptr<sdbus::IConnection> _connection;
    std::unique_ptr<RegistrarProxy> _registrar;
    std::unique_ptr<SchedulerProxy> _scheduler;
};

} // namespace tessel::ipctest
