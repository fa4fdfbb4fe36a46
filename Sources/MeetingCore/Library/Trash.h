#pragma once

#include <filesystem>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

/// Moves a file or folder to the user's trash, from where the desktop can restore it: on Linux the trash of the
/// freedesktop.org rules, in the user's data folder or, for other file systems, at the top of the
/// item's own.
///
/// Throws MeetingError (storage) where the system refuses, with the item left in place, and (notConfigured)
/// where this build knows no trash.
void moveToSystemTrash(const std::filesystem::path& item);

}  // namespace meetingcore
