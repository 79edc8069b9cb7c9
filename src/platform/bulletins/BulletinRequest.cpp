#include "platform/bulletins/BulletinRequest.h"

#include "platform/foundation/Format.h"

namespace tessel {

void BulletinRequest::setSupplementaryActions(
    std::optional<std::vector<BulletinAction>> actions, int64_t layout)
{
    if (actions)
        supplementaryActionsByLayout[layout] = std::move(*actions);
    else
        supplementaryActionsByLayout.erase(layout);
}

const std::vector<BulletinAction>& BulletinRequest::supplementaryActionsForLayout(int64_t layout) const
{
    static const std::vector<BulletinAction> none;
    auto found = supplementaryActionsByLayout.find(layout);
    return found == supplementaryActionsByLayout.end() ? none : found->second;
}

void BulletinRequest::setContextValue(const Value& value, const std::string& key)
{
    if (value.isNull())
        context.erase(key);
    else
        context.insert_or_assign(key, value);
}

std::string BulletinRequest::description() const
{
    auto text = [](const std::optional<std::string>& value) { return value ? Value(*value) : Value(); };
    return format("<BulletinRequest %@ section: %@ date: %@ title: %@ message: %@ sound: %@ actions: %lu/%lu "
                  "attachment: %ld>",
        publisherBulletinID, section, date ? Value(*date) : Value(), text(title), text(message),
        sound ? sound->description() : std::string("(null)"),
        supplementaryActionsForLayout(LayoutNormal).size(),
        supplementaryActionsForLayout(LayoutCompact).size(), primaryAttachmentType);
}

} // namespace tessel
