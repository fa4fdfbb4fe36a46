#pragma once

#include <filesystem>

#include "MeetingCore/Platform/UUID.h"

namespace meetingcore::AudioArchive {

/// Whether the meeting's audio was removed on purpose, which its marker "audio-removed.json" tells. `root` is
/// the data folder.
bool removed(const UUID& session, const std::filesystem::path& root);

}  // namespace meetingcore::AudioArchive
