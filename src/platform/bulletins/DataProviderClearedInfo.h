#pragma once

#include "platform/bulletins/BulletinRequest.h"
#include "platform/foundation/Value.h"

#include <string>

namespace tessel {

inline constexpr const char* DataProviderClearedInfoKey = "DataProviderClearedInfo";
inline constexpr const char* DataProviderClearedBulletinsKey = "DataProviderClearedBulletins";

// A data provider's answer to clearing a whole section: the cleared info the
// service keeps for the section, and the bulletins that went.
struct DataProviderClearedInfo {
    Value clearedInfo;
    BulletinSet clearedBulletins;

    std::string description() const;
    bool operator==(const DataProviderClearedInfo&) const = default;
};

} // namespace tessel
