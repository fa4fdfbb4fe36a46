#include "MeetingCore/Summary/EvidenceSummary.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <unordered_set>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

template EvidenceSummary json::decode(std::string_view, const std::string&);

namespace {

constexpr std::size_t maximumPoints = 100;
constexpr std::size_t maximumTextCharacters = 2000;
constexpr std::size_t maximumQuotedSegments = 3;

using TextByID = std::unordered_map<UUID, std::string_view>;

[[noreturn]] void failForSources() {
    throw MeetingError::invalidData("Zusammenfassung enthält fehlende oder unbekannte Quellen.");
}

bool areDistinct(std::span<const UUID> ids) {
    return std::unordered_set<UUID>(ids.begin(), ids.end()).size() == ids.size();
}

void requireSources(const EvidenceBullet& bullet, const TextByID& texts) {
    const auto& ids = bullet.sourceSegmentIDs;
    const bool complete =
        !text::trimmed(bullet.text).empty() && !text::exceeds(bullet.text, maximumTextCharacters) &&
        !ids.empty() && areDistinct(ids) &&
        std::all_of(ids.begin(), ids.end(), [&](const UUID& id) { return texts.contains(id); }) &&
        !bullet.quote.empty();
    if (!complete) failForSources();
}

std::string normalizedPassage(const EvidenceBullet& bullet, const TextByID& texts) {
    std::string passage;
    for (const auto& id : bullet.sourceSegmentIDs) {
        if (!passage.empty()) passage += ' ';
        passage += texts.at(id);
    }
    return text::normalized(passage);
}

void validateBullet(const EvidenceBullet& bullet, const TextByID& texts) {
    requireSources(bullet, texts);
    const auto passage = normalizedPassage(bullet, texts);
    const auto occurs = [&](const std::string& part) {
        const auto words = text::normalized(part);
        return !words.empty() && text::contains(passage, words);
    };
    if (!occurs(bullet.quote)) {
        throw MeetingError::invalidData("Eine Quellenstelle stimmt nicht mit dem Transkript überein.");
    }
    if (bullet.owner && !bullet.owner->empty() && !occurs(*bullet.owner)) {
        throw MeetingError::invalidData("Verantwortlicher ist nicht in der Quellenstelle genannt.");
    }
    if (bullet.dueDate && !bullet.dueDate->empty() && !occurs(*bullet.dueDate)) {
        throw MeetingError::invalidData("Termin ist nicht in der Quellenstelle genannt.");
    }
}

}  // namespace

void EvidenceSummary::validate(std::span<const TranscriptSegment> segments) const {
    const std::array categories{&overview, &decisions, &tasks, &openQuestions};
    std::size_t count = 0;
    for (const auto* category : categories) count += category->size();
    if (count > maximumPoints) throw MeetingError::invalidData("Zu viele Zusammenfassungspunkte.");
    if (count == 0) return;

    // A few points cite few of perhaps a hundred thousand segments.
    std::unordered_set<UUID> cited;
    for (const auto* category : categories) {
        for (const auto& bullet : *category) {
            cited.insert(bullet.sourceSegmentIDs.begin(), bullet.sourceSegmentIDs.end());
        }
    }
    TextByID texts;
    for (const auto& segment : segments) {
        if (cited.contains(segment.id)) texts.emplace(segment.id, segment.text);
    }
    for (const auto* category : categories) {
        for (const auto& bullet : *category) validateBullet(bullet, texts);
    }
}

std::string EvidenceSummary::sourceQuote(std::span<const UUID> ids,
                                         std::span<const TranscriptSegment> segments) {
    const std::unordered_set<UUID> wanted(ids.begin(), ids.end());
    if (ids.empty() || ids.size() > maximumQuotedSegments || wanted.size() != ids.size()) failForSources();
    std::string joined;
    std::unordered_set<UUID> found;
    for (const auto& segment : segments) {
        if (!wanted.contains(segment.id)) continue;
        if (!found.empty()) joined += ' ';
        joined += segment.text;
        found.insert(segment.id);
    }
    if (found.size() != wanted.size()) failForSources();
    const auto quote = text::trimmed(text::prefix(joined, maximumQuoteCharacters));
    if (quote.empty()) throw MeetingError::invalidData("Die Quellenstelle enthält keinen Text.");
    return std::string(quote);
}

bool isBorneOut(const EvidenceBullet& point, std::span<const TranscriptSegment> segments) {
    EvidenceSummary alone;
    alone.overview.push_back(point);
    try {
        alone.validate(segments);
        return true;
    } catch (const MeetingError&) {
        return false;
    }
}

}  // namespace meetingcore
