#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Summary/RawSummary.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "Support/Process.h"
#include "Support/SampleMeeting.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;

using ::testing::HasSubstr;
using testing::SampleMeeting;

std::vector<std::string> sampleNames() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(MEETING_SAMPLES_FOLDER)) {
        if (fs::exists(entry.path() / "meeting.json")) names.push_back(entry.path().filename().string());
    }
    return names;
}

class Sample : public ::testing::TestWithParam<std::string> {
protected:
    const SampleMeeting sample = SampleMeeting::load(fs::path(MEETING_SAMPLES_FOLDER) / GetParam());
    const testing::TemporaryFolder root;

    TranscriptDocument installed() const {
        install(sample, root.path());
        SQLiteJobStore store(root.path() / "quillmoot.sqlite");
        EXPECT_EQ(store.jobStats(sample.session.id),
                  (std::map<std::string, std::int64_t>{{"completed", store.jobCount()}}));
        return TranscriptStorage::load(sample.session.id, root.path(), store);
    }
};

TEST_P(Sample, BecomesAFinishedTranscriptInTheOrderOfItsFile) {
    const auto document = installed();
    EXPECT_EQ(document.rawSegments, sample.segments);
    EXPECT_FALSE(document.diarizationPending());
    for (const auto& correction : document.edits.correctedText) {
        const auto isApplied = [&](const TranscriptSegment& segment) {
            return segment.id.string() == correction.first && segment.text == correction.second;
        };
        EXPECT_TRUE(std::ranges::any_of(document.segments, isApplied)) << correction.first;
    }
}

TEST_P(Sample, AnswersWithEvidenceWordForWord) {
    const auto document = installed();
    const auto raw = json::decode<RawSummary>(sample.summaryAnswer, "summary-answer.json");
    const auto checked = SourceTable(document).checked(raw);
    // The check leaves out a name or a date that the sources do not contain; a sample has none to leave out.
    for (const auto category : {&EvidenceSummary::overview, &EvidenceSummary::decisions,
                                &EvidenceSummary::tasks, &EvidenceSummary::openQuestions}) {
        EXPECT_FALSE((checked.*category).empty());
    }
    for (std::size_t i = 0; i < raw.tasks.size(); ++i) {
        EXPECT_EQ(checked.tasks[i].owner, raw.tasks[i].owner) << raw.tasks[i].text;
        EXPECT_EQ(checked.tasks[i].dueDate, raw.tasks[i].dueDate) << raw.tasks[i].text;
    }
}

TEST_P(Sample, IsSummarisedByTheDemo) {
    const auto folder = root.path() / "Daten";
    const std::vector<std::string> arguments{"--root", folder.string(), "--sample",
                                             (fs::path(MEETING_SAMPLES_FOLDER) / GetParam()).string()};
    // Without a real model, even where the machine has one.
    const testing::ChildProcess::Environment environment{{"MEETING_MODELS", folder.string()}};
    const auto first = testing::runProcess(MEETING_SummaryDemo_PATH, arguments, environment);
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.err, "");
    EXPECT_THAT(first.out, HasSubstr("Stellvertreter"));
    EXPECT_THAT(first.out, ::testing::Not(HasSubstr("\x1b"))) << "no colours into a pipe";
    const auto meeting = TranscriptStorage::sessionDirectory(folder, sample.session.id);
    const auto title = TranscriptStorage::readOptional<MeetingTitleArtifact>(meeting / "automatic-title.json");
    ASSERT_TRUE(title);
    EXPECT_THAT(first.out, HasSubstr(title->title));
    ASSERT_TRUE(fs::exists(meeting / "summary.json"));

    const auto again = testing::runProcess(MEETING_SummaryDemo_PATH, arguments, environment);
    EXPECT_EQ(again.status, 1);
    EXPECT_THAT(again.err, HasSubstr("ist nicht leer"));
}

TEST(Demo, EndsWithTheWorkersMessageWhereItFails) {
    const testing::TemporaryFolder folder;
    fs::copy(fs::path(MEETING_SAMPLES_FOLDER) / "kundenportal", folder.path(), fs::copy_options::recursive);
    std::ofstream(folder.path() / "summary-answer.json", std::ios::trunc)
        << R"({"overview":[{"text":"Unbelegt.","ids":["s999"],"owner":null,"dueDate":null}],)"
           R"("decisions":[],"tasks":[],"openQuestions":[]})";
    const auto result = testing::runProcess(MEETING_SummaryDemo_PATH, {"--sample", folder.path().string()},
                                            {{"MEETING_MODELS", folder.path().string()}});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, ::testing::Not(HasSubstr("Unbelegt")));
    EXPECT_THAT(result.err, HasSubstr("Zusammenfassung nennt eine unbekannte Quellen-ID."));
}

INSTANTIATE_TEST_SUITE_P(Samples, Sample, ::testing::ValuesIn(sampleNames()));

}  // namespace
}  // namespace meetingcore
