#include "MeetingCore/Summary/RawSummary.h"
#include "Support/Process.h"
#include "Support/SampleMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

std::vector<std::string> samples() {
    std::vector<std::string> folders;
    for (const auto& entry : fs::directory_iterator(MEETING_SOURCE_FOLDER "/Samples"))
        if (fs::exists(entry.path() / "meeting.json")) folders.push_back(entry.path());
    return folders;
}

class Sample : public ::testing::TestWithParam<std::string> {
protected:
    const SampleMeeting sample = SampleMeeting::load(GetParam());
    const TemporaryFolder root;
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

INSTANTIATE_TEST_SUITE_P(Samples, Sample, ::testing::ValuesIn(samples()));

TEST(Demo, TakesTheSampleFromItsFilesToSummaryTitleAndPage) {
    const TemporaryFolder folder;
    const auto root = folder.path() / "Daten";
    const auto programs = fs::path(MEETING_quillmoot_PATH).parent_path();
    const auto run = [&] {
        return runProcess(MEETING_SOURCE_FOLDER "/Samples/demo", {programs, "--root", root},
                          {{"MEETING_MODELS", "/fehlt"}});
    };
    const auto first = run();
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_THAT(first.out, AllOf(HasSubstr("Stellvertreter"), HasSubstr("\nJana Keller  10:00:00\n"),
                                 HasSubstr("Wettermann"), Not(HasSubstr("\x1b"))));
    EXPECT_THAT(contentOf(root / "kundenportal.html"), HasSubstr("Meral Aydın"));
    EXPECT_THAT(run().err, HasSubstr("ist nicht leer"));
}

}  // namespace
}  // namespace meetingcore::testing
