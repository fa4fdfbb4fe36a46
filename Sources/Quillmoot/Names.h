#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "MeetingCore/Library/MeetingLibrary.h"

namespace meetingcore::quillmoot {

/// The first eight digits of an identifier, which a person can type.
std::string shortID(const UUID& id);

/// The trimmed name; throws MeetingError where it holds what a terminal would act on.
std::string checkedName(const std::string& typed, const char* what);

/// Whether two names are one, whatever their case, their accents and the space around them.
bool sameName(std::string_view a, std::string_view b);

/// The element of a list with this name; throws MeetingError where there is none.
template <class List>
auto named(List& list, const std::string& name, const std::string& what) {
    const auto found = std::ranges::find_if(list, [&](const auto& item) { return sameName(item.name, name); });
    if (found == list.end()) throw MeetingError::invalidData(what + " „" + name + "“ gibt es nicht.");
    return found;
}

/// The project's name; nothing without one.
std::optional<std::string> projectName(const LibrarySnapshot& library, const MeetingEntry& meeting);

}  // namespace meetingcore::quillmoot
