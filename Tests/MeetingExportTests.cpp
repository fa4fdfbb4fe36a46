#include <cstdlib>
#include <limits>

#include "MeetingCore/Presentation/JSONExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "Support/ExportSample.h"
#include "Support/Process.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using Content = MeetingExport::Content;

// Dates without a recording clock show in the machine's zone.
const int machineZone = ::setenv("TZ", "Europe/Berlin", 1);

const auto testsFolder = fs::path(MEETING_SOURCE_FOLDER "/Tests");

/// Compares both forms with the files in the folder Golden; MEETING_RENEW_GOLDEN in the environment writes them
/// instead.
void expectGolden(const ExportedMeeting& meeting, const std::string& name) {
    for (const bool plain : {true, false}) {
        const auto file = testsFolder / "Golden" / (name + (plain ? ".txt" : ".md"));
        const auto actual = MeetingExport::render(meeting, plain, Content::all);
        if (std::getenv("MEETING_RENEW_GOLDEN") != nullptr) writeFile(file, actual);
        EXPECT_EQ(actual, contentOf(file)) << file;
    }
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
    expectGolden(ExportSample().exported(), "full");
    expectGolden(markedUp().exported(), "markup");
    MeetingEntry entry;
    entry.title = "Neues Meeting";
    entry.createdAt = Date::since1970(1'741'944'413);
    expectGolden({entry}, "empty");
}

TEST(MeetingExport, RendersTheSectionsAskedFor) {
    const ExportSample sample;
    const auto rendered = [&](Content content) {
        return MeetingExport::render(sample.exported(), true, content);
    };
    const auto header = MeetingExport::header(sample.exported(), true);
    const auto transcript = rendered(Content::transcript), summary = rendered(Content::summary);
    EXPECT_EQ(transcript,
              header + "\n\nTranskript:\n\n" + MeetingExport::transcriptText(sample.document, false));
    EXPECT_THAT(summary, StartsWith(header + "\n\nZusammenfassung:\n\n"));
    EXPECT_EQ(rendered(Content::all), transcript + summary.substr(header.size()));
}

TEST(MeetingExport, ShortensTheUserOnlyWhileTheMicrophoneHasOneSpeaker) {
    auto document = documentOf({spoken(1, 0, 1, AudioSource::microphone, {}, "hier")});
    EXPECT_EQ(MeetingExport::transcriptText(document, false), "Ich: hier");
    document.requiresMicrophoneDiarization = true;
    document.rawSegments[0].text = "da";
    EXPECT_EQ(MeetingExport::transcriptText(document, true), "Mikrofon · unklar: da");
}

TEST(MeetingExport, NeverShowsAStaleSummaryAsCurrent) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    void (*const changes[])(ExportSample&) = {
        [](ExportSample& s) { s.document.edits.speakerNames["2"] = "Petra"; },
        [](ExportSample& s) { s.document.diarization->generation = numberedID(911); },
        [](ExportSample& s) { s.artifact.summary.overview[0].quote = "nie gesagt"; },
        [](ExportSample& s) { s.document.segments[0].startSeconds = nan; }};  // without a fingerprint
    for (const auto change : changes) {
        ExportSample sample;
        EXPECT_EQ(MeetingExport::summaryState(sample.exported()), SummaryState::current);
        change(sample);
        EXPECT_EQ(MeetingExport::summaryState(sample.exported()), SummaryState::stale);
        for (const bool plain : {true, false})
            EXPECT_THAT(MeetingExport::render(sample.exported(), plain, Content::all),
                        EndsWith("\n\nZusammenfassung veraltet oder ungültig. Bitte neu erstellen."));
        EXPECT_THAT(
            JSONExport::render(sample.exported()),
            HasSubstr(
                R"("summary":{"state":"stale","createdAt":"2025-03-14T11:00:00Z","engine":"extractive"}})"));
    }
    const ExportSample sample;
    EXPECT_EQ(MeetingExport::summaryState({sample.entry, nullptr, &sample.artifact}), SummaryState::stale);
}

/// Runs one of the programs in the folder Readers over the exported text and a golden file. Debian's own Python
/// finds Debian's modules.
void expectRead(const std::string& program, const std::string& needs, const std::string& exported,
                const std::string& golden) {
    const TemporaryFolder folder;
    const auto file = folder.path() / "exported";
    writeFile(file, exported);
    const auto python = [](const std::vector<std::string>& arguments) {
        return runProcess("/usr/bin/env", arguments);
    };
    if (python({"/usr/bin/python3", "-c", "import " + needs}).status != 0)
        GTEST_SKIP() << "Python with the module " << needs << " is not installed";
    const auto result =
        python({"/usr/bin/python3", testsFolder / "Readers" / program, file, testsFolder / "Golden" / golden});
    EXPECT_EQ(result.status, 0) << result.out << result.err << exported;
}

TEST(SubtitleExport, IsReadByAnSRTReader) {
    auto document = markedUp().document;
    document.segments.push_back(spoken(7, 360'000.0004, 360'001.9996, AudioSource::meeting, "2", "spät"));
    document.segments.push_back(spoken(8, 360'002, 360'002, AudioSource::meeting, {}, "kurz"));
    expectRead("read_srt.py", "srt", SubtitleExport::subRip(document), "markup.srt.json");
}

TEST(JSONExport, IsReadByAnotherReader) {
    auto sample = markedUp();
    expectRead("read_json.py", "json", JSONExport::render(sample.exported()), "markup.json");
    sample.document.segments[0].startSeconds = std::numeric_limits<double>::infinity();
    EXPECT_THAT(JSONExport::render(sample.exported()), HasSubstr(R"("startSeconds":0,)"));
}

}  // namespace
}  // namespace meetingcore::testing
