#include "tesselctl/ScheduleCommands.h"

#include "tesselctl/ClientSession.h"
#include "tesselctl/CommandError.h"
#include "tesselctl/Dates.h"
#include "tesselctl/EventInbox.h"
#include "tesselctl/NotificationJson.h"
#include "tesselctl/NotificationOptions.h"

#include <tessel/services/KTSNotificationSchedulerClient.h>

#include <algorithm>
#include <climits>
#include <set>

namespace tessel::ctl {

namespace {

    using List = KTSNotificationSchedulerClient::List;
    using Rows = std::vector<std::vector<std::string>>;

    // A session and a scheduler client on it; the client goes first.
    struct Scheduler {
        explicit Scheduler(const Invocation& invocation)
            : session(invocation.busAddress(), invocation.timeout())
            , client(session.options())
            , app(invocation.app())
        {
        }

        List list()
        {
            return session.await<List>("scheduledLocalNotificationsForBundleIdentifier",
                [&](auto result) { client.scheduledLocalNotificationsForBundleIdentifier(app, result); });
        }

        ClientSession session;
        KTSNotificationSchedulerClient client;
        std::string app;
    };

    // The client library handed over validated records only.
    LocalNotificationFields fields(const ArchivedRecord& record)
    {
        return LocalNotificationFields::unarchive(record).value_or(LocalNotificationFields {});
    }

    Json numbered(size_t number, const ArchivedRecord& record)
    {
        Json json { { "number", number } };
        json.update(NotificationJson::toJson(fields(record)));
        return json;
    }

    std::string oneLine(const List& notifications)
    {
        std::string text;
        for (const auto& record : notifications)
            text += (text.empty() ? "" : " | ") + NotificationJson::text(fields(record));
        return text;
    }

    // The numbers in the list's order; each must name a notification.
    std::vector<size_t> chosen(const std::vector<std::string>& operands, size_t count)
    {
        std::set<size_t> numbers;
        for (const auto& operand : operands) {
            auto number = static_cast<size_t>(Arguments::parseInteger(operand, 1, INT_MAX, "a notification number"));
            if (number > count)
                throw CommandError::usage("there is no notification " + operand + ": the list has "
                    + std::to_string(count) + " (see tesselctl list)");
            numbers.insert(number);
        }
        return { numbers.begin(), numbers.end() };
    }

    // What a change did to the listed notifications, numbered as they were.
    void report(const Invocation& invocation, const char* done, const List& list, const std::vector<size_t>& numbers)
    {
        if (invocation.json()) {
            Json changed = Json::array();
            for (size_t number : numbers)
                changed.push_back(numbered(number, list[number - 1]));
            return invocation.output().document({ { "app", invocation.app() }, { done, changed } });
        }
        std::string text;
        for (size_t number : numbers)
            text += (text.empty() ? ": " : ", ") + std::to_string(number);
        invocation.output().line(std::string(done) + " " + std::to_string(numbers.size()) + " of "
            + invocation.app() + (numbers.empty() ? " (none scheduled)" : text));
    }

    using Change = void (KTSNotificationSchedulerClient::*)(
        const List&, const std::string&, KTSNotificationSchedulerClient::Completion);

    void change(const Invocation& invocation, const char* operation, const char* done, Change method,
        const std::vector<size_t>& numbers, Scheduler& scheduler, const List& list)
    {
        List selected;
        for (size_t number : numbers)
            selected.push_back(list[number - 1]);
        if (!selected.empty())
            scheduler.session.awaitDone(
                operation, [&](auto completion) { (scheduler.client.*method)(selected, scheduler.app, completion); });
        report(invocation, done, list, numbers);
    }

    // Where the notification just added stands in the list after: the one
    // record that was not there before, else one with the same fields but
    // for the date the daemon may have moved.
    std::optional<size_t> findAdded(const List& before, const List& after, const LocalNotificationFields& added)
    {
        std::multiset<ArchivedRecord> old(before.begin(), before.end());
        std::vector<size_t> fresh;
        for (size_t index = 0; index < after.size(); ++index) {
            auto found = old.find(after[index]);
            if (found == old.end())
                fresh.push_back(index);
            else
                old.erase(found);
        }
        if (fresh.size() == 1)
            return fresh.front();
        auto sameBut = [&](LocalNotificationFields candidate) {
            candidate.fireDate = added.fireDate;
            candidate.userInfo = added.userInfo;
            return candidate == added;
        };
        for (size_t index = after.size(); index-- > 0;)
            if (sameBut(fields(after[index])))
                return index;
        return std::nullopt;
    }

    std::optional<double> dateOption(const Arguments& arguments, const char* name)
    {
        auto text = arguments.text(name);
        if (!text)
            return std::nullopt;
        std::string error;
        auto date = Dates::parse(*text, {}, &error);
        if (!date)
            throw CommandError::usage("--" + std::string(name) + ": " + error);
        return date;
    }

    void printEvent(const Invocation& invocation, const char* event, const List& notifications)
    {
        if (invocation.json()) {
            Json list = Json::array();
            for (const auto& record : notifications)
                list.push_back(NotificationJson::toJson(fields(record)));
            return invocation.output().jsonLine(
                { { "event", event }, { "app", invocation.app() }, { "notifications", list } });
        }
        invocation.output().line(Dates::readable(Dates::now()) + " " + event + " " + invocation.app() + " "
            + std::to_string(notifications.size()) + (notifications.size() == 1 ? " notification" : " notifications")
            + (notifications.empty() ? "" : ": " + oneLine(notifications)));
    }

} // namespace

void ScheduleCommands::schedule(const Invocation& invocation)
{
    LocalNotificationFields notification = NotificationOptions::build(invocation.arguments(), Dates::now());
    auto record = notification.archive();
    if (!record)
        throw CommandError::usage("the notification cannot be sent: its text must be UTF-8 without NUL characters");
    Scheduler scheduler(invocation);
    List before = scheduler.list();
    scheduler.session.awaitDone("addScheduledLocalNotifications",
        [&](auto done) { scheduler.client.addScheduledLocalNotifications({ *record }, scheduler.app, done); });
    List after = scheduler.list();
    auto index = findAdded(before, after, notification);
    if (invocation.json()) {
        Json scheduled = index ? numbered(*index + 1, after[*index]) : NotificationJson::toJson(notification);
        return invocation.output().document(
            { { "app", invocation.app() }, { "listed", index.has_value() }, { "scheduled", scheduled } });
    }
    if (!index) {
        invocation.output().line("scheduled for " + invocation.app()
            + "; it is not in the list (it fired at once, or the daemon dropped it)");
        return invocation.output().lines(NotificationJson::lines(notification));
    }
    invocation.output().line("scheduled for " + invocation.app() + " as number " + std::to_string(*index + 1));
    invocation.output().lines(NotificationJson::lines(fields(after[*index])));
}

void ScheduleCommands::list(const Invocation& invocation)
{
    Scheduler scheduler(invocation);
    List list = scheduler.list();
    if (invocation.json()) {
        Json notifications = Json::array();
        for (size_t index = 0; index < list.size(); ++index)
            notifications.push_back(numbered(index + 1, list[index]));
        return invocation.output().document({ { "app", invocation.app() }, { "notifications", notifications } });
    }
    Rows rows;
    for (const auto& record : list) {
        auto notification = fields(record);
        rows.push_back({ std::to_string(rows.size() + 1), NotificationJson::fireDate(notification),
            NotificationJson::repeat(notification), NotificationJson::region(notification),
            NotificationJson::text(notification) });
    }
    invocation.output().table({ "#", "FIRE DATE", "REPEAT", "REGION", "TEXT" }, rows);
}

void ScheduleCommands::cancel(const Invocation& invocation)
{
    const auto& arguments = invocation.arguments();
    bool all = arguments.has("all");
    if (all == !arguments.operands().empty())
        throw CommandError::usage("cancel takes the numbers of notifications, or --all");
    Scheduler scheduler(invocation);
    List list = scheduler.list();
    std::vector<size_t> numbers;
    if (all)
        for (size_t number = 1; number <= list.size(); ++number)
            numbers.push_back(number);
    else
        numbers = chosen(arguments.operands(), list.size());
    change(invocation, "cancelScheduledLocalNotifications", "cancelled",
        &KTSNotificationSchedulerClient::cancelScheduledLocalNotifications, numbers, scheduler, list);
}

void ScheduleCommands::snooze(const Invocation& invocation)
{
    Scheduler scheduler(invocation);
    List list = scheduler.list();
    auto numbers = chosen(invocation.arguments().operands(), list.size());
    change(invocation, "snoozeScheduledLocalNotifications", "snoozed",
        &KTSNotificationSchedulerClient::snoozeScheduledLocalNotifications, numbers, scheduler, list);
}

void ScheduleCommands::fetch(const Invocation& invocation)
{
    const auto& arguments = invocation.arguments();
    ScheduleFetchRequest request { .startDate = dateOption(arguments, "from"),
        .endDate = dateOption(arguments, "to"),
        .maxSize = static_cast<uint64_t>(arguments.integer("max", 1, INT32_MAX).value_or(0)),
        .includeSnoozes = arguments.has("snoozes") };
    Scheduler scheduler(invocation);
    auto schedule = scheduler.session.await<std::vector<ScheduleEntry>>("scheduleForBundleIdentifier",
        [&](auto result) { scheduler.client.scheduleForBundleIdentifier(scheduler.app, request, result); });
    List list = scheduler.list();
    auto numberOf = [&](const ArchivedRecord& record) -> std::optional<size_t> {
        auto found = std::find(list.begin(), list.end(), record);
        return found == list.end() ? std::nullopt : std::optional(found - list.begin() + 1);
    };
    Json entries = Json::array();
    Rows rows;
    for (const auto& entry : schedule) {
        auto number = numberOf(entry.notification);
        auto notification = fields(entry.notification);
        if (invocation.json())
            entries.push_back({ { "fireDate", Dates::iso(entry.fireDate) }, { "number", number ? Json(*number) : Json() },
                { "notification", NotificationJson::toJson(notification) } });
        else
            rows.push_back({ Dates::readable(entry.fireDate), number ? std::to_string(*number) : "-",
                NotificationJson::text(notification) });
    }
    if (invocation.json())
        return invocation.output().document({ { "app", invocation.app() }, { "schedule", entries } });
    invocation.output().table({ "FIRE DATE", "#", "TEXT" }, rows);
}

void ScheduleCommands::observe(const Invocation& invocation)
{
    const auto& arguments = invocation.arguments();
    auto count = arguments.integer("count", 1, INT_MAX);
    auto seconds = arguments.number("for", 0.001, 1e9);
    // Before the client, whose thread must not take the signals.
    EventInbox inbox;
    Scheduler scheduler(invocation);
    auto forward = [&inbox, &invocation](const char* event) {
        return [&inbox, &invocation, event](const List& notifications, const std::string& bundleIdentifier) {
            if (bundleIdentifier == invocation.app())
                inbox.post([&invocation, event, notifications] { printEvent(invocation, event, notifications); });
        };
    };
    scheduler.client.setObserver(
        { .didChangeScheduledLocalNotifications = forward("changed"), .didFireLocalNotifications = forward("fired") });
    scheduler.session.awaitDone("setObservingScheduledLocalNotifications",
        [&](auto done) { scheduler.client.setObservingScheduledLocalNotifications(true, scheduler.app, done); });
    if (invocation.json())
        invocation.output().jsonLine({ { "event", "observing" } });
    else
        invocation.output().line("observing " + invocation.app());
    EventInbox::Deadline deadline;
    if (seconds)
        deadline = std::chrono::steady_clock::now()
            + std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(*seconds));
    for (int64_t events = 0; !count || events < *count; ++events) {
        auto work = inbox.next(deadline);
        if (!work)
            break;
        (*work)();
    }
}

} // namespace tessel::ctl
