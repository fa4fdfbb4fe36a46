#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "MeetingCore/Platform/UUID.h"

namespace meetingcore {

/// Whether the id begins with what a person typed, in either case.
inline bool beginsWith(const UUID& id, std::string_view typed) {
    const auto whole = id.string();
    return typed.size() <= whole.size() &&
           std::equal(typed.begin(), typed.end(), whole.begin(), [](char letter, char digit) {
               return (letter >= 'a' && letter <= 'f' ? static_cast<char>(letter - 'a' + 'A') : letter) ==
                      digit;
           });
}

/// What a person typed, for messages.
inline std::string inQuotes(std::string_view typed) { return "„" + std::string(typed) + "“"; }

}  // namespace meetingcore
