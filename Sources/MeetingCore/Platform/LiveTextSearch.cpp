#include "MeetingCore/Platform/LiveTextSearch.h"

#include <algorithm>

#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

LiveTextSearch::LiveTextSearch(std::string_view query) {
    const auto words = text::words(query);
    terms_.assign(words.begin(), words.end());
    std::sort(terms_.begin(), terms_.end());
    terms_.erase(std::unique(terms_.begin(), terms_.end()), terms_.end());
    needles_.reserve(terms_.size());
    for (const auto& term : terms_) needles_.push_back(text::folded(term));
}

bool LiveTextSearch::matches(const text::FoldedText& text) const {
    return std::all_of(needles_.begin(), needles_.end(),
                       [&](const std::string& needle) { return text.contains(needle); });
}

bool LiveTextSearch::matches(std::string_view text) const { return matches(text::FoldedText(text)); }

std::vector<text::CharacterRange> LiveTextSearch::ranges(const text::FoldedText& text) const {
    std::vector<text::CharacterRange> hits;
    for (const auto& needle : needles_) text.appendHits(needle, hits);
    return hits;
}

std::vector<text::CharacterRange> LiveTextSearch::ranges(std::string_view text) const {
    return ranges(text::FoldedText(text));
}

std::vector<text::CharacterRange> LiveTextSearch::merged(std::vector<text::CharacterRange> ranges) {
    std::sort(ranges.begin(), ranges.end(), [](const auto& a, const auto& b) { return a.start < b.start; });
    std::vector<text::CharacterRange> merged;
    for (const auto& range : ranges) {
        if (merged.empty() || range.start > merged.back().end()) {
            merged.push_back(range);
        } else {
            merged.back().length = std::max(merged.back().end(), range.end()) - merged.back().start;
        }
    }
    return merged;
}

}  // namespace meetingcore
