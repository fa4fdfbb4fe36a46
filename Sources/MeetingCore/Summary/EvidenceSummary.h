#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Transcript/WorkerContracts.h"

namespace meetingcore {

/// One point of a summary, tied to the transcript segments that support it.
struct EvidenceBullet {
    std::string text;
    std::vector<UUID> sourceSegmentIDs;
    std::string quote;                   ///< a passage of the supporting segments, word for word
    std::optional<std::string> owner;    ///< person responsible, named in the sources
    std::optional<std::string> dueDate;  ///< as spoken in the sources

    bool operator==(const EvidenceBullet&) const = default;
};

template <>
inline constexpr auto json::fields<EvidenceBullet> =
    json::record(json::field("text", &EvidenceBullet::text),
                 json::field("sourceSegmentIDs", &EvidenceBullet::sourceSegmentIDs),
                 json::field("quote", &EvidenceBullet::quote), json::field("owner", &EvidenceBullet::owner),
                 json::field("dueDate", &EvidenceBullet::dueDate));

/// A meeting's summary. Nothing that a language model wrote is stored or shown unless `validate` accepts it.
struct EvidenceSummary {
    static constexpr std::size_t maximumQuoteCharacters = 360;

    std::vector<EvidenceBullet> overview;
    std::vector<EvidenceBullet> decisions;
    std::vector<EvidenceBullet> tasks;
    std::vector<EvidenceBullet> openQuestions;

    /// Checks every point against the segments: known sources, a quote, owner and due date that occur in them.
    /// Texts are compared lower-cased with runs of white space as one blank. Throws the first failure found as
    /// MeetingError (invalidData).
    void validate(std::span<const TranscriptSegment> segments) const;

    /// The quote for a point that cites one to three segments: the first 360 characters of their texts in
    /// transcript order. Throws MeetingError (invalidData) for unknown or repeated ids and where no text is
    /// left.
    static std::string sourceQuote(std::span<const UUID> ids, std::span<const TranscriptSegment> segments);

    bool operator==(const EvidenceSummary&) const = default;
};

template <>
inline constexpr auto json::fields<EvidenceSummary> = json::record(
    json::field("overview", &EvidenceSummary::overview), json::field("decisions", &EvidenceSummary::decisions),
    json::field("tasks", &EvidenceSummary::tasks),
    json::field("openQuestions", &EvidenceSummary::openQuestions));

/// Whether the segments, perhaps corrected since, still bear out one point: what `validate` asks of it.
bool isBorneOut(const EvidenceBullet& point, std::span<const TranscriptSegment> segments);

}  // namespace meetingcore
