#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Recording/WindowPlanner.h"
#include "MeetingCore/Transcript/CaptionFile.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// Takes a transcript that was made elsewhere as the speech recognition of one track of a recorded meeting.
namespace TranscriptIntake {

/// What an import did.
struct Report {
    std::size_t windows = 0;   ///< of the track
    std::size_t finished = 0;  ///< of these, whose jobs this import finished; the rest had this very result
    std::size_t segments = 0;  ///< of the whole track
};

/// What to do where a window of the track has another result already.
enum class Existing { refuse, replace };

/// Gives each caption to the window that it overlaps most (to the later one where they are equal), and returns
/// a valid result for each window, empty where nothing was said. A caption that reaches out of its window
/// further than a result may is cut at its words where it has times for them, else its own times are. Up to 1 s
/// outside all audio is drawn in. Throws MeetingError (invalidData) naming every caption that lies further
/// outside, or with which a window has more than a result may hold.
///
/// `windows` are one track's, ascending. The same captions and windows give the same results, identifiers
/// included.
std::vector<SpeechResult> assign(const CaptionFile& file, std::span<const TranscriptionWindow> windows);

/// Gives the captions to the windows of the track, whose recording must have ended, and finishes their jobs;
/// jobs that are missing are made, leases that expired are recovered. Jobs of the other track stay as they are.
/// `root` is the data folder.
///
/// Everything is checked before the first job is claimed: where a caption does not fit, a job of the track is
/// under a valid lease, or a window has another result that is not to be replaced, MeetingError is thrown and
/// no result was taken. Each job is then claimed and finished by itself. What a crash interrupts, the same call
/// again completes, at the latest after a lease of 10 s. Results that are replaced are archived.
///
/// Results have version 1, since nobody will diarize the microphone track for them. For the same reason the
/// meeting is declared free of speakers (SpeakerIntake::settle) unless it has a diarization or one must come.
Report take(const UUID& session, AudioSource source, const CaptionFile& file, const std::filesystem::path& root,
            SQLiteJobStore& database, Existing existing = Existing::refuse,
            const std::function<Date()>& clock = Date::now, FileManager& files = FileManager::system());

}  // namespace TranscriptIntake
}  // namespace meetingcore
