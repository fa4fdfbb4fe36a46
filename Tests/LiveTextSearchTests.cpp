#include <memory>
#include <random>

#include <gmock/gmock.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/usearch.h>
#include <unicode/ustring.h>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UTF8.h"
#include "MeetingCore/Presentation/LiveTextSearch.h"

namespace meetingcore {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using text::CharacterRange;

using Ranges = std::vector<CharacterRange>;

std::u16string utf16(const std::string& text) {
    std::u16string out(text.size(), u'\0');
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromUTF8(out.data(), static_cast<std::int32_t>(out.size()), &length, text.data(),
                  static_cast<std::int32_t>(text.size()), &status);
    EXPECT_TRUE(U_SUCCESS(status)) << text;
    out.resize(static_cast<std::size_t>(length));
    return out;
}

std::string utf8(const std::u16string& text) {
    std::string out(text.size() * 3, '\0');
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strToUTF8(out.data(), static_cast<std::int32_t>(out.size()), &length, text.data(),
                static_cast<std::int32_t>(text.size()), &status);
    EXPECT_TRUE(U_SUCCESS(status));
    out.resize(static_cast<std::size_t>(length));
    return out;
}

TEST(Folding, IgnoresCaseAndAccentsOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {"Ärger", "arger"},
        {"A\u0308rger", "arger"},
        {"Straße STRASSE STRAẞE", "strasse strasse strasse"},
        {"ﬁ İ Å ñ ΣΑΣ", "fi i a n σασ"},
        {"ø ł æ đ ı ŉ", "ø ł æ đ ı ʼn"},
        {"가", "\u1100\u1161"},
        {"„Nein“ – 5 €…", "„nein“ – 5 €…"},
        {"\u0345\u0301", "ι"},
        {"a\xFFZ", "a\uFFFDz"},
        {"", ""},
    };
    for (const auto& [original, expected] : cases) {
        EXPECT_EQ(text::folded(original), expected) << original;
        EXPECT_EQ(text::FoldedText(original).string(), expected) << original;
    }
}

/// The same by whole-text operations: decompose, fold, drop marks.
std::string foldedByICU(const std::string& original) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* nfd = unorm2_getNFDInstance(&status);
    const auto source = utf16(original);
    std::u16string decomposed(source.size() * 4 + 8, u'\0');
    const auto length =
        unorm2_normalize(nfd, source.data(), static_cast<std::int32_t>(source.size()), decomposed.data(),
                         static_cast<std::int32_t>(decomposed.size()), &status);
    std::u16string lowered(decomposed.size() * 3, u'\0');
    lowered.resize(
        static_cast<std::size_t>(u_strFoldCase(lowered.data(), static_cast<std::int32_t>(lowered.size()),
                                               decomposed.data(), length, U_FOLD_CASE_DEFAULT, &status)));
    EXPECT_TRUE(U_SUCCESS(status));
    const auto marked = utf8(lowered);
    std::string out;
    for (std::size_t offset = 0; offset < marked.size();) {
        const auto scalar = text::scalarAt(marked, offset);
        if (u_charType(scalar.value) != U_NON_SPACING_MARK) text::appendScalar(out, scalar.value);
        offset = scalar.end;
    }
    return out;
}

TEST(Folding, FoldsEveryScalarAsICUDoes) {
    for (std::int32_t scalar = 1; scalar <= 0x10FFFF; ++scalar) {
        if (U_IS_SURROGATE(scalar) || (scalar > 0x1F000 && u_charType(scalar) == U_UNASSIGNED)) continue;
        std::string original = "x";
        text::appendScalar(original, scalar);
        const auto expected = foldedByICU(original);
        ASSERT_EQ(text::folded(original), expected) << std::hex << scalar;
        ASSERT_EQ(text::FoldedText(original).string(), expected) << std::hex << scalar;
    }
}

TEST(LiveTextSearch, TakesTheQueryApart) {
    EXPECT_THAT(LiveTextSearch("Budget \u00a0budget\n\tQ3   Budget").terms(),
                ElementsAre("Budget", "Q3", "budget"));
    EXPECT_THAT(LiveTextSearch("Äpfel Zebra apfel").terms(), ElementsAre("Zebra", "apfel", "Äpfel"));
    EXPECT_THAT(LiveTextSearch(" \u2028 ").terms(), IsEmpty());
}

TEST(LiveTextSearch, MatchesTextsWithEveryTerm) {
    struct {
        const char* query;
        const char* text;
        bool matches;
    } const cases[] = {
        {"Muller", "Herr Müller", true},
        {"mull ber", "Müller berichtet", true},
        {"berichtet müller", "Müller berichtet", true},
        {"Müller Maier", "Müller berichtet", false},
        {"STRASSE", "strasse", true},
        {"Straße", "DIE STRASSE", true},
        {"s", "Maß", false},
        {"stras", "Straße", false},
        {"", "irgendwas", true},
        {"  ", "", true},
        {"x", "", false},
        {"\u0301", "é", false},
        {"\U0001F468", "\U0001F468\u200D\U0001F469\u200D\U0001F467", false},
        {"\xB8", "ø", false},
    };
    for (const auto& [query, text, matches] : cases) {
        EXPECT_EQ(LiveTextSearch(query).matches(text), matches) << query << " in " << text;
        EXPECT_EQ(LiveTextSearch(query).matches(text::FoldedText(text)), matches) << query << " in " << text;
    }
}

TEST(LiveTextSearch, ReportsHitsInCharactersOfTheOriginal) {
    struct {
        const char* query;
        const char* text;
        Ranges expected;
    } const cases[] = {
        {"STRASSE", "Straße", {{0, 6}}},
        {"ss", "Straße", {{4, 1}}},
        {"SS", "Sträßchen straße", {{4, 1}, {14, 1}}},
        {"ete", "l’été", {{2, 3}}},
        {"été", "ete", {{0, 3}}},
        {"ss", "sß", {{1, 1}}},
        {"ss", "ssßs", {{0, 2}, {2, 1}}},
        {"aa", "aaaaa", {{0, 2}, {2, 2}}},
        {"e", "e\u0301\u0308x é", {{0, 1}, {3, 1}}},
        {"b", "a\r\nb", {{2, 1}}},
        {"b", "\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7b", {{2, 1}}},
        {"b", "a\n\u0301b", {{3, 1}}},
        {"fin", "ﬁnden ﬁ", {{0, 2}}},
        {"a b", "b ab", {{2, 1}, {0, 1}, {3, 1}}},
        {"ber über", "Überall", {{1, 3}, {0, 4}}},
    };
    for (const auto& [query, text, expected] : cases) {
        EXPECT_EQ(LiveTextSearch(query).ranges(text), expected) << query << " in " << text;
    }
}

TEST(LiveTextSearch, MergesRangesForHighlighting) {
    EXPECT_EQ(LiveTextSearch::merged({{8, 2}, {1, 3}, {0, 4}, {3, 3}, {6, 1}}), (Ranges{{0, 7}, {8, 2}}));
    EXPECT_EQ(LiveTextSearch::merged({{0, 9}, {2, 1}}), (Ranges{{0, 9}}));
    EXPECT_EQ(LiveTextSearch::merged({}), Ranges{});
}

/// The hits of ICU's own string search at primary strength, in characters.
Ranges hitsByICU(const std::string& text, const std::string& needle) {
    const auto text16 = utf16(text);
    const auto needle16 = utf16(needle);
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UCollator, decltype(&ucol_close)> collator(ucol_open("de_DE", &status), ucol_close);
    ucol_setStrength(collator.get(), UCOL_PRIMARY);
    ucol_setAttribute(collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
    const std::unique_ptr<UStringSearch, decltype(&usearch_close)> search(
        usearch_openFromCollator(needle16.data(), static_cast<std::int32_t>(needle16.size()), text16.data(),
                                 static_cast<std::int32_t>(text16.size()), collator.get(), nullptr, &status),
        usearch_close);
    EXPECT_TRUE(U_SUCCESS(status));
    const auto characters = [&](std::int32_t units) {
        return text::characterCount(utf8(text16.substr(0, static_cast<std::size_t>(units))));
    };
    Ranges hits;
    for (auto at = usearch_first(search.get(), &status); at != USEARCH_DONE;
         at = usearch_next(search.get(), &status)) {
        const auto start = characters(at);
        hits.push_back({start, characters(at + usearch_getMatchedLength(search.get())) - start});
    }
    return hits;
}

TEST(LiveTextSearch, FindsWhatICUFindsInGermanText) {
    const std::vector<std::string> pieces = {
        "Straße", "STRASSE", "Mu\u0308ller", "Müller", "MASSE", "Maße", "ß",    "é",  "e\u0301te\u0301",
        "sss",    "Ärger",   "ÄRGER",        "s",      "a",     "Öl",   "Café", "Q3", "Süßes"};
    std::mt19937 random(5);
    const auto pick = [&](std::size_t count) { return static_cast<std::size_t>(random() % count); };
    std::size_t hits = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        for (std::size_t words = 1 + pick(8); words > 0; --words) {
            text += pieces[pick(pieces.size())];
            if (pick(3) > 0) text += ' ';
        }
        const auto& piece = pieces[pick(pieces.size())];
        const auto needle = std::string(text::prefix(piece, 1 + pick(text::characterCount(piece))));
        const auto expected = hitsByICU(text, needle);
        ASSERT_EQ(LiveTextSearch(needle).ranges(text), expected) << needle << " in " << text;
        hits += expected.size();
    }
    EXPECT_GT(hits, 1000U);
}

}  // namespace
}  // namespace meetingcore
