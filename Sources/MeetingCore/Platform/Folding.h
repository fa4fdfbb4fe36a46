#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace meetingcore::text {

/// The form in which texts are compared without regard to case and accents: canonical decomposition, then full
/// case folding, without non-spacing marks. `Ärger` and `arger` share it, and so do `Straße` and `STRASSE`;
/// `ø`, `ł`, `æ` and `ı` are letters of their own. Invalid UTF-8 becomes U+FFFD.
std::string folded(std::string_view text);

/// A stretch of a text, counted in characters (grapheme clusters).
struct CharacterRange {
    std::size_t start = 0;
    std::size_t length = 0;

    std::size_t end() const { return start + length; }
    bool operator==(const CharacterRange&) const = default;
};

/// A folded text that knows its way back to the characters of the original, for searching the same text many
/// times. Takes about as much memory as the original, which it does not refer to.
///
/// A hit begins and ends between characters of the original, as with ICU's string search: `ss` is found in
/// `Straße`, while `s` is not found within its `ß`.
class FoldedText {
public:
    FoldedText() = default;
    explicit FoldedText(std::string_view text);

    const std::string& string() const noexcept { return folded_; }

    /// Whether a needle, which must be folded, occurs. The empty needle never does.
    bool contains(std::string_view needle) const;

    /// Appends every occurrence from left to right; the search resumes behind each hit.
    void appendHits(std::string_view needle, std::vector<CharacterRange>& hits) const;

private:
    /// A character whose folded form is not exactly one scalar; rare in most languages.
    struct Irregular {
        std::size_t character;
        std::size_t start;  ///< bytes in the folded text
        std::size_t end;
    };
    class Cursor;

    bool foldSimple(std::string_view text);
    void foldByRules(std::string_view text);
    bool isBoundary(std::size_t offset) const;
    std::size_t find(std::string_view needle, std::size_t from) const;

    std::string folded_;
    std::vector<Irregular> irregular_;  ///< by `start`
};

}  // namespace meetingcore::text
