#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "MeetingCore/Recording/Models.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::testing {

/// A meeting as a folder under Samples holds it (its README.md describes the files), without audio.
struct SampleMeeting {
    MeetingSession session;
    std::vector<TranscriptSegment> segments;  ///< as recognised; "s12" in an answer is the twelfth
    std::optional<DiarizationResult> diarization;
    std::optional<TranscriptEdits> edits;
    std::optional<SummaryInstructions> instructions;
    std::string summaryAnswer;  ///< what a stand-in model is to say, as JSON
    std::string titleAnswer;

    /// Reads a sample. Throws MeetingError, also for segments that do not ascend by start: their numbers would
    /// not be their places in the file.
    static SampleMeeting load(const std::filesystem::path& folder);

    /// Chunk records of 60 s and a shorter last one under fresh identifiers, which cover the track to the end
    /// of the last segment of either track.
    std::vector<AudioChunk> chunks(AudioSource source) const;
};

/// Puts the meeting into a data folder as recording, speech recognition, diarization and the user would have
/// left it: its chunks registered, one completed transcription job for each window of 60 s, and its files. The
/// folder is created where it is missing; its job store must hold no other pending job. Throws MeetingError.
void install(const SampleMeeting& sample, const std::filesystem::path& root);

}  // namespace meetingcore::testing
