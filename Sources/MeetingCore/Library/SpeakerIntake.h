#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "MeetingCore/Transcript/SpeakerTurnFile.h"

namespace meetingcore {

/// Takes a speaker assignment that was made elsewhere as the diarization of a meeting.
namespace SpeakerIntake {

/// What an import did.
struct Report {
    std::size_t speakers = 0;  ///< of the track
    std::size_t named = 0;     ///< of these, whose names the file gives
    std::size_t turns = 0;     ///< of the track, as stored
};

/// Replaces the turns of one track in "diarization.json" and keeps those of the other. `recording` selects one
/// of the recordings of an RTTM file and may be left out where it has one. `root` is the data folder.
///
/// Speakers are numbered from 1 in the order in which they first speak, "mic:1" on the microphone track. Turns
/// of one speaker that overlap or touch become one; turns of several speakers may overlap and make what is said
/// there unclear. The diarization has version 1 while only the meeting track has turns and no speech result
/// asks for more: version 2 would make the user at the microphone an unclear speaker.
///
/// The names that the file gives become the user's names for these speakers in "transcript-edits.json"; labels
/// such as "SPEAKER_00" are no names. Corrected texts and the names on the other track stay. The generation
/// follows from the turns, so that the same import again changes nothing and completes one that a crash cut in
/// two.
///
/// Throws MeetingError: invalidData where the file has no turn for the track or a diarization is still under
/// way.
Report take(const UUID& session, AudioSource source, const SpeakerTurnFile& file,
            const std::optional<std::string>& recording, const std::filesystem::path& root,
            SQLiteJobStore& database, FileManager& files = FileManager::system());

/// Lets a transcript whose speakers nobody will tell apart count as complete: writes a finished diarization
/// without turns where one is missing. Does nothing for a meeting with a speech result of version 2, whose
/// diarization is still to come.
void settle(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
            FileManager& files = FileManager::system());

}  // namespace SpeakerIntake
}  // namespace meetingcore
