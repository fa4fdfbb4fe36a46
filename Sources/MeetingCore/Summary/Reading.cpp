#include "MeetingCore/Summary/Reading.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Summary/EvidenceSummary.h"
#include "MeetingCore/Summary/SentenceRank.h"

namespace meetingcore {

namespace {

std::vector<std::string> nameOf(const TranscriptDocument& document, const TranscriptSegment& segment) {
    std::vector<std::string> name;
    if (!segment.speakerID) return name;
    const auto label = document.speakerLabel(segment);
    if (label == TranscriptDocument::defaultSpeakerLabel(*segment.speakerID)) return name;
    for (const auto word : text::words(label)) {
        if (word.size() > 2) name.push_back(text::lowercased(word));
    }
    return name;
}

/// The speakers' names and those that follow "Frau" or "Herr".
std::vector<std::string> namesIn(const TranscriptDocument& document, const GermanText& text) {
    std::set<std::string> names, seen;
    for (const auto& segment : document.segments) {
        if (!segment.speakerID || !seen.insert(*segment.speakerID).second) continue;
        for (auto& word : nameOf(document, segment)) names.insert(std::move(word));
    }
    for (const auto& sentence : text.sentences()) {
        const auto tokens = text.tokens(sentence);
        for (std::size_t i = 1; i < tokens.size(); ++i) {
            if (isTitleOfAddress(text.text(tokens[i - 1])) && text.words()[tokens[i].word].noun) {
                names.insert(text.text(tokens[i]));
            }
        }
    }
    return {names.begin(), names.end()};
}

}  // namespace

bool isTitleOfAddress(std::string_view word) { return word == "frau" || word == "herr" || word == "herrn"; }

Reading::Reading(const TranscriptDocument& of)
    : document(of), text(of.segments), rules(text, namesIn(of, text)), names(text.words().size()) {
    std::map<std::pair<AudioSource, std::string>, std::uint32_t> numbers;
    for (const auto& segment : of.segments) {
        const auto next = static_cast<std::uint32_t>(numbers.size() + 1);
        speakers.push_back(segment.speakerID
                               ? numbers.try_emplace({segment.source, *segment.speakerID}, next).first->second
                               : 0);
    }
    for (const auto& sentence : text.sentences()) {
        for (const auto& token : text.tokens(sentence)) names[token.word] = rules.isName(token);
    }
    centrality = rankSegments(text, of.segments.size(), names);
}

std::span<const GermanSentence> Reading::sentencesOf(std::uint32_t segment) const {
    const auto& all = text.sentences();
    const auto begin = std::lower_bound(all.begin(), all.end(), segment,
                                        [](const auto& a, std::uint32_t b) { return a.segment < b; });
    auto end = begin;
    while (end != all.end() && end->segment == segment) ++end;
    return {begin, end};
}

std::string Reading::passage(std::uint32_t segment, std::uint32_t begin, std::uint32_t end) const {
    return document.segments[segment].text.substr(begin, end - begin);
}

bool Reading::quotable(std::span<const std::uint32_t> cited) const {
    std::string joined;
    for (const auto segment : cited) joined += document.segments[segment].text + " ";
    return !text::trimmed(text::prefix(joined, EvidenceSummary::maximumQuoteCharacters)).empty();
}

std::string Reading::tellingPassage(std::uint32_t sentence) const {
    const auto& all = text.sentences();
    auto begin = sentence, end = sentence;
    if (text.contentWords(all[sentence]) < 2) {
        if (sentence > 0 && all[sentence - 1].segment == all[sentence].segment) {
            --begin;
        } else if (sentence + 1 < all.size() && all[sentence + 1].segment == all[sentence].segment) {
            ++end;
        }
    }
    return passage(all[sentence].segment, all[begin].begin, all[end].end);
}

std::vector<std::string> Reading::givenName(std::uint32_t segment) const {
    return nameOf(document, document.segments[segment]);
}

}  // namespace meetingcore
