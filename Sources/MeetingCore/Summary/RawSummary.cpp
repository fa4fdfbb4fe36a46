#include "MeetingCore/Summary/RawSummary.h"

#include <set>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

template RawSummary json::decode(std::string_view, const std::string&);

namespace {

/// The trimmed value if the passage, both lower-cased, contains it.
std::optional<std::string> ifNamed(const std::optional<std::string>& value,
                                   const std::string& lowercasedPassage) {
    const auto trimmed = text::trimmed(value ? std::string_view(*value) : std::string_view());
    if (trimmed.empty() || !text::contains(lowercasedPassage, text::lowercased(trimmed))) return std::nullopt;
    return std::string(trimmed);
}

}  // namespace

std::string sourceID(std::size_t position) { return "s" + std::to_string(position + 1); }

void RawSummary::append(const RawSummary& other) {
    const auto add = [](auto& to, const auto& from) { to.insert(to.end(), from.begin(), from.end()); };
    add(overview, other.overview);
    add(decisions, other.decisions);
    add(tasks, other.tasks);
    add(openQuestions, other.openQuestions);
}

SourceTable::SourceTable(const TranscriptDocument& document) : document_(document) {
    positions_.reserve(document.segments.size());
    for (std::size_t i = 0; i < document.segments.size(); ++i) positions_.emplace(sourceID(i), i);
}

std::vector<Source> SourceTable::sources() const {
    std::vector<Source> list;
    list.reserve(document_.segments.size());
    for (const auto& segment : document_.segments) {
        list.push_back({sourceID(list.size()), document_.speakerLabel(segment), segment.text});
    }
    return list;
}

EvidenceBullet SourceTable::converted(const RawBullet& bullet) const {
    EvidenceBullet result;
    result.text = bullet.text;
    std::set<std::size_t> positions;
    for (const auto& id : bullet.ids) {
        const auto found = positions_.find(id);
        if (found == positions_.end()) {
            throw MeetingError::invalidData("Zusammenfassung nennt eine unbekannte Quellen-ID.");
        }
        positions.insert(found->second);
        result.sourceSegmentIDs.push_back(document_.segments[found->second].id);
    }
    std::vector<TranscriptSegment> cited;
    std::string passage;
    for (const auto position : positions) {
        cited.push_back(document_.segments[position]);
        if (cited.size() > 1) passage += ' ';
        passage += cited.back().text;
    }
    passage = text::lowercased(passage);
    result.quote = EvidenceSummary::sourceQuote(result.sourceSegmentIDs, cited);
    result.owner = ifNamed(bullet.owner, passage);
    result.dueDate = ifNamed(bullet.dueDate, passage);
    return result;
}

EvidenceSummary SourceTable::checked(const RawSummary& raw) const {
    const auto convert = [&](const std::vector<RawBullet>& bullets) {
        std::vector<EvidenceBullet> results;
        results.reserve(bullets.size());
        for (const auto& bullet : bullets) results.push_back(converted(bullet));
        return results;
    };
    EvidenceSummary summary{convert(raw.overview), convert(raw.decisions), convert(raw.tasks),
                            convert(raw.openQuestions)};
    summary.validate(document_.segments);
    return summary;
}

}  // namespace meetingcore
