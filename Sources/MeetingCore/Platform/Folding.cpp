#include "MeetingCore/Platform/Folding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UTF8.h"

namespace meetingcore::text {

namespace {

constexpr std::int32_t replacementCharacter = 0xFFFD;
constexpr std::int32_t firstMark = 0x300;
constexpr std::int32_t lastCommonMark = 0x36F;
constexpr std::int32_t iotaMark = 0x345;  // the one mark that folds to a letter

void check(UErrorCode status) {
    if (U_FAILURE(status) != 0) throw std::runtime_error(u_errorName(status));
}

const UNormalizer2& decomposer() {
    static const UNormalizer2* const instance = [] {
        UErrorCode status = U_ZERO_ERROR;
        const auto* nfd = unorm2_getNFDInstance(&status);
        check(status);
        return nfd;
    }();
    return *instance;
}

// ICU's UTF-16 macros narrow integers on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"

/// Folding one scalar after the other is folding the text: no folded form decomposes again, and what canonical
/// ordering would move are marks that fall away.
void appendFoldedByRules(std::string& out, std::int32_t scalar) {
    constexpr std::int32_t capacity = 32;
    UChar decomposed[capacity];
    UErrorCode status = U_ZERO_ERROR;
    auto length = unorm2_getDecomposition(&decomposer(), scalar, decomposed, capacity, &status);
    if (length < 0) {
        length = 0;
        U16_APPEND_UNSAFE(decomposed, length, scalar);
    }
    UChar lowered[capacity];
    const auto loweredLength =
        u_strFoldCase(lowered, capacity, decomposed, length, U_FOLD_CASE_DEFAULT, &status);
    check(status);
    for (std::int32_t i = 0; i < loweredLength;) {
        UChar32 c = 0;
        U16_NEXT(lowered, i, loweredLength, c);
        if (u_charType(c) != U_NON_SPACING_MARK) appendScalar(out, c);
    }
}

#pragma GCC diagnostic pop

/// The folded forms of the scalars below U+0300, each a character of its own but for CR before LF.
struct LatinFold {
    std::array<char, 4> bytes;
    std::uint8_t size;
    bool isOneScalar;
};

const std::array<LatinFold, firstMark>& latinFolds() {
    static const auto table = [] {
        std::array<LatinFold, firstMark> folds{};
        for (std::int32_t c = 0; c < firstMark; ++c) {
            std::string fold;
            appendFoldedByRules(fold, c);
            auto& entry = folds[static_cast<std::size_t>(c)];
            entry.size = static_cast<std::uint8_t>(fold.copy(entry.bytes.data(), entry.bytes.size()));
            entry.isOneScalar = scalarAt(fold, 0).end == fold.size();
        }
        return folds;
    }();
    return table;
}

/// Dashes, quotation marks, ellipsis, bullets and currency signs: characters of their own that fold to
/// themselves.
constexpr bool isPlainSign(std::int32_t c) {
    return (c >= 0x2010 && c <= 0x2027) || (c >= 0x20A0 && c <= 0x20BF);
}

constexpr bool isCommonMark(std::int32_t c) { return c >= firstMark && c <= lastCommonMark && c != iotaMark; }

/// Whether a mark behind this scalar below U+0300 joins it; after control characters it stands alone.
constexpr bool takesMarks(std::int32_t c) {
    return (c >= 0x20 && c < 0x7F) || (c >= 0xA0 && c < firstMark && c != 0xAD);
}

std::size_t asciiRunEnd(std::string_view text, std::size_t offset) {
    constexpr std::uint64_t highBits = 0x8080808080808080ULL;
    while (offset + sizeof(std::uint64_t) <= text.size()) {
        std::uint64_t block = 0;
        std::memcpy(&block, text.data() + offset, sizeof(block));
        if ((block & highBits) != 0) break;
        offset += sizeof(block);
    }
    while (offset < text.size() && static_cast<unsigned char>(text[offset]) < 0x80) ++offset;
    return offset;
}

void appendLowerASCII(std::string& out, std::string_view ascii) {
    const auto start = out.size();
    out.append(ascii);
    for (auto i = start; i < out.size(); ++i) {
        const char c = out[i];
        out[i] = static_cast<char>(c + (c >= 'A' && c <= 'Z' ? 'a' - 'A' : 0));
    }
}

void appendFolded(std::string& out, std::int32_t scalar) {
    if (scalar < 0) scalar = replacementCharacter;
    if (scalar < firstMark) {
        const auto& fold = latinFolds()[static_cast<std::size_t>(scalar)];
        out.append(fold.bytes.data(), fold.size);
    } else if (isPlainSign(scalar)) {
        appendScalar(out, scalar);
    } else if (!isCommonMark(scalar)) {
        appendFoldedByRules(out, scalar);
    }
}

constexpr bool startsScalar(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

}  // namespace

std::string folded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        const auto end = asciiRunEnd(text, offset);
        appendLowerASCII(out, text.substr(offset, end - offset));
        offset = end;
        if (offset == text.size()) break;
        const auto scalar = scalarAt(text, offset);
        appendFolded(out, scalar.value);
        offset = scalar.end;
    }
    return out;
}

FoldedText::FoldedText(std::string_view text) {
    folded_.reserve(text.size());
    if (foldSimple(text)) return;
    folded_.clear();
    irregular_.clear();
    foldByRules(text);
}

/// Folds a text whose characters can be told without ICU's rules; false for any other.
bool FoldedText::foldSimple(std::string_view text) {
    if (text.find('\r') != std::string_view::npos) return false;
    const auto& latin = latinFolds();
    std::size_t characters = 0;
    bool joinsMarks = false;
    for (std::size_t offset = 0; offset < text.size();) {
        if (const auto end = asciiRunEnd(text, offset); end > offset) {
            appendLowerASCII(folded_, text.substr(offset, end - offset));
            characters += end - offset;
            offset = end;
            joinsMarks = takesMarks(text[end - 1]);
            continue;
        }
        const auto [value, end] = scalarAt(text, offset);
        if (isCommonMark(value)) {
            if (!joinsMarks) return false;
        } else if (value >= 0 && value < firstMark) {
            const auto& fold = latin[static_cast<std::size_t>(value)];
            const auto start = folded_.size();
            folded_.append(fold.bytes.data(), fold.size);
            if (!fold.isOneScalar) irregular_.push_back({characters, start, folded_.size()});
            ++characters;
            joinsMarks = takesMarks(value);
        } else if (isPlainSign(value)) {
            folded_.append(text.substr(offset, end - offset));
            ++characters;
            joinsMarks = true;
        } else {
            return false;
        }
        offset = end;
    }
    return true;
}

void FoldedText::foldByRules(std::string_view text) {
    std::size_t offset = 0;
    std::size_t character = 0;
    for (const auto characterEnd : characterEnds(text)) {
        const auto start = folded_.size();
        while (offset < characterEnd) {
            const auto scalar = scalarAt(text, offset);
            appendFolded(folded_, scalar.value);
            offset = scalar.end;
        }
        const auto added = std::string_view(folded_).substr(start);
        if (std::count_if(added.begin(), added.end(), startsScalar) != 1) {
            irregular_.push_back({character, start, folded_.size()});
        }
        ++character;
    }
}

/// Whether a character of the original begins or ends there, and not only part of its folded form.
bool FoldedText::isBoundary(std::size_t offset) const {
    const auto next = std::partition_point(irregular_.begin(), irregular_.end(),
                                           [&](const Irregular& i) { return i.end <= offset; });
    return next == irregular_.end() || next->start >= offset;
}

std::size_t FoldedText::find(std::string_view needle, std::size_t from) const {
    while (needle.size() <= folded_.size() - from) {
        // Much faster on common first letters than std::string::find.
        const void* const found =
            memmem(folded_.data() + from, folded_.size() - from, needle.data(), needle.size());
        if (found == nullptr) break;
        const auto start = static_cast<std::size_t>(static_cast<const char*>(found) - folded_.data());
        if (irregular_.empty() || (isBoundary(start) && isBoundary(start + needle.size()))) return start;
        from = start + 1;
    }
    return std::string::npos;
}

bool FoldedText::contains(std::string_view needle) const {
    return !needle.empty() && find(needle, 0) != std::string::npos;
}

/// Counts characters along the folded text, so that all hits of a text take one walk.
class FoldedText::Cursor {
public:
    explicit Cursor(const FoldedText& text) : text_(text) {}

    /// The index of the character that begins at this boundary; one without a folded form lies before it.
    std::size_t characterStartingAt(std::size_t offset) {
        while (next_ < text_.irregular_.size() && text_.irregular_[next_].end <= offset) pass();
        return advance(offset);
    }

    /// The number of characters that end at this boundary; one without a folded form lies behind it.
    std::size_t charactersEndingAt(std::size_t offset) {
        while (next_ < text_.irregular_.size() && text_.irregular_[next_].start < offset) pass();
        return advance(offset);
    }

private:
    void pass() {
        const auto& irregular = text_.irregular_[next_++];
        character_ = irregular.character + 1;
        offset_ = irregular.end;
    }

    std::size_t advance(std::size_t offset) {
        const auto passed = std::string_view(text_.folded_).substr(offset_, offset - offset_);
        character_ += static_cast<std::size_t>(std::count_if(passed.begin(), passed.end(), startsScalar));
        offset_ = offset;
        return character_;
    }

    const FoldedText& text_;
    std::size_t next_ = 0;       ///< the first irregular character not passed yet
    std::size_t character_ = 0;  ///< characters before `offset_`
    std::size_t offset_ = 0;
};

void FoldedText::appendHits(std::string_view needle, std::vector<CharacterRange>& hits) const {
    if (needle.empty()) return;
    Cursor cursor(*this);
    for (auto start = find(needle, 0); start != std::string::npos;
         start = find(needle, start + needle.size())) {
        const auto first = cursor.characterStartingAt(start);
        hits.push_back({first, cursor.charactersEndingAt(start + needle.size()) - first});
    }
}

}  // namespace meetingcore::text
