#include "platform/bulletins/BulletinSound.h"

#include "platform/foundation/Format.h"

namespace tessel {

BulletinSound BulletinSound::systemSound(int64_t soundID, int64_t behavior)
{
    return { .kind = Kind::SystemSound, .systemSoundID = soundID, .behavior = behavior };
}

BulletinSound BulletinSound::systemSoundPath(std::string path, int64_t behavior)
{
    return { .kind = Kind::SystemSoundPath, .name = std::move(path), .behavior = behavior };
}

BulletinSound BulletinSound::ringtone(std::string name, Value vibrationPattern, bool repeats)
{
    return { .kind = Kind::Ringtone,
        .name = std::move(name),
        .vibrationPattern = std::move(vibrationPattern),
        .repeats = repeats };
}

std::string BulletinSound::description() const
{
    switch (kind) {
    case Kind::SystemSound:
        return format("<BulletinSound system sound %ld behavior %ld>", systemSoundID, behavior);
    case Kind::SystemSoundPath:
        return format("<BulletinSound file %@ behavior %ld>", name, behavior);
    case Kind::Ringtone:
        return format("<BulletinSound ringtone %@ vibration %@ repeats %d>", name, vibrationPattern, repeats);
    }
    return "<BulletinSound>";
}

} // namespace tessel
