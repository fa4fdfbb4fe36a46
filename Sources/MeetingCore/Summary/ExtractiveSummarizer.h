#pragma once

#include <string>

#include "MeetingCore/Summary/RawSummary.h"

namespace meetingcore {

/// Makes a summary without a language model, by choosing passages of the transcript: as overview those most
/// central to the conversation, as decisions, tasks and open questions those whose German wording says so. It
/// writes nothing of its own; every text is a sentence that was said.
///
/// The same transcript always gives the same result. Without state; calls may overlap.
class ExtractiveSummarizer final : public Summarizing {
public:
    /// The points with their evidence, checked as any engine's are. Speakers' names, where the user gave them,
    /// help to see who is addressed; as owner a person counts only where the cited passage names them. Throws
    /// MeetingError (notConfigured) where the stemmer lacks German.
    EvidenceSummary summarize(const TranscriptDocument& document) const;

    /// The same before the check, citing sources by number.
    RawSummary points(const TranscriptDocument& document) const;

    /// A title of the most central nouns, as "Kundenportal, Starttermin und Hilfetexte". Always one that
    /// MeetingTitleArtifact accepts.
    std::string title(const TranscriptDocument& document) const;

    /// The contract's form, from segments alone: speakers have no names then. Done on return.
    std::future<MeetingSummary> summarize(std::span<const TranscriptSegment> segments) override;
};

}  // namespace meetingcore
