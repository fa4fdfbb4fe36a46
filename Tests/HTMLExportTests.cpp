#include <cmath>

#include <unicode/uchar.h>

#include "MeetingCore/Platform/LiveTextSearch.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UTF8.h"
#include "MeetingCore/Presentation/HTMLExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "Support/ExportSample.h"
#include "Support/Process.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using enum AudioSource;
using Texts = std::vector<std::string>;

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

std::string field(const std::string& name, const auto& value) {
    return json::encode(name) + ":" + json::encode(value);
}

/// A query with the texts that it finds and what is marked in them.
std::string searchFor(const std::string& query, const Texts& texts) {
    Texts found, marks;
    const LiveTextSearch search(query);
    for (const auto& shown : texts) {
        if (!search.matches(shown)) continue;
        found.push_back(shown);
        for (const auto& range : LiveTextSearch::merged(search.ranges(shown))) {
            const auto before = text::prefix(shown, range.start).size();
            marks.emplace_back(text::prefix(std::string_view(shown).substr(before), range.length));
        }
    }
    return "{" + field("query", query) + "," + field("found", found) + "," + field("marks", marks) + "}";
}

/// The scalars that folding changes, and the ranges of those that it does not. The browser may know a newer
/// Unicode than ICU; in the basic plane the two hardly differ.
std::string folding() {
    std::map<std::string, std::string> changed;
    std::vector<std::vector<std::int64_t>> unchanged{{0, 0}};
    for (std::int32_t scalar = 1; scalar <= 0xFFFF; ++scalar) {
        const auto type = u_charType(scalar);
        if (type == U_UNASSIGNED || type == U_SURROGATE || type == U_PRIVATE_USE_CHAR) continue;
        std::string original;
        text::appendScalar(original, scalar);
        const auto folded = text::folded(original);
        if (folded != original) {
            changed[std::to_string(scalar)] = folded;
        } else if (unchanged.back()[1] == scalar - 1) {
            unchanged.back()[1] = scalar;
        } else {
            unchanged.push_back({scalar, scalar});
        }
    }
    return field("folded", changed) + "," + field("unchanged", unchanged);
}

/// What the scenario page.js expects of the page.
std::string expectationsOf(const ExportSample& sample) {
    Texts texts, names, colors, quotes;
    const auto blocks = TranscriptLayout::blocks(sample.document, false);
    const auto assigned = SpeakerColors::assignments(blocks, SpeakerColorPreset::violet);
    for (const auto& block : blocks) {
        names.push_back(MeetingExport::speakerName(sample.document, block.firstSegment()));
        colors.emplace_back(json::nameOf(assigned.at(block.speaker)));
        for (const auto& segment : block.segments) texts.emplace_back(text::trimmed(segment.text));
    }
    for (const auto& category : MeetingExport::categories)
        for (const auto& point : sample.artifact.summary.*category.points) quotes.push_back(point.quote);
    std::string searches;
    for (const char* query :
         {"strasse", "MULLER zahlen", "ss", "s", "été", "< script", "e ei in", "\U0001F469", "\u0301"})
        searches += (searches.empty() ? "" : ",") + searchFor(query, texts);
    return "{" + field("title", sample.entry.title) + "," + field("texts", texts) + "," +
           field("names", names) + "," + field("colors", colors) + "," + field("quotes", quotes) +
           R"(,"jump":15,"elapsed":["00:00:00","00:00:04"],)" +
           R"("clock":["10:26:53","10:26:57"],"searches":[)" + searches + "]," + folding() + "}";
}

/// Runs a scenario of the folder Readers on a page in a browser.
void expectInBrowser(const std::string& page, const std::string& scenario, const std::string& data) {
    const std::string programs = "for p in chromium chromedriver python3; do command -v $p || exit 1; done";
    if (runProcess("/bin/sh", {"-c", programs}).status != 0) GTEST_SKIP() << "chromium is not installed";
    const TemporaryFolder folder;
    writeFile(folder.path() / "page.html", page);
    writeFile(folder.path() / "data.json", data);
    const auto readers = fs::path(MEETING_SOURCE_FOLDER "/Tests/Readers");
    const auto result = runProcess("/usr/bin/env",
                                   {"python3", readers / "drive_page.py", folder.path() / "page.html",
                                    readers / scenario, folder.path() / "data.json"},
                                   {{"HOME", folder.path()}, {"XDG_CONFIG_HOME", folder.path()}});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(HTMLExport, IsAPageThatABrowserShowsAndSearches) {
    const auto sample = pageSample();
    ASSERT_EQ(MeetingExport::summaryState(sample.exported()), SummaryState::current);
    expectInBrowser(HTMLExport::render(sample.exported(), {.personal = SpeakerColorPreset::violet}), "page.js",
                    expectationsOf(sample));
}

TEST(HTMLExport, NamesWhatIsMissingOrStale) {
    const HTMLExport::Appearance options{.times = TranscriptTimestampMode::clock};
    const auto empty = HTMLExport::render({MeetingEntry()}, options);
    for (const auto text :
         {MeetingExport::noNotesText, MeetingExport::noSummaryText, MeetingExport::noTranscriptText})
        EXPECT_THAT(empty, HasSubstr(text));
    EXPECT_THAT(empty, HasSubstr("data-times=\"elapsed\"")) << "no clock, no times of day";
    ExportSample sample;
    sample.document.segments[0].text += "!";
    EXPECT_THAT(HTMLExport::render(sample.exported(), options),
                AllOf(HasSubstr(MeetingExport::staleSummaryText), HasSubstr("data-times=\"clock\""),
                      Not(HasSubstr("Das Budget für Q3 wurde besprochen."))));
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
        cues += (cues.empty() ? "[" : ",[") + json::encode(segment.id) + "," +
                json::encode(segment.startSeconds) + "," + json::encode(end) + "," +
                json::encode(MeetingExport::singleLine(MeetingExport::speakerName(document, segment))) + "," +
                json::encode(shown) + ",1]";
    }
    expectInBrowser("<!DOCTYPE html><title>Untertitel</title>", "captions.js",
                    "{" + field("file", SubtitleExport::webVTT(document)) + R"(,"cues":[)" + cues + "]}");
}

}  // namespace
}  // namespace meetingcore::testing
