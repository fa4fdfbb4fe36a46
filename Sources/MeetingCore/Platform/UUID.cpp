#include "MeetingCore/Platform/UUID.h"

#include <algorithm>
#include <stdexcept>

#include <openssl/evp.h>
#include <uuid/uuid.h>

namespace meetingcore {

namespace {

constexpr bool isGroupStart(std::size_t byte) { return byte == 4 || byte == 6 || byte == 8 || byte == 10; }

constexpr auto hyphensBefore = [] {
    std::array<std::size_t, 16> hyphens{};
    for (std::size_t byte = 1; byte < hyphens.size(); ++byte)
        hyphens[byte] = hyphens[byte - 1] + (isGroupStart(byte) ? 1 : 0);
    return hyphens;
}();

/// The value of a hexadecimal digit; more than 15 for any other character.
constexpr auto hexValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(0xFF);
    for (std::uint8_t value = 0; value < 16; ++value) {
        values[static_cast<unsigned char>("0123456789abcdef"[value])] = value;
        values[static_cast<unsigned char>("0123456789ABCDEF"[value])] = value;
    }
    return values;
}();

}  // namespace

UUID UUID::random() {
    UUID id;
    uuid_generate_random(id.bytes_.data());
    return id;
}

// Of the libraries behind <uuid/uuid.h>, not all know names.
UUID UUID::derived(const UUID& space, std::string_view name) {
    std::string input(space.bytes_.begin(), space.bytes_.end());
    input += name;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    if (EVP_Digest(input.data(), input.size(), digest.data(), nullptr, EVP_sha1(), nullptr) != 1) {
        throw std::runtime_error("SHA-1 ist auf diesem System nicht verfügbar.");
    }
    UUID id;
    std::copy_n(digest.begin(), id.bytes_.size(), id.bytes_.begin());
    id.bytes_[6] = static_cast<std::uint8_t>((id.bytes_[6] & 0x0F) | 0x50);  // the version
    id.bytes_[8] = static_cast<std::uint8_t>((id.bytes_[8] & 0x3F) | 0x80);  // the variant
    return id;
}

// Read by hand: a transcript has a hundred thousand of them, and the library's parser goes through strtoul for
// each.
std::optional<UUID> UUID::parse(std::string_view text) {
    constexpr std::size_t canonicalLength = 36;
    if (text.size() != canonicalLength || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
        text[23] != '-')
        return std::nullopt;
    UUID id;
    unsigned digits = 0;  // beyond 15 as soon as one is
    for (std::size_t i = 0; i < id.bytes_.size(); ++i) {
        const auto at = 2 * i + hyphensBefore[i];
        const unsigned high = hexValues[static_cast<unsigned char>(text[at])];
        const unsigned low = hexValues[static_cast<unsigned char>(text[at + 1])];
        digits |= high | low;
        id.bytes_[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    if (digits > 15) return std::nullopt;
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
