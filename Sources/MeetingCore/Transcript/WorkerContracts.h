#pragma once

#include <future>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Platform/StopRequest.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

struct DiarizationResult;
struct SpeechResult;
struct TranscriptionWindow;

/// One recognised stretch of speech on one track. Times are seconds from the start of the recording.
struct TranscriptSegment {
    UUID id;  ///< unique within a session; corrections and summary sources refer to it
    double startSeconds = 0;
    double endSeconds = 0;
    AudioSource source = AudioSource::microphone;
    std::optional<std::string> speakerID;  ///< absent when no unique speaker is known
    std::string text;

    bool operator==(const TranscriptSegment&) const = default;
};

template <>
inline constexpr auto json::fields<TranscriptSegment> = json::record(
    json::field("id", &TranscriptSegment::id), json::field("startSeconds", &TranscriptSegment::startSeconds),
    json::field("endSeconds", &TranscriptSegment::endSeconds),
    json::field("source", &TranscriptSegment::source), json::field("speakerID", &TranscriptSegment::speakerID),
    json::field("text", &TranscriptSegment::text));

/// One recognised word.
struct TranscriptWord {
    std::string text;
    double startSeconds = 0;
    double endSeconds = 0;

    bool operator==(const TranscriptWord&) const = default;
};

template <>
inline constexpr auto json::fields<TranscriptWord> = json::record(
    json::field("text", &TranscriptWord::text), json::field("startSeconds", &TranscriptWord::startSeconds),
    json::field("endSeconds", &TranscriptWord::endSeconds));

/// One stretch that diarization attributes to one speaker.
struct SpeakerTurn {
    std::string speakerID;              ///< "mic:" and a number for speakers on the microphone track
    std::optional<AudioSource> source;  ///< absent in diarizations of version 1, where it means `meeting`
    double startSeconds = 0;
    double endSeconds = 0;

    bool operator==(const SpeakerTurn&) const = default;
};

template <>
inline constexpr auto json::fields<SpeakerTurn> =
    json::record(json::field("speakerID", &SpeakerTurn::speakerID), json::field("source", &SpeakerTurn::source),
                 json::field("startSeconds", &SpeakerTurn::startSeconds),
                 json::field("endSeconds", &SpeakerTurn::endSeconds));

/// What a summarizing engine delivers. Stored and shown is the checked EvidenceSummary, which carries quotes.
struct MeetingSummary {
    struct EvidenceItem {
        std::string text;
        std::vector<UUID> sourceSegmentIDs;
        std::optional<std::string> owner;
        std::optional<std::string> dueDate;

        bool operator==(const EvidenceItem&) const = default;
    };

    std::string overview;
    std::vector<EvidenceItem> decisions;
    std::vector<EvidenceItem> tasks;
    std::vector<EvidenceItem> openQuestions;

    bool operator==(const MeetingSummary&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingSummary::EvidenceItem> =
    json::record(json::field("text", &MeetingSummary::EvidenceItem::text),
                 json::field("sourceSegmentIDs", &MeetingSummary::EvidenceItem::sourceSegmentIDs),
                 json::field("owner", &MeetingSummary::EvidenceItem::owner),
                 json::field("dueDate", &MeetingSummary::EvidenceItem::dueDate));

template <>
inline constexpr auto json::fields<MeetingSummary> = json::record(
    json::field("overview", &MeetingSummary::overview), json::field("decisions", &MeetingSummary::decisions),
    json::field("tasks", &MeetingSummary::tasks), json::field("openQuestions", &MeetingSummary::openQuestions));

/// A speech recognition engine. Errors reach the caller through the future.
class Transcribing {
public:
    virtual ~Transcribing() = default;

    /// Recognises one window, whose samples lie in the chunk store. Calls for different windows may overlap.
    /// After a stop request the result is not wanted any more, and any error will do. A MeetingError of the
    /// kind notConfigured says that no window can be recognised, any other error is about this one. The engine,
    /// the window and the request outlive the future's shared state.
    virtual std::future<SpeechResult> transcribe(const TranscriptionWindow& window,
                                                 const StopRequest& stop) = 0;
};

/// A diarization engine, fed with one session's audio in order. Calls for one session do not overlap.
class Diarizing {
public:
    virtual ~Diarizing() = default;

    /// Starts a run for a session under a fresh generation.
    virtual std::future<DiarizationResult> begin(const UUID& session, const UUID& generation) = 0;

    /// Feeds one chunk and returns the turns known so far, not finished. How much silence goes before the chunk
    /// and how much of its start is skipped follows from the run's DiarizationCursor.
    virtual std::future<DiarizationResult> feed(const AudioChunk& chunk) = 0;

    /// Ends the run and returns all turns, finished.
    virtual std::future<DiarizationResult> finish() = 0;
};

/// A summarizing engine.
class Summarizing {
public:
    virtual ~Summarizing() = default;

    virtual std::future<MeetingSummary> summarize(std::span<const TranscriptSegment> segments) = 0;
};

}  // namespace meetingcore
