#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace meetingcore {

/// The characters that HTML may read as markup, in attributes too.
inline constexpr std::string_view htmlSpecial = "&<>\"'";

/// Those that WebVTT may, inside cue text and voice names alike.
inline constexpr std::string_view webVTTSpecial = "&<>";

/// Appends the text with each of the special characters as a character reference.
inline void appendEscaped(std::string& out, std::string_view text, std::string_view special) {
    for (;;) {
        const auto end = std::min(text.find_first_of(special), text.size());
        out += text.substr(0, end);
        if (end == text.size()) return;
        switch (text[end]) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += "&#39;";
        }
        text.remove_prefix(end + 1);
    }
}

}  // namespace meetingcore
