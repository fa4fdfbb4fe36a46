#include <cstdlib>
#include <fstream>
#include <limits>

#include <gtest/gtest.h>

#include "MeetingCore/Presentation/JSONExport.h"
#include "MeetingCore/Presentation/MeetingExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "Support/ExportSample.h"
#include "Support/Process.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

using testing::documentOf;
using testing::ExportSample;
using testing::numberedID;
using testing::spoken;
using Content = MeetingExport::Content;

// Dates without a recording clock show in the machine's zone.
const int machineZone = ::setenv("TZ", "Europe/Berlin", 1);

const std::filesystem::path testsFolder = std::filesystem::path(__FILE__).parent_path();

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Compares with the file in the folder Golden; MEETING_RENEW_GOLDEN in the environment writes it instead.
void expectGolden(const std::string& actual, const std::string& name) {
    const auto file = testsFolder / "Golden" / name;
    if (std::getenv("MEETING_RENEW_GOLDEN") != nullptr) std::ofstream(file, std::ios::binary) << actual;
    EXPECT_EQ(actual, contentOf(file)) << name;
}

void expectBothForms(const ExportedMeeting& meeting, const std::string& name) {
    expectGolden(MeetingExport::render(meeting, true, Content::all), name + ".txt");
    expectGolden(MeetingExport::render(meeting, false, Content::all), name + ".md");
}

MeetingEntry emptyEntry() {
    MeetingEntry entry;
    entry.title = "Neues Meeting";
    entry.createdAt = Date::since1970(1'741'944'413);
    return entry;
}

/// Line breaks of every kind and markup of every form in every text.
ExportSample markedUp() {
    ExportSample sample;
    const std::string evil = "</style><script>alert(1)</script>\r\n\r\n--> **fett** | # & \"x\"\u2028\u0085\n ";
    sample.entry.title = "Titel\n# zwei " + evil;
    sample.entry.notes = evil;
    sample.entry.metadata->participants = {"Anna <b>", "x\ny"};
    sample.entry.metadata->fields[0] = {numberedID(901), "Feld <i>", evil + "Ende"};
    sample.document.edits.speakerNames["1"] = "Jörg <b> & --> \n Müller";
    sample.document.segments[0].text = "\n " + evil + evil;
    sample.document.segments[2].text = " \n\u2029";
    sample.artifact.summary.overview[0] = {evil + "Ende", {numberedID(1)}, "<script>alert(1)</script>", {}, {}};
    sample.artifact.summary.tasks.pop_back();
    sample.renewFingerprint();
    return sample;
}

TEST(MeetingExport, MatchesItsGoldenFiles) {
    ASSERT_EQ(machineZone, 0);
    const ExportSample sample;
    expectBothForms(sample.exported(), "full");
    const auto entry = emptyEntry();
    expectBothForms({entry}, "empty");
    ExportSample stale;
    stale.document.segments[0].text += " Berichtigt.";
    expectBothForms(stale.exported(), "stale");
    expectBothForms(markedUp().exported(), "markup");
}

TEST(MeetingExport, RendersTheSectionsAskedFor) {
    const ExportSample sample;
    const auto meeting = sample.exported();
    const auto header = MeetingExport::header(meeting, true);
    const auto transcript =
        header + "\n\nTranskript:\n\n" + MeetingExport::transcriptText(sample.document, false);
    const auto summary = "\n\nZusammenfassung:\n\n" + MeetingExport::summaryText(sample.artifact.summary, true);
    EXPECT_EQ(MeetingExport::render(meeting, true, Content::transcript), transcript);
    EXPECT_EQ(MeetingExport::render(meeting, true, Content::summary), header + summary);
    EXPECT_EQ(MeetingExport::render(meeting, true, Content::all), transcript + summary);
}

TEST(MeetingExport, ShortensTheUserOnlyWhileTheMicrophoneHasOneSpeaker) {
    auto document = documentOf({spoken(1, 0, 1, AudioSource::microphone, {}, "hier")});
    EXPECT_EQ(MeetingExport::transcriptText(document, false), "Ich: hier");
    document.requiresMicrophoneDiarization = true;
    EXPECT_EQ(MeetingExport::transcriptText(document, false), "Mikrofon · unklar: hier");
    document.rawSegments[0].text = "da";
    EXPECT_EQ(MeetingExport::transcriptText(document, true), "Mikrofon · unklar: da");
}

TEST(MeetingExport, NeverShowsAStaleSummaryAsCurrent) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const std::pair<const char*, void (*)(ExportSample&)> changes[] = {
        {"corrected text", [](ExportSample& s) { s.document.segments[5].text += "!"; }},
        {"renamed speaker", [](ExportSample& s) { s.document.edits.speakerNames["2"] = "Petra"; }},
        {"new diarization", [](ExportSample& s) { s.document.diarization->generation = numberedID(911); }},
        {"invalid quote", [](ExportSample& s) { s.artifact.summary.overview[0].quote = "nie gesagt"; }},
        {"no fingerprint", [](ExportSample& s) { s.document.segments[0].startSeconds = nan; }},
    };
    for (const auto& [name, change] : changes) {
        ExportSample sample;
        EXPECT_EQ(MeetingExport::summaryState(sample.exported()), SummaryState::current);
        change(sample);
        const auto meeting = sample.exported();
        EXPECT_EQ(MeetingExport::summaryState(meeting), SummaryState::stale) << name;
        const auto text = MeetingExport::render(meeting, true, Content::summary);
        EXPECT_TRUE(text.ends_with("\n\nZusammenfassung veraltet oder ungültig. Bitte neu erstellen.")) << name;
        const auto json = JSONExport::render(meeting);
        EXPECT_NE(json.find(R"("summary":{"state":"stale","createdAt":"2025-03-14T11:00:00Z"}})"),
                  std::string::npos)
            << name;
    }
    const ExportSample sample;
    EXPECT_EQ(MeetingExport::summaryState({sample.entry, nullptr, &sample.artifact}), SummaryState::stale);
    EXPECT_EQ(MeetingExport::summaryState({sample.entry, &sample.document}), SummaryState::missing);
}

/// Runs one of the programs in the folder Readers over files with the given contents. Debian's own Python finds
/// Debian's modules.
void expectRead(const std::string& program, const std::string& needs, const std::string& exported,
                const std::string& expected) {
    const std::string python = "/usr/bin/python3";
    if (!std::filesystem::exists(python) ||
        testing::runProcess(python, {"-c", "import " + needs}).status != 0) {
        GTEST_SKIP() << python << " with the module " << needs << " is not installed";
    }
    const testing::TemporaryFolder folder;
    std::ofstream(folder.path() / "exported", std::ios::binary) << exported;
    std::ofstream(folder.path() / "expected", std::ios::binary) << expected;
    const auto result = testing::runProcess(
        python, {(testsFolder / "Readers" / program).string(), (folder.path() / "exported").string(),
                 (folder.path() / "expected").string()});
    EXPECT_EQ(result.status, 0) << result.out << result.err << exported;
}

TEST(SubtitleExport, IsReadByAnSRTReader) {
    auto document = markedUp().document;
    document.segments.push_back(spoken(7, 360'000.0004, 360'001.9996, AudioSource::meeting, "2", "spät"));
    document.segments.push_back(spoken(8, 360'002, 360'002, AudioSource::meeting, {}, "kurz"));
    expectRead("read_srt.py", "srt", SubtitleExport::subRip(document),
               contentOf(testsFolder / "Golden/markup.srt.json"));
}

TEST(JSONExport, IsReadByAnotherReader) {
    const auto sample = markedUp();
    expectRead("read_json.py", "json", JSONExport::render(sample.exported()),
               contentOf(testsFolder / "Golden/markup.json"));
    auto odd = sample.document;
    odd.segments[0].startSeconds = std::numeric_limits<double>::infinity();
    EXPECT_NE(JSONExport::render({sample.entry, &odd}).find(R"("startSeconds":0,)"), std::string::npos);
}

}  // namespace
}  // namespace meetingcore
