#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <unordered_map>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Presentation/TranscriptLayout.h"

namespace meetingcore {

/// The colours in which speakers are shown.
enum class SpeakerColorPreset { ocean, sage, violet, amber, rose, teal, indigo, clay, olive, slate };

template <>
inline constexpr auto json::names<SpeakerColorPreset> = std::to_array<std::string_view>(
    {"ocean", "sage", "violet", "amber", "rose", "teal", "indigo", "clay", "olive", "slate"});

namespace SpeakerColors {

/// The colour of every speaker that occurs. The user at the local microphone has the `personal` colour, an
/// unknown speaker of the meeting "slate"; identified speakers share the others in order of first occurrence.
std::unordered_map<TranscriptSpeakerKey, SpeakerColorPreset> assignments(
    std::span<const TranscriptBlock> blocks, SpeakerColorPreset personal);

}  // namespace SpeakerColors

/// The one word that is shown for the processing of a meeting's transcript.
enum class TranscriptProcessingState {
    loading,
    recording,
    processing,
    waiting,
    failed,
    interrupted,
    partial,
    empty,
    complete,
};

template <>
inline constexpr auto json::names<TranscriptProcessingState> = std::to_array<std::string_view>(
    {"loading", "recording", "processing", "waiting", "failed", "interrupted", "partial", "empty", "complete"});

/// What the state follows from.
struct TranscriptProcessing {
    bool loaded = false;
    bool loadFailed = false;
    bool recording = false;
    std::string meetingState;                   ///< the library entry's state
    std::map<std::string, std::int64_t> stats;  ///< jobs of the meeting by state; a missing state counts 0
    bool hasText = false;
    bool diarizationPending = false;
    bool audioRemoved = false;

    /// Of a meeting with the numbers of its jobs. `document` is null where the transcript could not be read.
    static TranscriptProcessing of(const MeetingEntry& meeting, std::map<std::string, std::int64_t> stats,
                                   const TranscriptDocument* document, bool audioRemoved);

    /// Once the audio is gone, unfinished work stays undone: the transcript is partial and not waiting.
    TranscriptProcessingState resolve() const;
};

}  // namespace meetingcore
