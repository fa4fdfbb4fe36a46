#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "MeetingCore/Transcript/SpeakerTurnFile.h"

namespace meetingcore {

/// Takes a speaker assignment that was made elsewhere as the diarization of a meeting.
namespace SpeakerIntake {

/// By how much the times of another program may miss the recording. TranscriptIntake allows as much.
inline constexpr double secondsOutsideAudio = 1;

/// What an import did on one track.
struct Report {
    AudioSource source = AudioSource::meeting;
    std::size_t speakers = 0;
    std::size_t named = 0;  ///< of these, whose names the file gives
    std::size_t turns = 0;  ///< as stored
    bool changed = false;   ///< whether the track had other turns before
};

/// Which recording of an RTTM file belongs to a track. It may be left out where the file has one.
struct Selection {
    AudioSource source = AudioSource::meeting;
    std::optional<std::string> recording;
};

/// What to do where a track has other speakers already.
enum class Existing { refuse, replace };

/// Replaces the turns of the selected tracks, each named once, in "diarization.json" and keeps those of the
/// other. `root` is the data folder, whose application lock the caller holds.
///
/// Speakers are numbered from 1 in the order in which they first speak, "mic:1" on the microphone track. Turns
/// of one speaker that overlap or touch become one; turns of several speakers may overlap and make what is said
/// there unclear. The diarization has version 1 while only the meeting track has turns and no speech result
/// asks for more: version 2 would make the user at the microphone an unclear speaker.
///
/// The names that the file gives become the user's names for these speakers in "transcript-edits.json"; labels
/// such as "SPEAKER_00" are no names. Corrected texts and the names on the other track stay. The generation
/// follows from the turns, so that the same import again changes nothing, not even a name that the user gave
/// or took back since, and completes one that a crash cut in two. Where the turns are the same, `replace` adds
/// the file's names for speakers who have none. It also replaces a diarization that cannot be read.
///
/// Throws MeetingError (invalidData), and changes nothing, where the file has no turn for a track, the
/// meeting has no such track, a turn begins more than 1 s behind the end of the recording, a name is none that
/// TranscriptEditing would take, the track has other speakers that are not to be replaced, or a diarization is
/// unfinished and not to be replaced.
std::vector<Report> take(const UUID& session, const SpeakerTurnFile& file,
                         std::span<const Selection> selections, const std::filesystem::path& root,
                         SQLiteJobStore& database, Existing existing = Existing::refuse,
                         FileManager& files = FileManager::system());

/// The tracks that the meeting has; none where nothing is known of its audio.
std::set<AudioSource> recordedTracks(const UUID& session, const std::filesystem::path& root,
                                     SQLiteJobStore& database, FileManager& files = FileManager::system());

/// Lets a transcript whose speakers nobody will tell apart count as complete: writes a finished diarization
/// without turns where one is missing. Does nothing for a meeting with a speech result of version 2, whose
/// diarization is still to come. The caller holds the application lock.
void settle(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
            FileManager& files = FileManager::system());

/// The same as the user's own word, also where speech results of version 2 announced speakers on both tracks.
/// The caller holds the application lock. Throws MeetingError (invalidData) where the meeting has speakers, or
/// a diarization that is unfinished or cannot be read, that are not to be replaced.
void declareNone(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
                 Existing existing = Existing::refuse, FileManager& files = FileManager::system());

}  // namespace SpeakerIntake
}  // namespace meetingcore
