#include <gmock/gmock.h>

#include "MeetingCore/Summary/RawSummary.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "Support/FileContent.h"
#include "Support/Process.h"
#include "Support/SampleMeeting.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::string> samples() {
    std::vector<std::string> folders;
    for (const auto& entry : fs::directory_iterator(MEETING_SAMPLES_FOLDER))
        if (fs::exists(entry.path() / "meeting.json")) folders.push_back(entry.path());
    return folders;
}

/// Runs the demo without a real model, even where the machine has one.
testing::ProcessResult runDemo(const std::vector<std::string>& arguments) {
    return testing::runProcess(MEETING_SummaryDemo_PATH, arguments, {{"MEETING_MODELS", "/fehlt"}});
}

class Sample : public ::testing::TestWithParam<std::string> {
protected:
    const testing::SampleMeeting sample = testing::SampleMeeting::load(GetParam());
    const testing::TemporaryFolder root;
};

TEST_P(Sample, BecomesATranscriptWhoseAnswersHaveEvidenceWordForWord) {
    install(sample, root.path());
    SQLiteJobStore store(root.path() / "quillmoot.sqlite");
    EXPECT_EQ(store.jobStats(sample.session.id),
              (std::map<std::string, std::int64_t>{{"completed", store.jobCount()}}));
    const auto document = TranscriptStorage::load(sample.session.id, root.path(), store);
    EXPECT_EQ(document.rawSegments, sample.segments);
    EXPECT_FALSE(document.diarizationPending());
    for (const auto& [id, text] : document.edits.correctedText) {
        const auto segment = std::ranges::find(document.segments, UUID::parse(id), &TranscriptSegment::id);
        ASSERT_NE(segment, document.segments.end()) << id;
        EXPECT_EQ(segment->text, text);
    }
    // The check leaves out a name or a date that the sources do not contain; a sample has none to leave out.
    const auto raw = json::decode<RawSummary>(sample.summaryAnswer, "summary-answer.json");
    const auto checked = SourceTable(document).checked(raw);
    EXPECT_FALSE(checked.overview.empty() || checked.decisions.empty() || checked.openQuestions.empty());
    ASSERT_FALSE(checked.tasks.empty());
    for (std::size_t i = 0; i < raw.tasks.size(); ++i) {
        EXPECT_EQ(checked.tasks[i].owner, raw.tasks[i].owner) << raw.tasks[i].text;
        EXPECT_EQ(checked.tasks[i].dueDate, raw.tasks[i].dueDate) << raw.tasks[i].text;
    }
}

TEST_P(Sample, IsSummarisedByTheDemo) {
    const auto folder = root.path() / "Daten";
    const auto first = runDemo({"--root", folder, "--sample", GetParam()});
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_THAT(first.out, ::testing::AllOf(HasSubstr("Stellvertreter"), Not(HasSubstr("\x1b"))))
        << "no colours";
    const auto meeting = TranscriptStorage::sessionDirectory(folder, sample.session.id);
    const auto title = TranscriptStorage::readOptional<MeetingTitleArtifact>(meeting / "automatic-title.json");
    EXPECT_THAT(first.out, HasSubstr(title.value().title));
    EXPECT_TRUE(fs::exists(meeting / "summary.json"));
    const auto again = runDemo({"--root", folder, "--sample", GetParam()});
    EXPECT_EQ(again.status, 1);
    EXPECT_THAT(again.err, HasSubstr("ist nicht leer"));
}

TEST_P(Sample, EndsTheDemoWithTheWorkersMessageWhereItFails) {
    fs::copy(GetParam(), root.path(), fs::copy_options::recursive);
    testing::writeFile(
        root.path() / "summary-answer.json",
        R"({"overview":[{"text":"Unbelegt.","ids":["s999"],"owner":null,"dueDate":null}],"decisions":[],)"
        R"("tasks":[],"openQuestions":[]})");
    const auto result = runDemo({"--sample", root.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, Not(HasSubstr("Unbelegt")));
    EXPECT_THAT(result.err, HasSubstr("Zusammenfassung nennt eine unbekannte Quellen-ID."));
}

INSTANTIATE_TEST_SUITE_P(Samples, Sample, ::testing::ValuesIn(samples()));

}  // namespace
}  // namespace meetingcore
