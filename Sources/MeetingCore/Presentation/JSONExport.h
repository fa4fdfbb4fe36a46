#pragma once

#include <string>

#include "MeetingCore/Presentation/MeetingExport.h"

namespace meetingcore::JSONExport {

/// The meeting as one JSON object for other programs; Docs/ExportFormats.md describes its keys. Holds the
/// header's facts, speakers, segments with what was recognised where the user corrected it, and the summary
/// with its evidence. A stale summary is named as stale and its points are left out.
///
/// Compact UTF-8; throws MeetingError (invalidData) for a text that is none. Times that are not finite are
/// written as 0, since JSON has no numbers for them.
std::string render(const ExportedMeeting& meeting);

}  // namespace meetingcore::JSONExport
