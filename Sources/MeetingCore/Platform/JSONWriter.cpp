#include <array>
#include <cmath>

#include <simdjson.h>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/NumberText.h"

namespace meetingcore::json {

namespace {

/// For each byte: 0 where it is written as it is, else the letter behind the backslash ('u' for the \u form).
constexpr auto escapes = [] {
    std::array<char, 256> table{};
    for (std::size_t c = 0; c < 0x20; ++c) table[c] = 'u';
    table['\b'] = 'b';
    table['\f'] = 'f';
    table['\n'] = 'n';
    table['\r'] = 'r';
    table['\t'] = 't';
    table['"'] = '"';
    table['\\'] = '\\';
    table['/'] = '/';
    return table;
}();

void requireFinite(bool finite) {
    if (!finite)
        throw MeetingError::invalidData("Eine Zahl ist nicht endlich und kann nicht gespeichert werden.");
}

}  // namespace

void Writer::write(std::string_view text) {
    constexpr char hex[] = "0123456789abcdef";
    out_ += '"';
    std::size_t clean = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const char letter = escapes[byte];
        if (letter == 0) continue;
        out_.append(text, clean, i - clean);
        clean = i + 1;
        out_ += '\\';
        out_ += letter;
        if (letter == 'u') {
            out_ += "00";
            out_ += hex[byte >> 4];
            out_ += hex[byte & 0x0F];
        }
    }
    out_.append(text, clean);
    out_ += '"';
}

void Writer::write(std::int64_t value) { out_ += std::to_string(value); }

void Writer::write(double value) {
    requireFinite(std::isfinite(value));
    number::appendJSON(out_, value);
}

void Writer::write(float value) {
    requireFinite(std::isfinite(value));
    number::appendJSON(out_, value);
}

void requireUTF8(std::string_view text) {
    if (!simdjson::validate_utf8(text))
        throw MeetingError::invalidData(
            "Ein Text enthält ungültige Zeichen und kann nicht gespeichert werden.");
}

}  // namespace meetingcore::json
