#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>

#include <simdjson.h>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore::json::reading {

namespace ondemand = simdjson::ondemand;

/// Why a text could not be decoded. Travels up while each level adds its part of the path.
struct Failure {
    enum class Reason { syntax, missing, unexpected };

    Reason reason;
    std::string path;

    [[noreturn]] static void raise(Reason reason) { throw Failure{reason, {}}; }

    void insideField(std::string_view name) {
        path.insert(0, path.empty() || path.front() == '[' ? std::string(name) : std::string(name) + ".");
    }
    void insideElement(std::size_t index) {
        const auto step = "[" + std::to_string(index) + "]";
        path.insert(0, path.empty() || path.front() == '[' ? step : step + ".");
    }
};

template <class T>
T checked(simdjson::simdjson_result<T> result) {
    T value{};
    const auto error = std::move(result).get(value);
    if (error == simdjson::SUCCESS) return value;
    if (error == simdjson::MEMALLOC) throw std::bad_alloc();
    Failure::raise(Failure::Reason::syntax);
}

/// Fails where a scalar of the wrong type stands; simdjson alone would report it as a bad number or literal.
void requireType(simdjson::simdjson_result<ondemand::json_type> type, ondemand::json_type expected);

/// Refuses the half of a surrogate pair, which simdjson passes on as invalid UTF-8.
std::string_view checkedString(std::string_view text);

std::int64_t integer(std::string_view token, simdjson::simdjson_result<double> number);

/// Walks a value that nobody asked for, so that its errors count as well.
void skip(ondemand::value& value, int depth);

template <class T>
struct Read;

template <class T>
T read(ondemand::value& source) {
    return Read<T>::from(source);
}

/// The text lies in the parser's buffer.
inline std::string_view readText(ondemand::value& source) {
    requireType(source.type(), ondemand::json_type::string);
    return checkedString(checked(source.get_string()));
}

template <>
struct Read<std::string> {
    static std::string from(ondemand::value& source) { return std::string(readText(source)); }
};

template <>
struct Read<bool> {
    static bool from(ondemand::value& source) {
        requireType(source.type(), ondemand::json_type::boolean);
        return checked(source.get_bool());
    }
};

template <>
struct Read<double> {
    static double from(ondemand::value& source) {
        requireType(source.type(), ondemand::json_type::number);
        return checked(source.get_double());
    }
};

template <>
struct Read<float> {
    static float from(ondemand::value& source) {
        const auto value = static_cast<float>(Read<double>::from(source));
        if (!std::isfinite(value)) Failure::raise(Failure::Reason::unexpected);
        return value;
    }
};

template <>
struct Read<std::int64_t> {
    static std::int64_t from(ondemand::value& source) {
        requireType(source.type(), ondemand::json_type::number);
        const std::string_view token = source.raw_json_token();
        return integer(token, source.get_double());
    }
};

template <>
struct Read<UUID> {
    static UUID from(ondemand::value& source) {
        const auto id = UUID::parse(readText(source));
        if (!id) Failure::raise(Failure::Reason::unexpected);
        return *id;
    }
};

template <>
struct Read<Date> {
    static Date from(ondemand::value& source) { return Date::sinceReferenceDate(Read<double>::from(source)); }
};

template <Named T>
struct Read<T> {
    static T from(ondemand::value& source) {
        const auto text = readText(source);
        const auto found = std::find(names<T>.begin(), names<T>.end(), text);
        if (found == names<T>.end()) Failure::raise(Failure::Reason::unexpected);
        return static_cast<T>(found - names<T>.begin());
    }
};

template <class T>
struct Read<std::optional<T>> {
    static std::optional<T> from(ondemand::value& source) {
        if (checked(source.type()) == ondemand::json_type::null) {
            if (!checked(source.is_null())) Failure::raise(Failure::Reason::syntax);
            return std::nullopt;
        }
        return read<T>(source);
    }
};

template <class T>
struct Read<std::vector<T>> {
    static std::vector<T> from(ondemand::value& source) {
        requireType(source.type(), ondemand::json_type::array);
        std::vector<T> values;
        auto array = checked(source.get_array());
        for (auto element : array) {
            try {
                auto value = checked(std::move(element));
                values.push_back(read<T>(value));
            } catch (Failure& failure) {
                failure.insideElement(values.size());
                throw;
            }
        }
        return values;
    }
};

template <class T>
struct Read<std::map<std::string, T>> {
    static std::map<std::string, T> from(ondemand::value& source) {
        requireType(source.type(), ondemand::json_type::object);
        std::map<std::string, T> values;
        auto object = checked(source.get_object());
        for (auto member : object) {
            auto field = checked(std::move(member));
            const std::string key(checkedString(checked(field.unescaped_key())));
            try {
                values[key] = read<T>(field.value());
            } catch (Failure& failure) {
                failure.insideField(key);
                throw;
            }
        }
        return values;
    }
};

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <Record T>
struct Read<T> {
    static constexpr std::size_t count = std::tuple_size_v<std::remove_cv_t<decltype(fields<T>)>>;

    static T from(ondemand::value& source) {
        requireType(source.type(), ondemand::json_type::object);
        T record{};
        std::array<bool, count> seen{};
        auto object = checked(source.get_object());
        for (auto member : object) {
            auto field = checked(std::move(member));
            if (!readMember(record, field, seen)) skip(field.value(), 1);
        }
        requireAll(seen);
        return record;
    }

private:
    static bool readMember(T& record, ondemand::field& source, std::array<bool, count>& seen) {
        const auto raw = source.key();
        const auto match = [&](std::string_view name) { return raw.unsafe_is_equal(name); };
        if (readMatching(record, source, seen, match)) return true;
        // Only a key written with escapes is equal to a name without having its bytes.
        const auto key = checkedString(checked(source.unescaped_key()));
        return readMatching(record, source, seen, [&](std::string_view name) { return key == name; });
    }

    static bool readMatching(T& record, ondemand::field& source, std::array<bool, count>& seen,
                             const auto& match) {
        return [&]<std::size_t... i>(std::index_sequence<i...>) {
            return (readIfMatching<i>(record, source, seen, match) || ...);
        }
        (std::make_index_sequence<count>());
    }

    template <std::size_t i>
    static bool readIfMatching(T& record, ondemand::field& source, std::array<bool, count>& seen,
                               const auto& match) {
        constexpr auto& field = std::get<i>(fields<T>);
        if (!match(field.name)) return false;
        auto& member = record.*(field.member);
        try {
            member = read<std::remove_reference_t<decltype(member)>>(source.value());
        } catch (Failure& failure) {
            failure.insideField(field.name);
            throw;
        }
        seen[i] = true;
        return true;
    }

    static void requireAll(const std::array<bool, count>& seen) {
        [&]<std::size_t... i>(std::index_sequence<i...>) { (require<i>(seen[i]), ...); }
        (std::make_index_sequence<count>());
    }

    template <std::size_t i>
    static void require(bool seen) {
        constexpr auto& field = std::get<i>(fields<T>);
        using Member = std::remove_reference_t<decltype(std::declval<T&>().*(field.member))>;
        if (isOptional<Member> || seen) return;
        throw Failure{Failure::Reason::missing, std::string(field.name)};
    }
};

/// Gives the text's one value to `use` and returns what that makes of it. Throws Failure where it is not one.
template <class Use>
auto withValue(std::string_view text, const Use& use) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    // Read as an array's only element: simdjson checks the ends of bare literals and numbers less strictly.
    std::string buffer;
    buffer.reserve(text.size() + 2 + simdjson::SIMDJSON_PADDING);
    buffer.append("[").append(text).append("]").append(simdjson::SIMDJSON_PADDING, ' ');
    ondemand::parser parser(std::numeric_limits<std::uint32_t>::max());
    auto document = checked(parser.iterate(buffer.data(), text.size() + 2, buffer.size()));
    std::optional<decltype(use(std::declval<ondemand::value&>()))> result;
    auto array = checked(document.get_array());
    for (auto element : array) {
        if (result) Failure::raise(Failure::Reason::syntax);
        auto value = checked(std::move(element));
        result = use(value);
    }
    const char* rest = nullptr;
    if (!result || document.current_location().get(rest) != simdjson::OUT_OF_BOUNDS)
        Failure::raise(Failure::Reason::syntax);
    return *std::move(result);
}

[[noreturn]] void report(const Failure& failure, const std::string& what);

}  // namespace meetingcore::json::reading

namespace meetingcore::json {

template <class T>
T decode(std::string_view text, const std::string& what) {
    try {
        return reading::withValue(text,
                                  [](reading::ondemand::value& value) { return reading::read<T>(value); });
    } catch (const reading::Failure& failure) {
        reading::report(failure, what);
    }
}

}  // namespace meetingcore::json
