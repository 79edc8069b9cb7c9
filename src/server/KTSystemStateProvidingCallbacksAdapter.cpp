#include "server/KTSystemStateProvidingCallbacksAdapter.h"

#include "platform/archive/PropertyList.h"

namespace tessel {

namespace {

    Bytes payloadBytes(const Value& userInfo)
    {
        auto bytes = PropertyList::data(userInfo, PropertyList::Format::Binary);
        return bytes ? std::move(*bytes) : Bytes();
    }

    void runCompletion(void* context)
    {
        auto completion = static_cast<std::function<void()>*>(context);
        (*completion)();
        delete completion;
    }

} // namespace

KTSystemStateProvidingCallbacksAdapter::KTSystemStateProvidingCallbacksAdapter(
    const KTSystemStateProvidingCallbacks& callbacks)
    : _callbacks(callbacks)
{
}

bool KTSystemStateProvidingCallbacksAdapter::ask(
    bool (*question)(void*, const char*), const std::string& bundleIdentifier) const
{
    return question && question(_callbacks.context, bundleIdentifier.c_str());
}

bool KTSystemStateProvidingCallbacksAdapter::isApplicationInstalled(const std::string& bundleIdentifier)
{
    return ask(_callbacks.isApplicationInstalled, bundleIdentifier);
}

bool KTSystemStateProvidingCallbacksAdapter::isApplicationRestricted(const std::string& bundleIdentifier)
{
    return ask(_callbacks.isApplicationRestricted, bundleIdentifier);
}

bool KTSystemStateProvidingCallbacksAdapter::isGazetteApplication(const std::string& bundleIdentifier)
{
    return ask(_callbacks.isGazetteApplication, bundleIdentifier);
}

bool KTSystemStateProvidingCallbacksAdapter::isGazetteContentBackgroundModeSupportedForApplication(
    const std::string& bundleIdentifier)
{
    return ask(_callbacks.isGazetteContentBackgroundModeSupportedForApplication, bundleIdentifier);
}

bool KTSystemStateProvidingCallbacksAdapter::isBackgroundAppRefreshSupportedForApplication(
    const std::string& bundleIdentifier)
{
    return ask(_callbacks.isBackgroundAppRefreshSupportedForApplication, bundleIdentifier);
}

bool KTSystemStateProvidingCallbacksAdapter::isRemoteNotificationBackgroundModeSupportedForApplication(
    const std::string& bundleIdentifier)
{
    return ask(_callbacks.isRemoteNotificationBackgroundModeSupportedForApplication, bundleIdentifier);
}

bool KTSystemStateProvidingCallbacksAdapter::shouldThrottleContentNotificationForApplicatin(
    const std::string& bundleIdentifier, Date onDate, int64_t& withLastCount, int64_t& onDay)
{
    if (!_callbacks.shouldThrottleContentNotificationForApplicatin)
        return false;
    return _callbacks.shouldThrottleContentNotificationForApplicatin(_callbacks.context,
        bundleIdentifier.c_str(), onDate.timeIntervalSinceReferenceDate(), &withLastCount, &onDay);
}

void KTSystemStateProvidingCallbacksAdapter::handleGazetteNotificationForApplication(
    const std::string& bundleIdentifier, const Value& userInfo)
{
    if (!_callbacks.handleGazetteNotificationForApplication)
        return;
    auto bytes = payloadBytes(userInfo);
    _callbacks.handleGazetteNotificationForApplication(
        _callbacks.context, bundleIdentifier.c_str(), bytes.data(), bytes.size());
}

void KTSystemStateProvidingCallbacksAdapter::handleContentAvailableNotificationForApplication(
    const std::string& bundleIdentifier, const Value& userInfo, int64_t priority,
    std::function<void()> completion)
{
    if (!_callbacks.handleContentAvailableNotificationForApplication) {
        if (completion)
            completion();
        return;
    }
    auto bytes = payloadBytes(userInfo);
    // The host calls the completion exactly once; it owns the box until then.
    auto box = new std::function<void()>(completion ? std::move(completion) : [] {});
    _callbacks.handleContentAvailableNotificationForApplication(_callbacks.context, bundleIdentifier.c_str(),
        bytes.data(), bytes.size(), priority, runCompletion, box);
}

} // namespace tessel
