#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Recording/Models.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"

namespace meetingcore {

/// A stream of 16 kHz mono samples from its beginning to its end.
class SampleSource {
public:
    virtual ~SampleSource() = default;

    /// Fills the buffer from the front and returns how many samples it holds; fewer than there is room for only
    /// at the end. The same source read again yields the same samples. Throws MeetingError.
    virtual std::size_t read(std::span<std::int16_t> buffer) = 0;
};

/// Takes a recording that exists as audio files into the library, as if it had been recorded: chunks in the
/// durable store, their registration, the library's entry, and the transcription jobs.
///
/// The identifiers of the session and of its chunks follow from the audio alone. An import that was cut off is
/// therefore simply done again: what is stored already is compared and kept, the rest is added. Memory does not
/// depend on the length.
namespace RecordingImport {

/// One track and where its samples come from.
struct Track {
    AudioSource source = AudioSource::microphone;
    SampleSource* samples = nullptr;  ///< not owned
};

/// What is to be imported. Whoever imports it confirms that the recording is permitted.
struct Recording {
    UUID session;  ///< the same for the same audio, see `sessionFor`
    std::string title;
    Date createdAt;                       ///< start of the recording
    std::optional<RecordingClock> clock;  ///< where the start is known on the clock
    std::optional<UUID> project;
    std::vector<Track> tracks;
};

/// The session's identifier for audio that is described by this text (of every track its content).
UUID sessionFor(std::string_view description);

/// Told after every stored chunk: the track and its seconds so far. Returning false stops the import.
using Progress = std::function<bool(AudioSource track, double seconds)>;

enum class Outcome { finished, stopped };

/// Imports all tracks, or stops where `progress` says so, which leaves an interrupted meeting that the next
/// call completes: it always takes over another start on the clock, title and project only where the user has
/// not changed the first call's title, the project only where there is none yet, and after an error none of
/// them. The caller holds the application lock. Throws MeetingError: invalidData where the recording is in the
/// library already, unless chunks of it are missing or damaged, which are then restored, where its audio was
/// removed on purpose, where a track holds no samples or more than 24 hours, and whatever the stores throw.
Outcome run(const Recording& recording, const std::filesystem::path& root, MeetingLibrary& library,
            SQLiteJobStore& database, const Progress& progress, FileManager& files = FileManager::system());

/// The clock of a meeting's recording, "recording-clock.json" in its folder; nothing where it is not known.
/// `root` is the data folder.
std::optional<RecordingClock> storedClock(const UUID& session, const std::filesystem::path& root,
                                          FileManager& files = FileManager::system());

}  // namespace RecordingImport
}  // namespace meetingcore
