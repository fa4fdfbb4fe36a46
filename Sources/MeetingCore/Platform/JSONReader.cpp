#include "MeetingCore/Platform/JSONReader.h"

#include <charconv>

namespace meetingcore::json {

namespace reading {

namespace {

/// The recorder's decoder refuses deeper nesting; ours would spend stack on it.
constexpr int maximumDepth = 512;

bool isNumberEnd(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool isPlainInteger(std::string_view token) {
    if (token.starts_with('-')) token.remove_prefix(1);
    if (token.empty() || (token.size() > 1 && token.front() == '0')) return false;
    return std::all_of(token.begin(), token.end(), [](char c) { return c >= '0' && c <= '9'; });
}

template <class T>
void skipAs(ondemand::value& source) {
    T value{};
    read(source, value);
}

void skipScalar(ondemand::value& source, ondemand::json_type type) {
    switch (type) {
        case ondemand::json_type::string:
            checkedString(readText(source));
            break;
        case ondemand::json_type::number:
            skipAs<double>(source);
            break;
        case ondemand::json_type::boolean:
            skipAs<bool>(source);
            break;
        default:
            skipAs<std::optional<bool>>(source);
            break;
    }
}

}  // namespace

std::string_view checkedString(std::string_view text) {
    for (auto at = text.find('\xED'); at != std::string_view::npos; at = text.find('\xED', at + 1)) {
        if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) {
            Failure::raise(Failure::Reason::syntax);
        }
    }
    return text;
}

std::int64_t integer(std::string_view token, simdjson::simdjson_result<double> number) {
    while (!token.empty() && isNumberEnd(token.back())) token.remove_suffix(1);
    const double value = checked(std::move(number));  // checks the form of the whole token
    if (isPlainInteger(token)) {
        std::int64_t exact = 0;
        if (std::from_chars(token.data(), token.data() + token.size(), exact).ec == std::errc{}) return exact;
    } else if (std::trunc(value) == value && value >= -0x1p63 && value < 0x1p63) {
        return static_cast<std::int64_t>(value);
    }
    Failure::raise(Failure::Reason::unexpected);
}

void skip(ondemand::value& value, int depth) {
    if (depth > maximumDepth) Failure::raise(Failure::Reason::syntax);
    const auto type = checked(value.type());
    if (type == ondemand::json_type::array) {
        auto array = checked(value.get_array());
        for (auto result : array) {
            auto&& element = checked(std::move(result));
            skip(element, depth + 1);
        }
    } else if (type == ondemand::json_type::object) {
        auto object = checked(value.get_object());
        for (auto member : object) {
            auto&& field = checked(std::move(member));
            checkedString(checked(field.unescaped_key()));
            skip(field.value(), depth + 1);
        }
    } else {
        skipScalar(value, type);
    }
}

void report(const Failure& failure, const std::string& what, MeetingError::Cause cause) {
    const auto place = failure.path.empty() ? std::string() : " (Feld „" + failure.path + "“)";
    auto wrong = " ist kein gültiges JSON" + place + ".";
    if (failure.reason == Failure::Reason::missing)
        wrong = " ist unvollständig: Das Feld „" + failure.path + "“ fehlt.";
    if (failure.reason == Failure::Reason::unexpected) wrong = " enthält einen unzulässigen Wert" + place + ".";
    throw MeetingError::invalidData(what + wrong, cause);
}

}  // namespace reading

bool isValid(std::string_view text) {
    reading::Parser parser;
    return isValid(text, parser);
}

bool isValid(std::string_view text, reading::Parser& parser) {
    try {
        parser.parse(text, [](reading::ondemand::value& value) { reading::skip(value, 1); });
        return true;
    } catch (const reading::Failure&) {
        return false;
    }
}

}  // namespace meetingcore::json
