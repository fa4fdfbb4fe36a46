#pragma once

#include <string>

#include "MeetingCore/Summary/RawSummary.h"

namespace meetingcore {

struct WeightTable;

/// Makes a summary without a language model, by choosing passages of the transcript: those that their German
/// wording, the replies of others and their place in the conversation make likely to hold a main point, a
/// decision, a task or an open question. It writes nothing of its own; every text is a sentence that was said.
///
/// The same transcript always gives the same result. Without state; calls may overlap.
class ExtractiveSummarizer final : public Summarizing {
public:
    ExtractiveSummarizer();
    /// With other weights than the fitted ones, which must outlive it: to measure how well fitting works.
    explicit ExtractiveSummarizer(const WeightTable& weights) : weights_(weights) {}

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

private:
    const WeightTable& weights_;
};

}  // namespace meetingcore
