#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/TimeZone.h"
#include "Shell.h"

namespace meetingcore::quillmoot {

/// "3 Segmente", "1 Segment".
std::string countOf(std::size_t count, const char* one, const char* many);

/// The instant in the local time zone: "14.03.2025 09:26".
std::string localTime(Date instant, const TimeZone& zone = TimeZone::current());

/// A length of time: "1:02:03" or "02:03".
std::string lengthOf(double seconds);

/// The first eight digits of an identifier, which a person can type.
std::string shortID(const UUID& id);

/// The trimmed name; throws MeetingError where nothing is left, or what a terminal would act on.
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

std::string_view trackName(AudioSource source);

/// One of our state words in German.
std::string_view wordFor(TranscriptProcessingState state);
std::string_view wordForJob(const std::string& status);

/// The project's name; nothing without one.
std::optional<std::string> projectName(const LibrarySnapshot& library, const MeetingEntry& meeting);

/// In the handler of the error: throws it again; that a job is under a lease, with the time that it still has.
[[noreturn]] void rethrowWithLease(const MeetingError& error, SQLiteJobStore& jobs, const UUID& meeting);

}  // namespace meetingcore::quillmoot
