#include <memory>
#include <random>

#include <unicode/normalizer2.h>
#include <unicode/stsearch.h>
#include <unicode/tblcoll.h>

#include "MeetingCore/Platform/LiveTextSearch.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UTF8.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using Ranges = std::vector<text::CharacterRange>;

/// The same by whole-text operations: decompose, fold, drop marks.
std::string foldedByICU(const std::string& original) {
    UErrorCode status = U_ZERO_ERROR;
    const auto decomposed =
        icu::Normalizer2::getNFDInstance(status)->normalize(icu::UnicodeString::fromUTF8(original), status);
    const auto lowered = icu::UnicodeString(decomposed).foldCase();
    icu::UnicodeString kept;
    for (std::int32_t at = 0; at < lowered.length(); at = lowered.moveIndex32(at, 1))
        if (u_charType(lowered.char32At(at)) != U_NON_SPACING_MARK) kept += lowered.char32At(at);
    std::string out;
    return kept.toUTF8String(out);
}

void expectFolded(const std::string& original, const std::string& expected) {
    ASSERT_EQ(text::folded(original), expected) << original;
    ASSERT_EQ(text::FoldedText(original).string(), expected) << original;
}

TEST(Folding, IgnoresCaseAndAccentsOnlyAndFoldsEveryScalarAsICUDoes) {
    const std::pair<const char*, const char*> cases[] = {// clang-format off
        {"Ärger A\u0308rger", "arger arger"}, {"Straße STRASSE STRAẞE", "strasse strasse strasse"}, {"가", "\u1100\u1161"},
        {"ﬁ İ Å ñ ΣΑΣ", "fi i a n σασ"}, {"ø ł æ đ ı ŉ", "ø ł æ đ ı ʼn"}, {"„Nein“ – 5 €…", "„nein“ – 5 €…"},
        {"\u0345\u0301", "ι"}, {"a\xFFZ", "a\uFFFDz"}, {"", ""}};
    // clang-format on
    for (const auto& [original, expected] : cases) expectFolded(original, expected);
    for (std::int32_t scalar = 1; scalar <= 0x10FFFF && !HasFatalFailure(); ++scalar) {
        if (U_IS_SURROGATE(scalar) || (scalar > 0x1F000 && u_charType(scalar) == U_UNASSIGNED)) continue;
        std::string original = "x";
        text::appendScalar(original, scalar);
        expectFolded(original, foldedByICU(original));
    }
}

TEST(LiveTextSearch, MatchesTextsWithEveryTermOfTheQuery) {
    const auto terms = [](const char* query) { return LiveTextSearch(query).terms(); };
    EXPECT_THAT(terms("Budget \u00a0budget\n\tQ3   Budget"), ElementsAre("Budget", "Q3", "budget"));
    EXPECT_THAT(terms("Äpfel Zebra apfel"), ElementsAre("Zebra", "apfel", "Äpfel"));
    EXPECT_THAT(terms(" \u2028 "), IsEmpty());
    const std::tuple<const char*, const char*, bool> cases[] = {
        // clang-format off
        {"Muller", "Herr Müller", true}, {"mull ber", "Müller berichtet", true}, {"berichtet müller", "Müller berichtet", true},
        {"Müller Maier", "Müller berichtet", false}, {"STRASSE", "strasse", true}, {"Straße", "DIE STRASSE", true},
        {"s", "Maß", false}, {"stras", "Straße", false}, {"", "irgendwas", true}, {"  ", "", true}, {"x", "", false},
        {"\u0301", "é", false}, {"\U0001F468", "\U0001F468\u200D\U0001F469\u200D\U0001F467", false}, {"\xB8", "ø", false}};
    // clang-format on
    for (const auto& [query, text, matches] : cases) {
        EXPECT_EQ(LiveTextSearch(query).matches(text), matches) << query << " in " << text;
        EXPECT_EQ(LiveTextSearch(query).matches(text::FoldedText(text)), matches) << query << " in " << text;
    }
}

TEST(LiveTextSearch, ReportsHitsInCharactersOfTheOriginal) {
    const std::tuple<const char*, const char*, Ranges> cases[] = {
        // clang-format off
        {"STRASSE", "Straße", {{0, 6}}}, {"ss", "Straße", {{4, 1}}}, {"SS", "Sträßchen straße", {{4, 1}, {14, 1}}},
        {"ete", "l’été", {{2, 3}}}, {"été", "ete", {{0, 3}}}, {"ss", "sß", {{1, 1}}}, {"ss", "ssßs", {{0, 2}, {2, 1}}},
        {"aa", "aaaaa", {{0, 2}, {2, 2}}}, {"e", "e\u0301\u0308x é", {{0, 1}, {3, 1}}}, {"b", "a\r\nb", {{2, 1}}},
        {"b", "\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7b", {{2, 1}}}, {"b", "a\n\u0301b", {{3, 1}}}, {"fin", "ﬁnden ﬁ", {{0, 2}}},
        {"a b", "b ab", {{2, 1}, {0, 1}, {3, 1}}}, {"ber über", "Überall", {{1, 3}, {0, 4}}}};
    // clang-format on
    for (const auto& [query, text, expected] : cases)
        EXPECT_EQ(LiveTextSearch(query).ranges(text), expected) << query << " in " << text;
    EXPECT_EQ(LiveTextSearch::merged({{8, 2}, {1, 3}, {0, 4}, {3, 3}, {6, 1}, {8, 1}}),
              (Ranges{{0, 7}, {8, 2}}));
}

/// The hits of ICU's own string search at primary strength, in characters.
Ranges hitsByICU(const std::string& text, const std::string& needle) {
    UErrorCode status = U_ZERO_ERROR;
    static const std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance("de_DE", status));
    collator->setStrength(icu::Collator::PRIMARY);
    collator->setAttribute(UCOL_NORMALIZATION_MODE, UCOL_ON, status);
    const auto text16 = icu::UnicodeString::fromUTF8(text);
    icu::StringSearch search(icu::UnicodeString::fromUTF8(needle), text16,
                             static_cast<icu::RuleBasedCollator*>(collator.get()), nullptr, status);
    const auto characters = [&](std::int32_t units) {
        std::string before;
        return text::characterCount(text16.tempSubString(0, units).toUTF8String(before));
    };
    Ranges hits;
    for (auto at = search.first(status); at != USEARCH_DONE; at = search.next(status)) {
        const auto start = characters(at);
        hits.push_back({start, characters(at + search.getMatchedLength()) - start});
    }
    EXPECT_TRUE(U_SUCCESS(status));
    return hits;
}

TEST(LiveTextSearch, FindsWhatICUFindsInGermanText) {
    const std::vector<std::string> pieces = {
        // clang-format off
        "Straße", "STRASSE", "Mu\u0308ller", "Müller", "MASSE", "Maße", "ß", "é", "e\u0301te\u0301", "sss", "Ärger", "ÄRGER",
        "s", "a", "Öl", "Café", "Q3", "Süßes"};
    // clang-format on
    std::mt19937 random(5);
    const auto pick = [&](std::size_t count) { return static_cast<std::size_t>(random() % count); };
    std::size_t hits = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        for (auto words = 1 + pick(8); words > 0; --words)
            text += pieces[pick(pieces.size())] + (pick(3) > 0 ? " " : "");
        const auto& piece = pieces[pick(pieces.size())];
        const auto needle = std::string(text::prefix(piece, 1 + pick(text::characterCount(piece))));
        const auto expected = hitsByICU(text, needle);
        ASSERT_EQ(LiveTextSearch(needle).ranges(text), expected) << needle << " in " << text;
        hits += expected.size();
    }
    EXPECT_GT(hits, 1000U);
}

}  // namespace
}  // namespace meetingcore::testing
