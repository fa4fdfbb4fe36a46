#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace meetingcore {

/// A universally unique identifier (RFC 4122), 16 bytes in network order. Files, tables and keys hold its
/// canonical upper-case text.
class UUID {
public:
    UUID() = default;  ///< the nil UUID

    /// A fresh random identifier (version 4).
    static UUID random();

    /// The identifier that a name has within a namespace (version 5, RFC 4122 §4.3): the same two always give
    /// the same one, so that what is made again from the same input keeps its identifier.
    static UUID derived(const UUID& space, std::string_view name);

    /// Reads the canonical 8-4-4-4-12 form in either case; nothing for any other text, braces and blanks
    /// included.
    static std::optional<UUID> parse(std::string_view text);

    /// The canonical text in upper case, 36 characters.
    std::string string() const;

    const std::array<std::uint8_t, 16>& bytes() const noexcept { return bytes_; }

    /// The bytes as two numbers in the machine's order, for hashing and for sorting where any order will do.
    std::pair<std::uint64_t, std::uint64_t> words() const noexcept {
        std::pair<std::uint64_t, std::uint64_t> words;
        std::memcpy(&words.first, bytes_.data(), 8);
        std::memcpy(&words.second, bytes_.data() + 8, 8);
        return words;
    }

    auto operator<=>(const UUID&) const = default;  // NOLINT(modernize-use-nullptr): misled by "< 0"

private:
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace meetingcore

template <>
struct std::hash<meetingcore::UUID> {
    std::size_t operator()(const meetingcore::UUID& id) const noexcept {
        const auto [high, low] = id.words();
        return static_cast<std::size_t>((high ^ low) * 0x9E3779B97F4A7C15ULL);
    }
};
