#include "platform/sim/SimulatedSystemAlerts.h"

#include "platform/concurrency/WorkQueue.h"

namespace tessel {

class SimulatedSystemAlerts::Alert final : public SystemAlert, public std::enable_shared_from_this<Alert> {
public:
    void setResponseHandler(ResponseHandler handler) override
    {
        std::lock_guard lock(_lock);
        _handler = std::move(handler);
    }

    // Responds on the main queue, once.
    void respond(int64_t response)
    {
        auto self = shared_from_this();
        WorkQueue::main().async([self, response] {
            ResponseHandler handler;
            {
                std::lock_guard lock(self->_lock);
                handler = std::exchange(self->_handler, nullptr);
            }
            if (handler)
                handler(*self, response);
        });
    }

private:
    std::mutex _lock;
    ResponseHandler _handler;
};

void SimulatedSystemAlerts::scriptAnswer(int64_t response)
{
    std::lock_guard lock(_lock);
    _script.push_back({ Kind::Answer, response });
}

void SimulatedSystemAlerts::scriptNoAnswer()
{
    std::lock_guard lock(_lock);
    _script.push_back({ Kind::NoAnswer });
}

void SimulatedSystemAlerts::scriptCreationFailure()
{
    std::lock_guard lock(_lock);
    _script.push_back({ Kind::Failure });
}

std::vector<SimulatedSystemAlerts::Shown> SimulatedSystemAlerts::shown() const
{
    std::lock_guard lock(_lock);
    return _shown;
}

void SimulatedSystemAlerts::answer(size_t index, int64_t response)
{
    std::shared_ptr<Alert> alert;
    {
        std::lock_guard lock(_lock);
        if (index < _alerts.size())
            alert = _alerts[index];
    }
    if (alert)
        alert->respond(response);
}

std::shared_ptr<SystemAlert> SimulatedSystemAlerts::createAlert(
    double timeout, int level, uint32_t flags, const Value& dictionary, std::string* error)
{
    Scripted next { Kind::NoAnswer };
    std::shared_ptr<Alert> alert;
    {
        std::lock_guard lock(_lock);
        if (!_script.empty()) {
            next = _script.front();
            _script.pop_front();
        }
        if (next.kind == Kind::Failure) {
            if (error)
                *error = "the simulated device refused to show the alert";
            return nullptr;
        }
        alert = std::make_shared<Alert>();
        _shown.push_back({ timeout, level, flags, dictionary });
        _alerts.push_back(alert);
    }
    // The answer arrives on the main queue after the creator has had its turn
    // to set the handler, as a user's would.
    if (next.kind == Kind::Answer) {
        auto response = next.response;
        WorkQueue::main().async([alert, response] { alert->respond(response); });
    }
    return alert;
}

} // namespace tessel
