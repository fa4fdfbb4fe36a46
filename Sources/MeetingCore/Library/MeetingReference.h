#pragma once

#include <string_view>

#include "MeetingCore/Library/MeetingLibrary.h"

namespace meetingcore {

/// The one meeting that a person means: by its UUID, by an unambiguous beginning of it (four digits or more, in
/// either case), or by its title, whatever its case and accents.
///
/// Throws MeetingError (invalidData) where no meeting fits, or several do; the message then names them.
const MeetingEntry& findMeeting(const LibrarySnapshot& library, std::string_view reference);

}  // namespace meetingcore
