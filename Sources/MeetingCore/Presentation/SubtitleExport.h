#pragma once

#include <string>

#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// A transcript as subtitles, for players and editors. One cue per segment that has text, on one line; times
/// that are not finite or negative become 0, and a cue lasts at least a millisecond.
namespace SubtitleExport {

/// WebVTT (W3C): each cue carries the segment's id and the speaker as its voice, `<v Name>`. Escaped.
std::string webVTT(const TranscriptDocument& document);

/// SubRip: numbered cues, each opening with the speaker's name. The format knows no escapes.
std::string subRip(const TranscriptDocument& document);

}  // namespace SubtitleExport
}  // namespace meetingcore
