#pragma once

#include <array>
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

/// The result's value where it lies.
template <class T>
T&& checked(simdjson::simdjson_result<T>&& result) {
    if (result.error() == simdjson::SUCCESS) return std::move(result).value_unsafe();
    if (result.error() == simdjson::MEMALLOC) throw std::bad_alloc();
    Failure::raise(Failure::Reason::syntax);
}

/// Fails where a value of the wrong type stands; simdjson alone would report it as a bad number or literal.
inline void requireType(simdjson::simdjson_result<ondemand::json_type> type, ondemand::json_type expected) {
    if (checked(std::move(type)) != expected) Failure::raise(Failure::Reason::unexpected);
}

/// Refuses the half of a surrogate pair, which simdjson passes on as invalid UTF-8.
std::string_view checkedString(std::string_view text);

std::int64_t integer(std::string_view token, simdjson::simdjson_result<double> number);

/// Walks a value that nobody asked for, so that its errors count as well.
void skip(ondemand::value& value, int depth);

/// Reads into values as they are made, a collection's elements where they will stay.
template <class T>
struct Read;

template <class T>
void read(ondemand::value& source, T& into) {
    Read<T>::read(source, into);
}

/// The text lies in the parser's buffer, and may hold half a surrogate pair.
inline std::string_view readText(ondemand::value& source) {
    requireType(source.type(), ondemand::json_type::string);
    return checked(source.get_string());
}

template <>
struct Read<std::string> {
    static void read(ondemand::value& source, std::string& into) {
        into = std::string(checkedString(readText(source)));
    }
};

template <>
struct Read<bool> {
    static void read(ondemand::value& source, bool& into) {
        requireType(source.type(), ondemand::json_type::boolean);
        into = checked(source.get_bool());
    }
};

template <>
struct Read<double> {
    static void read(ondemand::value& source, double& into) {
        requireType(source.type(), ondemand::json_type::number);
        into = checked(source.get_double());
    }
};

template <>
struct Read<float> {
    static void read(ondemand::value& source, float& into) {
        double value = 0;
        reading::read(source, value);
        into = static_cast<float>(value);
        if (!std::isfinite(into)) Failure::raise(Failure::Reason::unexpected);
    }
};

template <>
struct Read<std::int64_t> {
    static void read(ondemand::value& source, std::int64_t& into) {
        requireType(source.type(), ondemand::json_type::number);
        const std::string_view token = source.raw_json_token();
        into = integer(token, source.get_double());
    }
};

template <>
struct Read<UUID> {
    static void read(ondemand::value& source, UUID& into) {
        const auto id = UUID::parse(readText(source));
        if (!id) Failure::raise(Failure::Reason::unexpected);
        into = *id;
    }
};

template <>
struct Read<Date> {
    static void read(ondemand::value& source, Date& into) {
        double seconds = 0;
        reading::read(source, seconds);
        into = Date::sinceReferenceDate(seconds);
    }
};

template <Named T>
struct Read<T> {
    static void read(ondemand::value& source, T& into) {
        const auto text = readText(source);
        const auto found = std::find(names<T>.begin(), names<T>.end(), text);
        if (found == names<T>.end()) Failure::raise(Failure::Reason::unexpected);
        into = static_cast<T>(found - names<T>.begin());
    }
};

template <class T>
struct Read<std::optional<T>> {
    static void read(ondemand::value& source, std::optional<T>& into) {
        if (checked(source.type()) != ondemand::json_type::null) {
            reading::read(source, into.emplace());
        } else if (!checked(source.is_null())) {
            Failure::raise(Failure::Reason::syntax);
        }
    }
};

template <class T>
struct Read<std::vector<T>> {
    static void read(ondemand::value& source, std::vector<T>& into) {
        requireType(source.type(), ondemand::json_type::array);
        auto array = checked(source.get_array());
        for (auto element : array) {
            into.emplace_back();
            try {
                auto&& value = checked(std::move(element));
                if constexpr (std::is_same_v<T, bool>) {
                    bool last = false;
                    reading::read(value, last);
                    into.back() = last;  // bits have no address to read to
                } else {
                    reading::read(value, into.back());
                }
            } catch (Failure& failure) {
                failure.insideElement(into.size() - 1);
                throw;
            }
        }
    }
};

template <class T>
struct Read<std::map<std::string, T>> {
    static void read(ondemand::value& source, std::map<std::string, T>& into) {
        requireType(source.type(), ondemand::json_type::object);
        auto object = checked(source.get_object());
        for (auto member : object) {
            auto&& field = checked(std::move(member));
            const std::string key(checkedString(checked(field.unescaped_key())));
            try {
                reading::read(field.value(), into[key] = {});
            } catch (Failure& failure) {
                failure.insideField(key);
                throw;
            }
        }
    }
};

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <Record T>
struct Read<T> {
    static constexpr std::size_t count = std::tuple_size_v<std::remove_cv_t<decltype(fields<T>)>>;

    static void read(ondemand::value& source, T& into) {
        requireType(source.type(), ondemand::json_type::object);
        std::array<bool, count> seen{};
        auto object = checked(source.get_object());
        for (auto member : object) {
            auto&& field = checked(std::move(member));
            if (!readMember(into, field, seen)) skip(field.value(), 1);
        }
        requireAll(seen);
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
        if (seen[i]) member = {};  // of several with one key the last one counts
        try {
            reading::read(source.value(), member);
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

/// Parses one text after another in the same memory.
class Parser {
public:
    /// Gives the text's one value to `use`. Throws Failure where the text is not one value.
    template <class Use>
    void parse(std::string_view text, const Use& use) {
        constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
        if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
        // Read as an array's only element: simdjson checks the ends of bare literals and numbers less strictly.
        buffer_.clear();
        buffer_.reserve(text.size() + 2 + simdjson::SIMDJSON_PADDING);
        buffer_.append("[").append(text).append("]").append(simdjson::SIMDJSON_PADDING, ' ');
        auto document = checked(parser_.iterate(buffer_.data(), text.size() + 2, buffer_.size()));
        bool used = false;
        auto array = checked(document.get_array());
        for (auto element : array) {
            if (std::exchange(used, true)) Failure::raise(Failure::Reason::syntax);
            auto&& value = checked(std::move(element));
            use(value);
        }
        const char* rest = nullptr;
        if (!used || document.current_location().get(rest) != simdjson::OUT_OF_BOUNDS)
            Failure::raise(Failure::Reason::syntax);
    }

private:
    std::string buffer_;
    ondemand::parser parser_{std::numeric_limits<std::uint32_t>::max()};
};

[[noreturn]] void report(const Failure& failure, const std::string& what, MeetingError::Cause cause);

}  // namespace meetingcore::json::reading

namespace meetingcore::json {

/// isValid for many texts, in a parser that they share.
bool isValid(std::string_view text, reading::Parser& parser);

/// decode for many texts, in a parser that they share, into a record that is empty but for the memory that its
/// collections have from the text before.
template <class T>
void decode(std::string_view text, const std::string& what, reading::Parser& parser, T& into) {
    try {
        parser.parse(text, [&](reading::ondemand::value& value) { reading::read(value, into); });
    } catch (const reading::Failure& failure) {
        reading::report(failure, what, unreadable<T>);
    }
}

template <class T>
T decode(std::string_view text, const std::string& what) {
    reading::Parser parser;
    T result{};
    decode(text, what, parser, result);
    return result;
}

}  // namespace meetingcore::json
