#include "core/KTNotificationLocalizedString.h"

#include "core/KTFormatNetworkString.h"
#include "platform/applications/Bundle.h"

#include <cstdlib>
#include <cstring>
#include <tessel/Tessel.h>

namespace tessel {

std::optional<std::string> KTNotificationLocalizedString(const Value& key, const Value& defaultValue,
    const std::shared_ptr<Bundle>& bundle, const Value& arguments)
{
    const std::string* keyText = key.isString() ? &key.stringValue() : nullptr;
    if (bundle && keyText) {
        auto found = bundle->stringForKey(*keyText, "");
        if (found && !found->empty())
            return KTFormatNetworkString(std::string_view(*found), arguments.arrayValue());
    }
    if (defaultValue.isString() && !defaultValue.stringValue().empty())
        return defaultValue.stringValue();
    if (keyText && !keyText->empty())
        return *keyText;
    return std::nullopt;
}

} // namespace tessel

extern "C" char* KTNotificationLocalizedString(const char* key, const char* defaultValue,
    const char* bundlePath, const char* const* arguments, size_t argumentCount)
{
    using namespace tessel;
    std::shared_ptr<Bundle> bundle = bundlePath ? Bundle::bundleWithPath(bundlePath) : nullptr;
    Value::Array values;
    for (size_t i = 0; arguments && i < argumentCount; ++i)
        values.emplace_back(arguments[i]);
    auto text
        = KTNotificationLocalizedString(Value(key), Value(defaultValue), bundle, Value(std::move(values)));
    return text ? strdup(text->c_str()) : nullptr;
}
