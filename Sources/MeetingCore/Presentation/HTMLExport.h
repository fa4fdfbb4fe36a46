#pragma once

#include <string>

#include "MeetingCore/Presentation/MeetingExport.h"
#include "MeetingCore/Presentation/TranscriptPresentation.h"

namespace meetingcore::HTMLExport {

/// How the page looks at first; the reader can switch the times where the recording's clock is known.
struct Appearance {
    TranscriptTimestampMode times = TranscriptTimestampMode::elapsed;
    SpeakerColorPreset personal = SpeakerColorPreset::ocean;  ///< the user's own colour
};

/// The meeting as one HTML page for a browser, a phone or paper: facts, notes, the summary with the cited
/// wording and links to it, and the transcript in coloured blocks with a search field.
///
/// The page stands alone: it asks for nothing, and its own policy forbids it and any script but its own. Every
/// text is escaped. A stale summary is named as stale and not shown.
std::string render(const ExportedMeeting& meeting, const Appearance& appearance = {});

}  // namespace meetingcore::HTMLExport
