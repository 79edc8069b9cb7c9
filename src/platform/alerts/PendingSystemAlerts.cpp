#include "platform/alerts/PendingSystemAlerts.h"

#include "platform/Platform.h"
#include "platform/concurrency/WorkQueue.h"

#include <optional>

namespace tessel {

class PendingSystemAlerts::Alert final : public SystemAlert, public std::enable_shared_from_this<Alert> {
public:
    void setResponseHandler(ResponseHandler handler) override
    {
        std::lock_guard guard(_lock);
        _handler = std::move(handler);
        if (_response)
            fire();
    }
    void respond(int64_t response)
    {
        std::lock_guard guard(_lock);
        _response = response;
        if (_handler)
            fire();
    }

private:
    // Under the lock; the handler runs once, on the main queue.
    void fire()
    {
        auto handler = std::exchange(_handler, nullptr);
        auto self = shared_from_this();
        WorkQueue::main().async([handler, self, response = *_response] { handler(*self, response); });
    }

    std::mutex _lock;
    ResponseHandler _handler;
    std::optional<int64_t> _response;
};

PendingSystemAlerts::PendingSystemAlerts(std::string subjectKey)
    : _subjectKey(std::move(subjectKey))
{
}

std::shared_ptr<SystemAlert> PendingSystemAlerts::createAlert(
    double, int, uint32_t, const Value& dictionary, std::string* error)
{
    const auto& subject = dictionary[_subjectKey];
    if (!subject.isString() || subject.stringValue().empty()) {
        if (error)
            *error = "an alert without a subject cannot be answered";
        return nullptr;
    }
    auto alert = std::make_shared<Alert>();
    std::optional<int64_t> given;
    {
        std::lock_guard guard(_lock);
        if (auto found = _answers.find(subject.stringValue()); found != _answers.end()) {
            given = found->second;
            _answers.erase(found);
        } else {
            _waiting[subject.stringValue()] = alert;
        }
    }
    if (given)
        respond(alert, *given);
    else
        Platform::log(LogPriority::Notice,
            "Waiting for the user's answer about " + subject.stringValue() + ": "
                + dictionary[SystemAlertHeaderKey].stringValue());
    return alert;
}

bool PendingSystemAlerts::answer(const std::string& subject, int64_t response)
{
    std::shared_ptr<Alert> alert;
    {
        std::lock_guard guard(_lock);
        if (auto found = _waiting.find(subject); found != _waiting.end()) {
            alert = found->second;
            _waiting.erase(found);
        } else {
            _answers[subject] = response;
        }
    }
    if (alert)
        respond(alert, response);
    return alert != nullptr;
}

void PendingSystemAlerts::respond(const std::shared_ptr<Alert>& alert, int64_t response)
{
    alert->respond(response);
}

} // namespace tessel
