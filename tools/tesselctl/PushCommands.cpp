#include "tesselctl/PushCommands.h"

#include "tesselctl/ClientSession.h"
#include "tesselctl/CommandError.h"
#include "tesselctl/ControlClient.h"
#include "tesselctl/EventInbox.h"
#include "tesselctl/InputFile.h"
#include "tesselctl/JsonPlist.h"

#include <tessel/services/KTSNotificationRegistrarClient.h>

#include <climits>

namespace tessel::ctl {

namespace {

    std::string environment(const Arguments& arguments)
    {
        auto environment = arguments.text("environment").value_or("production");
        if (environment != "production" && environment != "development")
            throw CommandError::usage("--environment takes production or development, not \"" + environment + "\"");
        return environment;
    }

    std::vector<uint8_t> payload(const Arguments& arguments)
    {
        auto text = arguments.text("payload");
        auto file = arguments.text("file");
        if (text.has_value() == file.has_value())
            throw CommandError::usage("push inject takes either --payload JSON or --file FILE");
        if (text)
            return JsonPlist::dictionaryFromUser(*text, "--payload");
        return JsonPlist::dictionaryFromUser(InputFile::read(*file, JsonPlist::maximumInputLength), *file);
    }

    std::string hex(const std::vector<uint8_t>& bytes)
    {
        static constexpr char digits[] = "0123456789abcdef";
        std::string text;
        for (uint8_t byte : bytes) {
            text += digits[byte >> 4];
            text += digits[byte & 15];
        }
        return text;
    }

} // namespace

void PushCommands::inject(const Invocation& invocation)
{
    const auto& arguments = invocation.arguments();
    auto topic = arguments.text("topic");
    if (!topic || topic->empty())
        throw CommandError::usage("push inject needs --topic TOPIC");
    auto bytes = payload(arguments);
    auto env = environment(arguments);
    auto priority = arguments.integer("priority", 0, INT32_MAX).value_or(10);
    ControlClient control(invocation.busAddress(), invocation.timeout());
    bool delivered = control.injectPushMessage(env, *topic, bytes, priority);
    if (invocation.json())
        invocation.output().document({ { "topic", *topic }, { "environment", env }, { "delivered", delivered } });
    if (!delivered)
        throw CommandError(ExitCode::Failed, "not delivered: nothing subscribes to " + *topic + " in " + env);
    if (!invocation.json())
        invocation.output().line("delivered on " + *topic + " in " + env);
}

void PushCommands::token(const Invocation& invocation)
{
    const std::string& app = invocation.app();
    auto env = environment(invocation.arguments());
    std::optional<std::vector<uint8_t>> token;
    // Before the client, whose thread must not take the signals.
    EventInbox inbox;
    ClientSession session(invocation.busAddress(), invocation.timeout());
    KTSNotificationRegistrarClient registrar(session.options());
    registrar.setObserver({ .didReceiveDeviceToken = [&](const std::vector<uint8_t>& received, const std::string& bundle) {
        if (bundle == app)
            inbox.post([&token, received] { token = received; });
    } });
    session.awaitDone("setObservingRemoteNotifications",
        [&](auto done) { registrar.setObservingRemoteNotifications(true, app, done); });
    ControlClient control(invocation.busAddress(), invocation.timeout());
    control.requestPushToken(app, env);
    auto deadline = std::chrono::steady_clock::now() + invocation.timeout();
    while (!token) {
        auto work = inbox.next(deadline);
        if (!work)
            break;
        (*work)();
    }
    if (!token && inbox.interrupted())
        throw CommandError(ExitCode::Failed, "interrupted before the token came");
    if (!token)
        throw CommandError(ExitCode::Timeout, "no token for " + app + " in time");
    if (invocation.json())
        return invocation.output().document({ { "app", app }, { "environment", env }, { "token", hex(*token) } });
    invocation.output().line(hex(*token));
}

} // namespace tessel::ctl
