#include "MeetingCore/Platform/NumberText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

namespace meetingcore::number {

namespace {

constexpr double largestPositional = 9007199254740992.0;  // 2^53
constexpr int smallestPositionalExponent = -4;

/// Turns `d.ddde±x` into the same digits without exponent.
void appendPositional(std::string& out, std::string_view digits, int exponent) {
    const auto integral = static_cast<std::ptrdiff_t>(exponent) + 1;
    const auto count = static_cast<std::ptrdiff_t>(digits.size());
    if (integral <= 0) {
        out += "0.";
        out.append(static_cast<std::size_t>(-integral), '0');
        out += digits;
    } else if (integral >= count) {
        out += digits;
        out.append(static_cast<std::size_t>(integral - count), '0');
    } else {
        out += digits.substr(0, static_cast<std::size_t>(integral));
        out += '.';
        out += digits.substr(static_cast<std::size_t>(integral));
    }
}

template <class Float>
void append(std::string& out, Float value) {
    std::array<char, 64> buffer{};
    const auto magnitude = std::fabs(static_cast<double>(value));
    if (value == 0) {
        out += std::signbit(value) ? "-0" : "0";
        return;
    }
    if (!std::isfinite(value)) {
        out += std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
        return;
    }
    const auto end =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::scientific).ptr;
    std::string_view text(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
    const auto mark = text.find('e');
    int exponent = 0;
    std::from_chars(text.data() + mark + 2, text.data() + text.size(), exponent);
    if (text[mark + 1] == '-') exponent = -exponent;
    // The small bound is on the digits, not on the magnitude: the float nearest to 0.0001 is a little below it.
    if (exponent < smallestPositionalExponent || magnitude > largestPositional) {
        out += text;
        return;
    }
    text = text.substr(0, mark);
    if (text.front() == '-') {
        out += '-';
        text.remove_prefix(1);
    }
    std::array<char, 32> digits{};
    std::size_t count = 0;
    for (const char c : text) {
        if (c != '.') digits[count++] = c;
    }
    appendPositional(out, {digits.data(), count}, exponent);
}

}  // namespace

void appendJSON(std::string& out, double value) { append(out, value); }

void appendJSON(std::string& out, float value) { append(out, value); }

std::string plain(double value) {
    std::string text;
    append(text, value);
    if (text.find_first_of(".en") == std::string::npos) text += ".0";
    return text;
}

}  // namespace meetingcore::number
