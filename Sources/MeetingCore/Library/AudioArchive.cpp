#include "MeetingCore/Library/AudioArchive.h"

#include "MeetingCore/Platform/FileManager.h"

namespace meetingcore::AudioArchive {

bool removed(const UUID& session, const std::filesystem::path& root) {
    return pathExists(root / "Meetings" / session.string() / "audio-removed.json");
}

}  // namespace meetingcore::AudioArchive
