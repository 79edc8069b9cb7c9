#pragma once

#include "platform/alerts/SystemAlert.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace tessel {

// Alerts that wait for the user to answer them from the settings instead of
// on screen, one per subject (the alert dictionary's subjectKey, such as the
// application a permission alert is about). An answer given before the alert
// comes answers it as soon as it is shown.
class PendingSystemAlerts final : public SystemAlertService {
public:
    explicit PendingSystemAlerts(std::string subjectKey);

    std::shared_ptr<SystemAlert> createAlert(
        double timeout, int level, uint32_t flags, const Value& dictionary, std::string* error) override;

    // The user's answer for the subject: responds to its alert, or is kept for
    // the next one. True when an alert was waiting.
    bool answer(const std::string& subject, int64_t response);

private:
    class Alert;
    void respond(const std::shared_ptr<Alert>& alert, int64_t response);

    const std::string _subjectKey;
    std::mutex _lock;
    std::map<std::string, std::shared_ptr<Alert>> _waiting;
    std::map<std::string, int64_t> _answers;
};

} // namespace tessel
