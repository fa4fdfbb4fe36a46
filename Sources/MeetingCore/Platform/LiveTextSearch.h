#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/Folding.h"

namespace meetingcore {

/// The matcher behind a transcript's search field. A text matches when it contains every word of the query,
/// in any order, without regard to case and accents. Immutable, hence thread-safe.
///
/// A list that is searched while the user types keeps a text::FoldedText beside each of its texts; given a
/// plain text, each call folds it.
class LiveTextSearch {
public:
    explicit LiveTextSearch(std::string_view query);

    /// The query's words in ascending order of their scalars, each once; words that differ only in case stay.
    const std::vector<std::string>& terms() const noexcept { return terms_; }

    /// A query without words matches every text.
    bool matches(const text::FoldedText& text) const;
    bool matches(std::string_view text) const;

    /// Where the terms occur: for each term in order its hits from left to right. Hits of different terms may
    /// overlap.
    std::vector<text::CharacterRange> ranges(const text::FoldedText& text) const;
    std::vector<text::CharacterRange> ranges(std::string_view text) const;

    /// The ranges for highlighting: ascending, with those that overlap or touch made one.
    static std::vector<text::CharacterRange> merged(std::vector<text::CharacterRange> ranges);

private:
    std::vector<std::string> terms_;
    std::vector<std::string> needles_;  ///< the terms folded, in the same order
};

}  // namespace meetingcore
