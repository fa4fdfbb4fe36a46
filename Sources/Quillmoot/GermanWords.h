#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "MeetingCore/Platform/TimeZone.h"
#include "MeetingCore/Presentation/TranscriptPresentation.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"

namespace meetingcore::quillmoot {

/// "3 Segmente", "1 Segment".
std::string countOf(std::size_t count, const char* one, const char* many);

/// The instant in the local time zone: "14.03.2025 09:26".
std::string localTime(Date instant, const TimeZone& zone = TimeZone::current());

/// A length of time: "1:02:03" or "02:03".
std::string lengthOf(double seconds);

std::string_view trackName(AudioSource source);

/// One of our state words in German.
std::string_view wordFor(TranscriptProcessingState state);
std::string_view wordFor(JobStatus status);

}  // namespace meetingcore::quillmoot
