#pragma once

#include "platform/alerts/SystemAlert.h"

#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace tessel {

// Alerts answered by a script: each created alert takes the next scripted
// answer (answer with a value, never answer, or fail to be created); without a
// script alerts wait until a test answers them.
class SimulatedSystemAlerts final : public SystemAlertService {
public:
    struct Shown {
        double timeout;
        int level;
        uint32_t flags;
        Value dictionary;
    };

    void scriptAnswer(int64_t response);
    void scriptNoAnswer();
    void scriptCreationFailure();

    // Answers a waiting alert (index into shown()) on the main queue.
    void answer(size_t index, int64_t response);
    std::vector<Shown> shown() const;

    std::shared_ptr<SystemAlert> createAlert(
        double timeout, int level, uint32_t flags, const Value& dictionary, std::string* error) override;

private:
    class Alert;
    enum class Kind { Answer, NoAnswer, Failure };
    struct Scripted {
        Kind kind;
        int64_t response = 0;
    };

    mutable std::mutex _lock;
    std::deque<Scripted> _script;
    std::vector<Shown> _shown;
    std::vector<std::shared_ptr<Alert>> _alerts;
};

} // namespace tessel
