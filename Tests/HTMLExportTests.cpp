#include <cmath>
#include <fstream>

#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UTF8.h"
#include "MeetingCore/Presentation/HTMLExport.h"
#include "MeetingCore/Presentation/LiveTextSearch.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "Support/ExportSample.h"
#include "Support/Process.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

struct SearchResult {
    std::string query;
    std::vector<std::string> found;
    std::vector<std::string> marks;
};

/// What the scenario page.js expects of a page.
struct PageData {
    std::string title;
    std::vector<std::string> texts;  ///< of the segments, as they are shown
    std::vector<std::string> names;  ///< of the blocks
    std::vector<std::string> colors;
    std::vector<std::string> quotes;
    std::int64_t jump = 0;  ///< the number of a cited segment
    std::vector<std::string> elapsed;
    std::vector<std::string> clock;
    std::vector<SearchResult> searches;
    std::map<std::string, std::string> folded;         ///< the scalars that folding changes
    std::vector<std::vector<std::int64_t>> unchanged;  ///< ranges of those that it does not
};

}  // namespace

template <>
inline constexpr auto json::fields<SearchResult> = json::record(json::field("query", &SearchResult::query),
                                                                json::field("found", &SearchResult::found),
                                                                json::field("marks", &SearchResult::marks));

template <>
inline constexpr auto json::fields<PageData> =
    json::record(json::field("title", &PageData::title), json::field("texts", &PageData::texts),
                 json::field("names", &PageData::names), json::field("colors", &PageData::colors),
                 json::field("quotes", &PageData::quotes), json::field("jump", &PageData::jump),
                 json::field("elapsed", &PageData::elapsed), json::field("clock", &PageData::clock),
                 json::field("searches", &PageData::searches), json::field("folded", &PageData::folded),
                 json::field("unchanged", &PageData::unchanged));

namespace {

using testing::ExportSample;
using testing::numberedID;
using testing::spoken;
using enum AudioSource;

const std::string evil =
    "<script>window.injected = 1</script></style></title><img src=\"https://example.invalid/\" "
    "onerror='window.injected = 2'>&lt;b&gt; <b>fett</b>";

/// A meeting with every colour and every kind of text that a page could take for its own.
ExportSample pageSample() {
    ExportSample sample;
    sample.entry.title = "Budget </title>" + evil;
    sample.entry.notes = evil;
    sample.entry.metadata->participants.push_back(evil);
    sample.entry.metadata->fields[0] = {numberedID(901), "Feld" + evil, evil};
    sample.document.edits.speakerNames["2"] = "Petra " + evil;
    for (unsigned i = 3; i <= 10; ++i) {
        sample.document.segments.push_back(
            spoken(i + 10, 60 + i * 10, 62 + i * 10, meeting, std::to_string(i),
                   i == 4 ? evil + "STRASSE" : "Maße, sß und l’été \U0001F469\u200D\U0001F467 "));
    }
    sample.document.segments.push_back(spoken(30, 200, 201, meeting, "10", "nach einer Pause in der Strasse"));
    sample.document.segments.push_back(spoken(31, 201, 202, meeting, "10", " \n"));
    auto& summary = sample.artifact.summary;
    summary.decisions.push_back({evil, {numberedID(14), numberedID(30)}, evil, {}, {}});
    sample.renewFingerprint();
    return sample;
}

SearchResult searchFor(const std::string& query, const std::vector<std::string>& texts) {
    SearchResult result{query, {}, {}};
    const LiveTextSearch search(query);
    for (const auto& shown : texts) {
        if (!search.matches(shown)) continue;
        result.found.push_back(shown);
        for (const auto& range : LiveTextSearch::merged(search.ranges(shown))) {
            const auto before = text::prefix(shown, range.start).size();
            result.marks.emplace_back(text::prefix(std::string_view(shown).substr(before), range.length));
        }
    }
    return result;
}

/// The browser may know a newer Unicode than ICU; in the basic plane the two hardly differ.
void addFolding(PageData& data) {
    for (std::int32_t scalar = 0; scalar <= 0xFFFF; ++scalar) {
        const auto type = u_charType(scalar);
        if (type == U_UNASSIGNED || type == U_SURROGATE || type == U_PRIVATE_USE_CHAR) continue;
        std::string original;
        text::appendScalar(original, scalar);
        if (auto folded = text::folded(original); folded != original) {
            data.folded[std::to_string(scalar)] = std::move(folded);
        } else if (!data.unchanged.empty() && data.unchanged.back()[1] == scalar - 1) {
            data.unchanged.back()[1] = scalar;
        } else {
            data.unchanged.push_back({scalar, scalar});
        }
    }
}

PageData expectationsOf(const ExportSample& sample) {
    PageData data;
    data.title = sample.entry.title;
    const auto blocks = TranscriptLayout::blocks(sample.document, false);
    const auto colors = SpeakerColors::assignments(blocks, SpeakerColorPreset::violet);
    for (const auto& block : blocks) {
        data.names.push_back(MeetingExport::speakerName(sample.document, block.firstSegment()));
        data.colors.emplace_back(json::nameOf(colors.at(block.speaker)));
        for (const auto& segment : block.segments) data.texts.emplace_back(text::trimmed(segment.text));
    }
    for (const auto& category : MeetingExport::categories) {
        for (const auto& point : sample.artifact.summary.*category.points) data.quotes.push_back(point.quote);
    }
    data.jump = 15;
    data.elapsed = {"00:00:00", "00:00:04"};
    data.clock = {"10:26:53", "10:26:57"};
    for (const char* query :
         {"strasse", "MULLER zahlen", "ss", "s", "été", "< script", "e ei in", "\U0001F469", "\u0301"}) {
        data.searches.push_back(searchFor(query, data.texts));
    }
    addFolding(data);
    return data;
}

const std::filesystem::path readers = std::filesystem::path(__FILE__).parent_path() / "Readers";

bool isInstalled(const std::string& program) {
    return testing::runProcess("/bin/sh", {"-c", "command -v " + program}).status == 0;
}

/// Runs a scenario of the folder Readers on a page in a browser.
void expectInBrowser(const std::string& page, const std::string& scenario, const std::string& data) {
    for (const char* program : {"chromium", "chromedriver", "python3"}) {
        if (!isInstalled(program)) GTEST_SKIP() << program << " is not installed";
    }
    const testing::TemporaryFolder folder;
    std::ofstream(folder.path() / "page.html", std::ios::binary) << page;
    std::ofstream(folder.path() / "data.json", std::ios::binary) << data;
    const auto result = testing::runProcess(
        "/usr/bin/env",
        {"python3", (readers / "drive_page.py").string(), (folder.path() / "page.html").string(),
         (readers / scenario).string(), (folder.path() / "data.json").string()},
        {{"HOME", folder.path().string()}, {"XDG_CONFIG_HOME", folder.path().string()}});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(HTMLExport, IsAPageThatABrowserShowsAndSearches) {
    const auto sample = pageSample();
    ASSERT_EQ(MeetingExport::summaryState(sample.exported()), SummaryState::current);
    expectInBrowser(HTMLExport::render(sample.exported(), {.personal = SpeakerColorPreset::violet}), "page.js",
                    json::encode(expectationsOf(sample)));
}

TEST(HTMLExport, NamesWhatIsMissingOrStale) {
    MeetingEntry entry;
    const auto empty = HTMLExport::render({entry}, {.times = TranscriptTimestampMode::clock});
    for (const auto text :
         {MeetingExport::noNotesText, MeetingExport::noSummaryText, MeetingExport::noTranscriptText}) {
        EXPECT_NE(empty.find(text), std::string::npos) << text;
    }
    EXPECT_NE(empty.find("data-times=\"elapsed\""), std::string::npos);  // no clock, no times of day
    ExportSample sample;
    sample.document.segments[0].text += "!";
    const auto stale = HTMLExport::render(sample.exported(), {.times = TranscriptTimestampMode::clock});
    EXPECT_NE(stale.find(MeetingExport::staleSummaryText), std::string::npos);
    EXPECT_EQ(stale.find("Das Budget für Q3 wurde besprochen."), std::string::npos);
    EXPECT_NE(stale.find("data-times=\"clock\""), std::string::npos);
}

TEST(SubtitleExport, IsReadAsWebVTTByABrowser) {
    auto document = pageSample().document;
    document.segments[0].text = "Erste Zeile\r\n\r\n00:00 --> 00:01\nNOTE & &amp; \u2028Ende";
    document.segments[1].speakerID = "x > y & z\n\"";
    document.segments.push_back(spoken(40, 360'000.5, 360'000.25, meeting, {}, "nach hundert Stunden"));
    std::string cues;
    for (const auto& segment : document.segments) {
        const auto shown = MeetingExport::singleLine(segment.text);
        if (shown.empty()) continue;
        const auto end = std::max(segment.endSeconds, std::round(segment.startSeconds * 1000 + 1) / 1000);
        cues += (cues.empty() ? "[[" : ",[") + json::encode(segment.id) + "," +
                json::encode(segment.startSeconds) + "," + json::encode(end) + "," +
                json::encode(MeetingExport::singleLine(MeetingExport::speakerName(document, segment))) + "," +
                json::encode(shown) + ",1]";
    }
    expectInBrowser("<!DOCTYPE html><title>Untertitel</title>", "captions.js",
                    "{\"file\":" + json::encode(SubtitleExport::webVTT(document)) + ",\"cues\":" + cues + "]}");
}

}  // namespace
}  // namespace meetingcore
