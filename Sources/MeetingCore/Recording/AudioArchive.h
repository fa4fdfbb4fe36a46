#pragma once

#include <filesystem>
#include <span>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/UUID.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore::AudioArchive {

/// The file in a meeting's folder that tells that its audio was removed on purpose.
inline constexpr const char* removedMarkerName = "audio-removed.json";

/// Whether the meeting's audio was removed on purpose. `root` is the data folder.
bool removed(const UUID& session, const std::filesystem::path& root);

/// Where a track lacks audio that it had: its chunks are numbered, and numbers are missing.
struct Gap {
    AudioSource source = AudioSource::microphone;
    double startSeconds = 0;
    double endSeconds = 0;
};

/// The gaps between and before the chunks of one meeting, which ascend by start. What is missing behind the
/// last one leaves no trace in them.
std::vector<Gap> gaps(std::span<const AudioChunk> chunks);

/// Joins the chunks of one track to one WAV file, "Audio/microphone.wav" or "Audio/meeting.wav" in the
/// meeting's folder, and returns its path. `root` is the data folder.
///
/// The file starts with the recording, so that a time of the transcript is the same time in the file: what no
/// chunk covers is silence, and where chunks overlap within the tolerance of 0.05 s, the earlier one counts.
/// Chunks that recovery refuses are left out.
///
/// The file is written under a hidden ".partial" name and is complete and on stable storage when it appears
/// under its own. Beside it, "microphone.json" names the chunks it was made from; while these are the meeting's
/// chunks, the file is used again. Memory does not depend on the length. One process at a time may build a
/// track.
///
/// Throws MeetingError: invalidData where the track has no chunks, is longer than 24 hours or overlaps further,
/// storage where the file cannot be written.
std::filesystem::path build(const UUID& session, AudioSource source, const std::filesystem::path& root,
                            FileManager& files = FileManager::system());

}  // namespace meetingcore::AudioArchive
