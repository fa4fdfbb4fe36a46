#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace meetingcore {

/// A universally unique identifier (RFC 4122), 16 bytes in network order. Files, tables and keys hold its
/// canonical upper-case text.
class UUID {
public:
    UUID() = default;  ///< the nil UUID

    /// A fresh random identifier (version 4).
    static UUID random();

    /// Reads the canonical 8-4-4-4-12 form in either case; nothing for any other text, braces and blanks
    /// included.
    static std::optional<UUID> parse(std::string_view text);

    /// The canonical text in upper case, 36 characters.
    std::string string() const;

    const std::array<std::uint8_t, 16>& bytes() const noexcept { return bytes_; }

    auto operator<=>(const UUID&) const = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace meetingcore

template <>
struct std::hash<meetingcore::UUID> {
    std::size_t operator()(const meetingcore::UUID& id) const noexcept {
        std::uint64_t high = 0;
        std::uint64_t low = 0;
        std::memcpy(&high, id.bytes().data(), 8);
        std::memcpy(&low, id.bytes().data() + 8, 8);
        return static_cast<std::size_t>((high ^ low) * 0x9E3779B97F4A7C15ULL);
    }
};
