#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MeetingCore/Platform/Date.h"
#include "MeetingCore/Platform/JSONFields.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/UUID.h"

namespace meetingcore::json {

/// The order in which a record's keys are written. Files keep the declared order; what is hashed or compared is
/// written with sorted keys. Maps are always written in byte order of their keys.
enum class Keys { declared, sorted };

/// Appends compact UTF-8 JSON to a text, byte for byte as the recorder's own encoder does: slashes escaped, the
/// shortest number forms, upper-case UUIDs, dates as seconds since 2001, absent optionals left out.
class Writer {
public:
    Writer(std::string& out, Keys keys) : out_(out), keys_(keys) {}

    void write(std::string_view text);
    void write(const std::string& text) { write(std::string_view(text)); }
    void write(std::same_as<bool> auto value) { out_ += value ? "true" : "false"; }
    void write(std::int64_t value);
    void write(std::int32_t value) { write(std::int64_t{value}); }
    void write(double value);  ///< throws MeetingError for what is not finite
    void write(float value);
    void write(const UUID& id) { write(std::string_view(id.string())); }
    void write(Date date) { write(date.secondsSinceReferenceDate()); }

    template <Named T>
    void write(T value) {
        write(nameOf(value));
    }

    template <class T>
    void write(std::span<const T> values) {
        out_ += '[';
        bool first = true;
        for (const auto& value : values) {
            if (!std::exchange(first, false)) out_ += ',';
            write(value);
        }
        out_ += ']';
    }

    template <class T>
    void write(const std::vector<T>& values) {
        write(std::span<const T>(values));
    }

    template <class T>
    void write(const std::map<std::string, T>& values) {
        out_ += '{';
        bool first = true;
        for (const auto& [key, value] : values) {
            if (!std::exchange(first, false)) out_ += ',';
            write(key);
            out_ += ':';
            write(value);
        }
        out_ += '}';
    }

    template <Record T>
    void write(const T& value) {
        constexpr auto order = fieldOrder<T>();
        out_ += '{';
        bool first = true;
        if (keys_ == Keys::declared) {
            std::apply([&](const auto&... field) { (writeField(value, field, first), ...); }, fields<T>);
        } else {
            [&]<std::size_t... i>(std::index_sequence<i...>) {
                (writeField(value, std::get<order[i]>(fields<T>), first), ...);
            }
            (std::make_index_sequence<order.size()>());
        }
        out_ += '}';
    }

private:
    template <class T>
    static constexpr auto fieldOrder() {
        constexpr auto list = std::apply(
            [](const auto&... field) { return std::array<std::string_view, sizeof...(field)>{field.name...}; },
            fields<T>);
        std::array<std::size_t, list.size()> order{};
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](auto a, auto b) { return list[a] < list[b]; });
        return order;
    }

    template <class T, class Field>
    void writeField(const T& record, const Field& field, bool& first) {
        writeMember(field.name, record.*(field.member), first);
    }

    template <class M>
    void writeMember(std::string_view name, const std::optional<M>& value, bool& first) {
        if (value) writeMember(name, *value, first);
    }

    template <class M>
    void writeMember(std::string_view name, const M& value, bool& first) {
        if (!std::exchange(first, false)) out_ += ',';
        write(name);
        out_ += ':';
        write(value);
    }

    std::string& out_;
    Keys keys_;
};

/// Throws MeetingError (invalidData) unless the text is UTF-8.
void requireUTF8(std::string_view text);

/// Throws MeetingError (invalidData) for a number that is not finite and for a text that is no UTF-8: stored,
/// it would make its whole file unreadable.
template <class T>
std::string encode(const T& value, Keys keys = Keys::declared) {
    std::string out;
    Writer(out, keys).write(value);
    requireUTF8(out);
    return out;
}

/// Specialised where a broken text of this type is a cause to act on.
template <class T>
inline constexpr auto unreadable = MeetingError::Cause::none;

/// Reads one value, as strict as the recorder's own decoder: unknown keys are ignored, a missing or null
/// optional is absent, a missing required field is an error. `what` opens the German message of the
/// MeetingError (invalidData, with `unreadable` as its cause) that any error throws; it names the text, such as
/// „diarization.json“.
///
/// Defined in JSONReader.h and instantiated beside each record that is a file or a job's text of its own, so
/// that its users need no JSON library; there is none for the records within these.
template <class T>
T decode(std::string_view text, const std::string& what);

/// Whether the text is one JSON value of any kind, scalars included, and nothing else.
bool isValid(std::string_view text);

}  // namespace meetingcore::json
