#include "tesselctl/SettingsCommands.h"

#include "tesselctl/ApplicationCommands.h"
#include "tesselctl/ClientSession.h"
#include "tesselctl/CommandError.h"
#include "tesselctl/ControlClient.h"
#include "tesselctl/InputFile.h"
#include "tesselctl/SectionChanges.h"
#include "tesselctl/SettingsJson.h"

#include <tessel/services/KTSNotificationRegistrarClient.h>

namespace tessel::ctl {

namespace {

    using Settings = std::optional<ArchivedRecord>;

    struct Registrar {
        explicit Registrar(const Invocation& invocation)
            : session(invocation.busAddress(), invocation.timeout())
            , client(session.options())
        {
        }
        ClientSession session;
        KTSNotificationRegistrarClient client;
    };

    Json section(ControlClient& control, const std::string& app)
    {
        return ApplicationCommands::answer(control.sectionSettings(app), Json::value_t::object, "SectionSettings");
    }

    void updateSection(const Invocation& invocation, const Json& changes)
    {
        ControlClient control(invocation.busAddress(), invocation.timeout());
        Json after = ApplicationCommands::answer(control.updateSectionSettings(invocation.app(), JsonPlist::toBinary(changes)),
            Json::value_t::object, "UpdateSectionSettings");
        if (invocation.json())
            return invocation.output().document({ { "app", invocation.app() }, { "section", after } });
        invocation.output().lines(SettingsJson::sectionLines(after));
    }

    std::optional<NotificationSettingsFields> unarchived(const Settings& settings)
    {
        return settings ? NotificationSettingsFields::unarchive(*settings) : std::nullopt;
    }

} // namespace

void SettingsCommands::show(const Invocation& invocation)
{
    const std::string& app = invocation.app();
    Registrar registrar(invocation);
    auto settings = unarchived(registrar.session.await<Settings>("notificationSettingsForBundleIdentifier",
        [&](auto result) { registrar.client.notificationSettingsForBundleIdentifier(app, result); }));
    auto types = registrar.session.await<uint64_t>("notificationTypesForBundleIdentifier",
        [&](auto result) { registrar.client.notificationTypesForBundleIdentifier(app, result); });
    ControlClient control(invocation.busAddress(), invocation.timeout());
    Json sectionSettings = section(control, app);
    if (invocation.json())
        return invocation.output().document({ { "app", app }, { "registered", settings.has_value() },
            { "types", SettingsJson::typesJson(types) },
            { "categories", SettingsJson::categoriesJson(settings ? settings->categories : decltype(settings->categories) {}) },
            { "section", sectionSettings } });
    Lines lines { { "application", app }, { "types", SettingsJson::typesText(types) } };
    if (!settings)
        lines.emplace_back("registered", "no");
    else
        for (auto& line : SettingsJson::settingsLines(*settings))
            if (line.first != "registered types")
                lines.push_back(std::move(line));
    for (auto& line : SettingsJson::sectionLines(sectionSettings))
        lines.push_back(std::move(line));
    invocation.output().lines(lines);
}

void SettingsCommands::allow(const Invocation& invocation) { updateSection(invocation, { { "AllowsNotifications", true } }); }

void SettingsCommands::deny(const Invocation& invocation) { updateSection(invocation, { { "AllowsNotifications", false } }); }

void SettingsCommands::types(const Invocation& invocation)
{
    const auto& arguments = invocation.arguments();
    NotificationSettingsFields settings { .types = SettingsJson::types(arguments.operands().front()) };
    if (auto path = arguments.text("categories"))
        settings.categories = SettingsJson::categories(
            JsonPlist::parseJson(InputFile::read(*path, JsonPlist::maximumInputLength), *path));
    auto archive = settings.archive();
    if (!archive)
        throw CommandError::usage("the categories cannot be sent: their text must be UTF-8 without NUL characters");
    Registrar registrar(invocation);
    auto registered = unarchived(registrar.session.await<Settings>("registerNotificationSettings",
        [&](auto result) { registrar.client.registerNotificationSettings(*archive, invocation.app(), result); }));
    if (invocation.json())
        return invocation.output().document({ { "app", invocation.app() },
            { "registered", registered ? SettingsJson::settingsJson(*registered) : Json() } });
    if (!registered)
        return invocation.output().line("the daemon registered no settings for " + invocation.app());
    invocation.output().line("registered for " + invocation.app());
    invocation.output().lines(SettingsJson::settingsLines(*registered));
}

void SettingsCommands::set(const Invocation& invocation)
{
    const auto& operands = invocation.arguments().operands();
    Json changes = SectionChanges::parse(operands, 0);
    if (changes.contains("EnabledTypes")) {
        // Switching single types starts from the ones enabled now.
        ControlClient control(invocation.busAddress(), invocation.timeout());
        Json current = section(control, invocation.app());
        auto found = current.find("EnabledTypes");
        if (found == current.end() || !found->is_number_integer())
            throw CommandError(ExitCode::Failed, "unexpected answer to SectionSettings: no EnabledTypes");
        changes = SectionChanges::parse(operands, static_cast<uint64_t>(found->get<int64_t>()));
    }
    updateSection(invocation, changes);
}

} // namespace tessel::ctl
