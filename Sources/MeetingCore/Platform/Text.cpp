#include "MeetingCore/Platform/Text.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>

#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>

#include "MeetingCore/Platform/UTF8.h"

namespace meetingcore::text {

namespace {

/// Scalars that are a character of their own whatever stands beside them, but for CR before LF: Latin letters,
/// German punctuation and currency signs. What follows must be one as well, since a mark joins what precedes
/// it.
constexpr bool standsAlone(UChar32 c) {
    return (c >= 0 && c < 0x300) || (c >= 0x2010 && c <= 0x2027) || (c >= 0x20A0 && c <= 0x20BF);
}

/// Walks the characters with ICU's rules. Kept per thread: opening the rules costs far more than one text.
class CharacterIterator {
public:
    explicit CharacterIterator(std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        utext_openUTF8(&source_, text.data(), static_cast<std::int64_t>(text.size()), &status);
        static thread_local const std::unique_ptr<UBreakIterator, void (*)(UBreakIterator*)> shared(open(),
                                                                                                    ubrk_close);
        iterator_ = shared.get();
        ubrk_setUText(iterator_, &source_, &status);
        if (U_FAILURE(status) != 0) throw std::runtime_error(u_errorName(status));
    }
    CharacterIterator(const CharacterIterator&) = delete;
    CharacterIterator& operator=(const CharacterIterator&) = delete;
    ~CharacterIterator() { utext_close(&source_); }

    /// The offset behind the next character; negative at the end.
    std::int32_t next() { return ubrk_next(iterator_); }

private:
    static UBreakIterator* open() {
        UErrorCode status = U_ZERO_ERROR;
        auto* iterator = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
        if (U_FAILURE(status) != 0) throw std::runtime_error(u_errorName(status));
        return iterator;
    }

    UText source_ = UTEXT_INITIALIZER;
    UBreakIterator* iterator_ = nullptr;
};

struct Measured {
    std::size_t characters;  ///< at most the limit
    std::size_t bytes;       ///< the bytes that they take
};

// ICU's break iterators count in 32 bits, so a longer text is measured piece by piece; a character cut at such
// a seam, a gigabyte in, is counted twice.
constexpr std::size_t pieceSize = std::numeric_limits<std::int32_t>::max() / 2;

/// A safe place for ICU to take over is before the last simple scalar, since a mark may join it.
Measured measureWithRules(std::string_view text, Measured done, std::size_t limit) {
    while (done.bytes < text.size() && done.characters < limit) {
        CharacterIterator iterator(text.substr(done.bytes, pieceSize));
        const auto start = done.bytes;
        for (auto end = iterator.next(); end >= 0 && done.characters < limit; end = iterator.next()) {
            ++done.characters;
            done.bytes = start + static_cast<std::size_t>(end);
        }
    }
    return done;
}

Measured measure(std::string_view text, std::size_t limit) {
    Measured done{0, 0};
    std::size_t offset = 0;
    Measured beforeLast = done;
    while (offset < text.size()) {
        const auto scalar = scalarAt(text, offset);
        if (!standsAlone(scalar.value)) return measureWithRules(text, beforeLast, limit);
        if (done.characters == limit) return done;
        auto end = scalar.end;
        if (scalar.value == '\r' && end < text.size() && text[end] == '\n') ++end;
        beforeLast = done;
        done = {done.characters + 1, end};
        offset = end;
    }
    return done;
}

bool isWhiteSpace(UChar32 c) {
    if (c < 0x80) return c == ' ' || (c >= '\t' && c <= '\r');
    return u_hasBinaryProperty(c, UCHAR_WHITE_SPACE) != 0;
}

constexpr UChar32 zeroWidthSpace = 0x200B;

bool isTrimmed(UChar32 c) { return c >= 0 && (isWhiteSpace(c) || c == zeroWidthSpace); }

/// Marks that join a preceding blank into one character.
bool extendsBlank(UChar32 c) {
    if (c < 0x300) return false;
    const auto kind = u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK);
    return kind == U_GCB_EXTEND || kind == U_GCB_SPACING_MARK || kind == U_GCB_ZWJ;
}

/// The end of the blank that starts at `offset`, marks on it included; `offset` itself where no blank starts.
std::size_t blankEnd(std::string_view text, std::size_t offset) {
    auto scalar = scalarAt(text, offset);
    if (scalar.value < 0 || !isWhiteSpace(scalar.value)) return offset;
    auto end = scalar.end;
    if (u_getIntPropertyValue(scalar.value, UCHAR_GRAPHEME_CLUSTER_BREAK) != U_GCB_OTHER) return end;
    while (end < text.size()) {
        scalar = scalarAt(text, end);
        if (!extendsBlank(scalar.value)) break;
        end = scalar.end;
    }
    return end;
}

void appendLowercased(std::string& out, std::string_view text) {
    constexpr UChar32 capitalIWithDot = 0x130;  // the one scalar whose lower case is two
    std::size_t offset = 0;
    while (offset < text.size()) {
        const auto c = static_cast<unsigned char>(text[offset]);
        if (c < 0x80) {
            out += static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
            ++offset;
            continue;
        }
        const auto scalar = scalarAt(text, offset);
        if (scalar.value < 0) {
            out += text.substr(offset, scalar.end - offset);
        } else if (scalar.value == capitalIWithDot) {
            out += "i\u0307";
        } else {
            appendScalar(out, u_tolower(scalar.value));
        }
        offset = scalar.end;
    }
}

template <class Word>
void forEachWord(std::string_view text, const Word& word) {
    std::size_t start = 0;
    std::size_t offset = 0;
    while (offset < text.size()) {
        const auto end = blankEnd(text, offset);
        if (end == offset) {
            offset = scalarAt(text, offset).end;
            continue;
        }
        if (offset > start) word(text.substr(start, offset - start));
        start = offset = end;
    }
    if (offset > start) word(text.substr(start));
}

/// Tells where the characters of a text end.
class Boundaries {
public:
    explicit Boundaries(std::string_view text) : text_(text) {}

    bool at(std::size_t offset) {
        if (offset == 0 || offset == text_.size()) return true;
        const auto before = scalarBefore(text_, offset).value;
        const auto next = scalarAt(text_, offset).value;
        if (standsAlone(before) && standsAlone(next)) return before != '\r' || next != '\n';
        if (ends_.empty()) ends_ = characterEnds(text_);
        return std::binary_search(ends_.begin(), ends_.end(), offset);
    }

private:
    std::string_view text_;
    std::vector<std::size_t> ends_;  // found only where single scalars do not tell
};

bool containsAsEncoded(std::string_view text, std::string_view part) {
    Boundaries boundaries(text);
    for (auto at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) {
        if (boundaries.at(at) && boundaries.at(at + part.size())) return true;
    }
    return false;
}

/// Canonically composed; bytes that are no UTF-8 become U+FFFD.
std::string composed(const icu::Normalizer2& composition, std::string_view text) {
    std::string out;
    icu::StringByteSink<std::string> sink(&out);
    UErrorCode status = U_ZERO_ERROR;
    composition.normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())), sink,
                              nullptr, status);
    if (U_FAILURE(status) != 0) throw std::runtime_error(u_errorName(status));
    return out;
}

}  // namespace

std::size_t characterCount(std::string_view text) {
    return measure(text, std::numeric_limits<std::size_t>::max()).characters;
}

bool exceeds(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return false;  // a character takes at least one byte
    return measure(text, limit).bytes < text.size();
}

std::string_view prefix(std::string_view text, std::size_t count) {
    if (text.size() <= count) return text;
    return text.substr(0, measure(text, count).bytes);
}

std::string_view trimmed(std::string_view text) {
    std::size_t start = 0;
    while (start < text.size()) {
        const auto scalar = scalarAt(text, start);
        if (!isTrimmed(scalar.value)) break;
        start = scalar.end;
    }
    std::size_t end = text.size();
    while (end > start) {
        const auto scalar = scalarBefore(text, end);
        if (!isTrimmed(scalar.value)) break;
        end = scalar.end;
    }
    return text.substr(start, end - start);
}

std::vector<std::size_t> characterEnds(std::string_view text) {
    std::vector<std::size_t> ends;
    for (std::size_t start = 0; start < text.size(); start = ends.back()) {
        CharacterIterator iterator(text.substr(start, pieceSize));
        for (auto end = iterator.next(); end >= 0; end = iterator.next()) {
            ends.push_back(start + static_cast<std::size_t>(end));
        }
    }
    return ends;
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    forEachWord(text, [&](std::string_view word) { found.push_back(word); });
    return found;
}

std::string lowercased(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    appendLowercased(out, text);
    return out;
}

std::string normalized(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    forEachWord(text, [&](std::string_view word) {
        if (!out.empty()) out += ' ';
        appendLowercased(out, word);
    });
    return out;
}

bool contains(std::string_view text, std::string_view part) {
    if (containsAsEncoded(text, part)) return true;
    UErrorCode status = U_ZERO_ERROR;
    const auto* const composition = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status) != 0) throw std::runtime_error(u_errorName(status));
    return containsAsEncoded(composed(*composition, text), composed(*composition, part));
}

bool containsControl(std::string_view text) {
    for (std::size_t offset = 0; offset < text.size();) {
        const auto scalar = scalarAt(text, offset);
        const auto category =
            scalar.value < 0 ? U_UNASSIGNED : static_cast<UCharCategory>(u_charType(scalar.value));
        if (category == U_CONTROL_CHAR || category == U_FORMAT_CHAR) return true;
        offset = scalar.end;
    }
    return false;
}

std::string repaired(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t offset = 0; offset < text.size();) {
        const auto scalar = scalarAt(text, offset);
        if (scalar.value < 0) {
            out += "\uFFFD";
        } else {
            out += text.substr(offset, scalar.end - offset);
        }
        offset = scalar.end;
    }
    return out;
}

std::string joined(std::span<const std::string> texts, std::string_view separator) {
    std::string result;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i > 0) result += separator;
        result += texts[i];
    }
    return result;
}

std::string replacing(std::string_view text, std::string_view needle, std::string_view replacement) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t offset = 0;;) {
        const auto found = text.find(needle, offset);
        out += text.substr(offset, found - offset);
        if (found == std::string_view::npos) return out;
        out += replacement;
        offset = found + needle.size();
    }
}

}  // namespace meetingcore::text
