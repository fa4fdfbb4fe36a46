#include "MeetingCore/Platform/UUID.h"

#include <uuid/uuid.h>

namespace meetingcore {

namespace {

constexpr bool isGroupStart(std::size_t byte) { return byte == 4 || byte == 6 || byte == 8 || byte == 10; }

constexpr auto hexValues = [] {
    std::array<signed char, 256> values{};
    values.fill(-1);
    for (int digit = 0; digit < 10; ++digit)
        values[static_cast<std::size_t>('0' + digit)] = static_cast<signed char>(digit);
    for (int digit = 10; digit < 16; ++digit) {
        values[static_cast<std::size_t>('a' + digit - 10)] = static_cast<signed char>(digit);
        values[static_cast<std::size_t>('A' + digit - 10)] = static_cast<signed char>(digit);
    }
    return values;
}();

}  // namespace

UUID UUID::random() {
    UUID id;
    uuid_generate_random(id.bytes_.data());
    return id;
}

// Read by hand: a transcript has a hundred thousand of them, and the library's parser goes through strtoul for
// each.
std::optional<UUID> UUID::parse(std::string_view text) {
    constexpr std::size_t canonicalLength = 36;
    if (text.size() != canonicalLength) return std::nullopt;
    UUID id;
    std::size_t at = 0;
    for (std::size_t i = 0; i < id.bytes_.size(); ++i) {
        if (isGroupStart(i) && text[at++] != '-') return std::nullopt;
        const int high = hexValues[static_cast<unsigned char>(text[at++])];
        const int low = hexValues[static_cast<unsigned char>(text[at++])];
        if (high < 0 || low < 0) return std::nullopt;
        id.bytes_[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return id;
}

std::string UUID::string() const {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (isGroupStart(i)) text += '-';
        text += digits[bytes_[i] >> 4];
        text += digits[bytes_[i] & 0x0F];
    }
    return text;
}

}  // namespace meetingcore
