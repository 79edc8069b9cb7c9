#include "platform/foundation/Utf8.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tessel {

size_t Utf8::sequenceLength(const unsigned char* text, size_t available, bool allowNul)
{
    if (!available)
        return 0;
    unsigned char lead = text[0];
    if (lead < 0x80)
        return lead || allowNul ? 1 : 0;
    size_t length;
    uint32_t codePoint;
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        codePoint = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        codePoint = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        codePoint = lead & 0x07;
    } else
        return 0;
    if (length > available)
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((text[i] & 0xC0) != 0x80)
            return 0;
        codePoint = (codePoint << 6) | (text[i] & 0x3F);
    }
    static constexpr uint32_t smallest[] = { 0, 0, 0x80, 0x800, 0x10000 };
    if (codePoint < smallest[length] || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF))
        return 0;
    return length;
}

bool Utf8::isValid(std::string_view text, bool allowNul)
{
    auto bytes = reinterpret_cast<const unsigned char*>(text.data());
    size_t at = 0;
    // Text is mostly ASCII: skip eight bytes at a time while none is NUL or has
    // its high bit set.
    constexpr uint64_t ones = 0x0101010101010101;
    constexpr uint64_t highs = 0x8080808080808080;
    if (allowNul) {
        // Only the high bits matter: test 32 bytes at a time.
        while (text.size() - at >= 32) {
            uint64_t words[4];
            std::memcpy(words, bytes + at, sizeof words);
            if ((words[0] | words[1] | words[2] | words[3]) & highs)
                break;
            at += 32;
        }
    }
    while (text.size() - at >= 8) {
        uint64_t word;
        std::memcpy(&word, bytes + at, sizeof word);
        if (((word - ones) & ~word & highs) | (word & highs))
            break;
        at += 8;
    }
    while (at < text.size()) {
        if (bytes[at] >= 0x20 && bytes[at] < 0x80) {
            ++at;
            continue;
        }
        size_t length = sequenceLength(bytes + at, text.size() - at, allowNul);
        if (!length)
            return false;
        at += length;
    }
    return true;
}

bool Utf8::equalsIgnoringASCIICase(std::string_view a, std::string_view b)
{
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return a.size() == b.size()
        && std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) { return lower(x) == lower(y); });
}

} // namespace tessel
