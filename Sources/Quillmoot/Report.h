#pragma once

#include "MeetingCore/Summary/EvidenceSummary.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Terminal.h"

namespace meetingcore::quillmoot {

/// The points by category, under each the wording that it rests on, with speaker and time. A point that the
/// transcript, corrected since, no longer bears out is marked.
void writeSummary(Terminal& out, const EvidenceSummary& summary, const TranscriptDocument& document);

}  // namespace meetingcore::quillmoot
