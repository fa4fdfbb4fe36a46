#pragma once

#include <optional>
#include <span>
#include <string>

#include "MeetingCore/Summary/EvidenceSummary.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// A summary together with the fingerprint of the transcript that it was made from, "summary.json" in the
/// meeting's folder. Stale as soon as the transcript's fingerprint is another one.
struct SummaryArtifact {
    /// What is hashed: the merged segments and their speaker labels, so that a renamed speaker makes a summary
    /// stale.
    struct NamedTranscript {
        std::span<const TranscriptSegment> segments;
        std::vector<std::string> labels;  ///< one per segment
    };

    std::int64_t version = 1;
    std::string transcriptFingerprint;  ///< 64 lower-case hexadecimal digits
    Date createdAt;
    EvidenceSummary summary;
    std::optional<SummaryInstructions> instructions;  ///< in force when the summary was made

    /// SHA-256 of the document's NamedTranscript as JSON with sorted keys.
    static std::string fingerprint(const TranscriptDocument& document);

    /// The same over a bare list of segments, without labels.
    static std::string fingerprint(std::span<const TranscriptSegment> segments);

    /// Whether the engine without a model made it: only a model is instructed.
    bool isExtractive() const { return !instructions; }

    bool operator==(const SummaryArtifact&) const = default;
};

template <>
inline constexpr auto json::fields<SummaryArtifact::NamedTranscript> =
    json::record(json::field("segments", &SummaryArtifact::NamedTranscript::segments),
                 json::field("labels", &SummaryArtifact::NamedTranscript::labels));

template <>
inline constexpr auto json::fields<SummaryArtifact> = json::record(
    json::field("version", &SummaryArtifact::version),
    json::field("transcriptFingerprint", &SummaryArtifact::transcriptFingerprint),
    json::field("createdAt", &SummaryArtifact::createdAt), json::field("summary", &SummaryArtifact::summary),
    json::field("instructions", &SummaryArtifact::instructions));

template <>
inline constexpr auto json::unreadable<SummaryArtifact> = MeetingError::Cause::summaryUnreadable;

/// An automatic title, "automatic-title.json" in the meeting's folder.
struct MeetingTitleArtifact {
    std::string transcriptFingerprint;
    std::string title;

    /// The artifact with the trimmed title. Throws MeetingError (invalidData) for a title that is empty, longer
    /// than 80 characters, the default title of a new meeting, or that contains control characters.
    static MeetingTitleArtifact make(std::string transcriptFingerprint, std::string_view title);

    bool operator==(const MeetingTitleArtifact&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingTitleArtifact> =
    json::record(json::field("transcriptFingerprint", &MeetingTitleArtifact::transcriptFingerprint),
                 json::field("title", &MeetingTitleArtifact::title));

/// The title that a meeting has until it gets one of its own.
inline constexpr std::string_view defaultMeetingTitle = "Neues Meeting";

}  // namespace meetingcore
