#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "MeetingCore/Summary/EvidenceSummary.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// One point as an engine delivers it. It cites sources by their numbers.
struct RawBullet {
    std::string text;
    std::vector<std::string> ids;  ///< "s1", "s2", …
    std::optional<std::string> owner;
    std::optional<std::string> dueDate;

    bool operator==(const RawBullet&) const = default;
};

template <>
inline constexpr auto json::fields<RawBullet> = json::record(json::field("text", &RawBullet::text),
                                                             json::field("ids", &RawBullet::ids),
                                                             json::field("owner", &RawBullet::owner),
                                                             json::field("dueDate", &RawBullet::dueDate));

/// The number by which an engine cites the segment at this position: "s1" is the first.
std::string sourceID(std::size_t position);

/// An engine's whole answer. The language model's comes as JSON, and partial results are cached and merged in
/// this form.
struct RawSummary {
    std::vector<RawBullet> overview;
    std::vector<RawBullet> decisions;
    std::vector<RawBullet> tasks;
    std::vector<RawBullet> openQuestions;

    /// Adds another result's points behind the own ones, category by category.
    void append(const RawSummary& other);

    bool operator==(const RawSummary&) const = default;
};

template <>
inline constexpr auto json::fields<RawSummary> = json::record(
    json::field("overview", &RawSummary::overview), json::field("decisions", &RawSummary::decisions),
    json::field("tasks", &RawSummary::tasks), json::field("openQuestions", &RawSummary::openQuestions));

/// One transcript segment as an engine sees it.
struct Source {
    std::string id;       ///< "s" and the segment's position in the document, from 1
    std::string speaker;  ///< its label
    std::string text;
};

template <>
inline constexpr auto json::fields<Source> = json::record(json::field("id", &Source::id),
                                                          json::field("speaker", &Source::speaker),
                                                          json::field("text", &Source::text));

/// Leads from source numbers back to the segments of one document, which it refers to.
class SourceTable {
public:
    explicit SourceTable(const TranscriptDocument& document);

    /// The sources in document order.
    std::vector<Source> sources() const;

    /// The answer with segment identifiers and quotes from the transcript, checked against it. An owner or due
    /// date that the cited segments do not contain is left out: no engine can put in a name or a date.
    /// Throws MeetingError (invalidData) for unknown sources and whatever the evidence rules refuse.
    EvidenceSummary checked(const RawSummary& raw) const;

private:
    EvidenceBullet converted(const RawBullet& bullet) const;

    const TranscriptDocument& document_;
    std::unordered_map<std::string, std::size_t> positions_;
};

}  // namespace meetingcore
