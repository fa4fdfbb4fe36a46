#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace meetingcore::json {

/// One member of a record and its key.
template <class Record, class Member>
struct Field {
    std::string_view name;
    Member Record::*member;
};

template <class Record, class Member>
constexpr Field<Record, Member> field(std::string_view name, Member Record::*member) {
    return {name, member};
}

/// Binds every member of an aggregate, which compiles only for the exact number of members.
template <class Record, std::size_t count>
constexpr bool hasFieldCount() {
    [[maybe_unused]] constexpr auto bind = [](const Record& r) {
        if constexpr (count == 1) {
            [[maybe_unused]] const auto& [a] = r;
        }
        if constexpr (count == 2) {
            [[maybe_unused]] const auto& [a, b] = r;
        }
        if constexpr (count == 3) {
            [[maybe_unused]] const auto& [a, b, c] = r;
        }
        if constexpr (count == 4) {
            [[maybe_unused]] const auto& [a, b, c, d] = r;
        }
        if constexpr (count == 5) {
            [[maybe_unused]] const auto& [a, b, c, d, e] = r;
        }
        if constexpr (count == 6) {
            [[maybe_unused]] const auto& [a, b, c, d, e, f] = r;
        }
        if constexpr (count == 7) {
            [[maybe_unused]] const auto& [a, b, c, d, e, f, g] = r;
        }
        if constexpr (count == 8) {
            [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h] = r;
        }
        if constexpr (count == 9) {
            [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i] = r;
        }
        if constexpr (count == 10) {
            [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j] = r;
        }
        if constexpr (count == 11) {
            [[maybe_unused]] const auto& [a, b, c, d, e, f, g, h, i, j, k] = r;
        }
    };
    return count >= 1 && count <= 11;
}

/// Ties the list to the record: a member added to the record without a key does not compile.
template <class Record, class... Members>
constexpr auto record(Field<Record, Members>... members) {
    static_assert(hasFieldCount<Record, sizeof...(Members)>(), "every member of the record needs its field");
    return std::tuple{members...};
}

/// The keys of a record, declared once beside it in the order in which they are written:
///
///     template <> inline constexpr auto json::fields<Point> =
///         json::record(json::field("x", &Point::x), json::field("y", &Point::y));
///
/// The list drives writing and reading. An optional member is left out when empty.
template <class T>
inline constexpr auto fields = nullptr;

template <class T>
concept Record = !std::is_same_v<std::remove_cv_t<decltype(fields<T>)>, std::nullptr_t>;

/// The texts of an enumeration whose cases count from 0:
///
///     template <> inline constexpr auto json::names<Colour> = std::to_array<std::string_view>({"red",
///     "green"});
template <class T>
inline constexpr auto names = nullptr;

template <class T>
concept Named = std::is_enum_v<T> && !std::is_same_v<std::remove_cv_t<decltype(names<T>)>, std::nullptr_t>;

template <Named T>
constexpr std::string_view nameOf(T value) {
    return names<T>[static_cast<std::size_t>(value)];
}

}  // namespace meetingcore::json
