#include "MeetingCore/Platform/UUID.h"

#include <uuid/uuid.h>

namespace meetingcore {

UUID UUID::random() {
    UUID id;
    uuid_generate_random(id.bytes_.data());
    return id;
}

std::optional<UUID> UUID::parse(std::string_view text) {
    constexpr std::size_t canonicalLength = 36;
    if (text.size() != canonicalLength) return std::nullopt;
    const std::string terminated(text);
    UUID id;
    if (uuid_parse(terminated.c_str(), id.bytes_.data()) != 0) return std::nullopt;
    return id;
}

std::string UUID::string() const {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += digits[bytes_[i] >> 4];
        text += digits[bytes_[i] & 0x0F];
    }
    return text;
}

}  // namespace meetingcore
