#pragma once

#include "platform/foundation/Value.h"

#include <cstdint>
#include <string>

namespace tessel {

// What a bulletin plays when it arrives: a system sound by number, a sound
// file, or a ringtone by name.
struct BulletinSound {
    enum class Kind { SystemSound, SystemSoundPath, Ringtone };

    Kind kind = Kind::SystemSound;
    int64_t systemSoundID = 0;
    // The file path, or the ringtone's name.
    std::string name;
    int64_t behavior = 0;
    // Ringtones only.
    Value vibrationPattern;
    bool repeats = false;

    static BulletinSound systemSound(int64_t soundID, int64_t behavior);
    static BulletinSound systemSoundPath(std::string path, int64_t behavior);
    static BulletinSound ringtone(std::string name, Value vibrationPattern, bool repeats);

    std::string description() const;
    bool operator==(const BulletinSound&) const = default;
};

} // namespace tessel
