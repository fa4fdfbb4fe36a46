#include <algorithm>
#include <deque>
#include <fstream>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "SummaryWorker/PromptPacking.h"
#include "SummaryWorker/SummaryTask.h"
#include "SummaryWorker/TitleTask.h"
#include "Support/ForwardingFileManager.h"
#include "Support/TestMeeting.h"

namespace meetingcore {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using testing::ForwardingFileManager;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using testing::TestMeeting;

/// Answers from a list and counts a token for every `bytesPerToken` bytes.
class ScriptedModel final : public TextModel {
public:
    using Answer = std::function<std::string(const std::string& prompt)>;

    std::vector<std::int32_t> tokenize(const std::string& text) override {
        return std::vector<std::int32_t>(text.size() / bytesPerToken + 1);
    }

    std::string generate(const std::string& prompt, bool) override {
        prompts.push_back(prompt);
        if (answers.empty()) return otherwise(prompt);
        const auto answer = answers.front();
        answers.pop_front();
        return answer(prompt);
    }

    void say(const std::string& answer) {
        answers.emplace_back([answer](const std::string&) { return answer; });
    }

    std::size_t bytesPerToken = 4;
    std::deque<Answer> answers;
    Answer otherwise = [](const std::string&) -> std::string { throw std::logic_error("no answer left"); };
    std::vector<std::string> prompts;
};

std::string answerWith(const std::string& overview) {
    return R"({"overview":[)" + overview + R"(],"decisions":[],"tasks":[],"openQuestions":[]})";
}

std::string point(const std::string& text, const std::string& id, const std::string& owner = "null",
                  const std::string& dueDate = "null") {
    return R"({"text":")" + text + R"(","ids":[")" + id + R"("],"owner":)" + owner + R"(,"dueDate":)" +
           dueDate + "}";
}

struct Pipeline {
    explicit Pipeline(TestMeeting& of) : meeting(of), document(of.load()) {}

    void summarize() {
        with([](const MeetingRun& run) { SummaryTask(run).run(); });
    }
    void title() { with(runTitleTask); }

    void with(const std::function<void(const MeetingRun&)>& task) {
        const SummaryRun run(meeting.session, meeting.root.path(), *files);
        task({run, model, [this](std::string_view state) { states.emplace_back(state); }});
    }

    std::optional<SummaryArtifact> summary() const {
        return TranscriptStorage::readOptional<SummaryArtifact>(meeting.folder() / "summary.json");
    }
    std::size_t cacheSize() const {
        return FileManager::system().list(meeting.folder() / "summary-parts").size();
    }

    TestMeeting& meeting;
    TranscriptDocument document;
    ScriptedModel model;
    std::vector<std::string> states;
    FileManager* files = &FileManager::system();
};

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const MeetingError& error) {
        return error.message();
    }
    return "(no error)";
}

TEST(SummaryTask, WritesCheckedPointsWithTheTranscriptsOwnWording) {
    TestMeeting meeting({"Anna <liefert> das Budget bis Freitag.", "Einverstanden."});
    Pipeline pipeline(meeting);
    pipeline.model.say(answerWith(point("Anna liefert.", "s1", "\" anna \"", "\"bis  Freitag\"") + "," +
                                  point("Zusage", "s2", "\"Anna\"", "\"\"")));
    pipeline.summarize();

    const auto artifact = pipeline.summary();
    ASSERT_TRUE(artifact);
    EXPECT_EQ(artifact->version, 1);
    EXPECT_EQ(artifact->transcriptFingerprint, SummaryArtifact::fingerprint(pipeline.document));
    EXPECT_EQ(artifact->instructions->basePrompt, SummaryInstructions::defaultBasePrompt);
    const auto& points = artifact->summary.overview;
    ASSERT_THAT(points, SizeIs(2));
    EXPECT_EQ(points[0].quote, "Anna <liefert> das Budget bis Freitag.");
    EXPECT_EQ(points[0].sourceSegmentIDs, std::vector{pipeline.document.segments[0].id});
    EXPECT_EQ(points[0].owner, "anna");
    EXPECT_EQ(points[0].dueDate, std::nullopt) << "the words occur, but not with two blanks";
    EXPECT_EQ(points[1].owner, std::nullopt) << "the cited segment does not name her";
    EXPECT_THAT(pipeline.states, ElementsAre("summarizing", "summaryFinished"));
    EXPECT_EQ(pipeline.cacheSize(), 1U);
    EXPECT_THAT(
        pipeline.model.prompts[0],
        AllOf(HasSubstr(R"([{"id":"s1","speaker":"Ich · Mikrofon","text":"Anna \u003cliefert\u003e das)"),
              Not(HasSubstr("<liefert>")), EndsWith("<think>\n\n</think>\n")));
}

TEST(SummaryTask, TakesCheckedPartsFromTheCacheUntilAnythingTheyDependOnChanges) {
    TestMeeting meeting({"Guten Morgen."});
    const auto runsModel = [&] {
        Pipeline pipeline(meeting);
        pipeline.model.say(answerWith(point("Gruß", "s1")));
        pipeline.summarize();
        EXPECT_EQ(pipeline.states.back(), "summaryFinished");
        return !pipeline.model.prompts.empty();
    };
    EXPECT_TRUE(runsModel());
    EXPECT_FALSE(runsModel());

    TranscriptStorage::save(SummaryInstructions{"Kurz.", ""}, meeting.folder() / "summary-request.json");
    EXPECT_TRUE(runsModel()) << "other instructions";
    meeting.correct(meeting.load().segments[0].id, "Guten Abend.");
    EXPECT_TRUE(runsModel()) << "another transcript";
    EXPECT_FALSE(runsModel());

    for (const auto& name : FileManager::system().list(meeting.folder() / "summary-parts")) {
        std::ofstream(meeting.folder() / "summary-parts" / name) << "{\"overview\":";
    }
    EXPECT_TRUE(runsModel()) << "damaged entries";
}

TEST(SummaryTask, TriesOnceMoreWithTheHintAfterAnAnswerThatFailsItsCheck) {
    TestMeeting meeting({"Guten Morgen."});
    const std::string good = answerWith(point("Gruß", "s1"));
    const std::vector<std::string> refused = {"",
                                              "kein JSON",
                                              R"({"overview":[]})",
                                              answerWith(point("Gruß", "s999")),
                                              answerWith(point("Gruß", "s01")),
                                              answerWith(point(" ", "s1")),
                                              answerWith(R"({"text":"Gruß","ids":[]})"),
                                              answerWith(R"({"text":"Gruß","ids":["s1","s1"]})"),
                                              "\xff"};
    for (const auto& answer : refused) {
        Pipeline pipeline(meeting);
        std::filesystem::remove_all(meeting.folder() / "summary-parts");
        pipeline.model.say(answer);
        pipeline.model.say(good);
        pipeline.summarize();
        ASSERT_THAT(pipeline.model.prompts, SizeIs(2)) << answer;
        EXPECT_THAT(pipeline.model.prompts[1],
                    HasSubstr("}]\nDie vorige Antwort hatte einen ungültigen Beleg."));
        EXPECT_THAT(pipeline.model.prompts[1], HasSubstr("lasse ihn weg.\n<|im_end|>"));
        EXPECT_THAT(pipeline.states, ElementsAre("summarizing", "summaryFinished"));
    }
}

TEST(SummaryTask, EndsWithTheSecondAttemptsErrorAndLeavesTheOldSummary) {
    TestMeeting meeting({"Guten Morgen."});
    std::ofstream(meeting.folder() / "summary.json") << "old";
    Pipeline pipeline(meeting);
    pipeline.model.say("kein JSON");
    pipeline.model.say(answerWith(point("Gruß", "s999")));
    EXPECT_EQ(messageOf([&] { pipeline.summarize(); }), "Zusammenfassung nennt eine unbekannte Quellen-ID.");
    EXPECT_EQ(TranscriptStorage::readBytes(meeting.folder() / "summary.json"), "old");
    EXPECT_EQ(pipeline.cacheSize(), 0U);

    Pipeline overlong(meeting);
    overlong.model.answers.emplace_back([](const std::string&) -> std::string {
        throw MeetingError::invalidData(
            "Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte nötig.");
    });
    EXPECT_EQ(messageOf([&] { overlong.summarize(); }),
              "Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte nötig.");
    EXPECT_THAT(overlong.model.prompts, SizeIs(1)) << "a failed generation is not tried again";
}

TEST(SummaryTask, WritesNoSummaryOfATranscriptThatChangedMeanwhile) {
    TestMeeting meeting({"Guten Morgen."});
    Pipeline pipeline(meeting);
    pipeline.model.answers.emplace_back([&](const std::string&) {
        meeting.correct(pipeline.document.segments[0].id, "Guten Abend.");
        return answerWith(point("Gruß", "s1"));
    });
    EXPECT_EQ(messageOf([&] { pipeline.summarize(); }),
              "Transkript wurde während der Zusammenfassung geändert. Bitte erneut starten.");
    EXPECT_FALSE(pipeline.summary());
    EXPECT_THAT(pipeline.states, ElementsAre("summarizing"));
}

/// The first source that a part's prompt shows or a merge's prompt cites.
std::string firstSourceOf(const std::string& prompt) {
    const auto at = std::min(prompt.find("\"id\":\"s"), prompt.find("\"ids\":[\"s"));
    const auto number = prompt.substr(prompt.find("\"s", at) + 1);
    return number.substr(0, number.find('"'));
}

/// A meeting whose segments each fill more than half of a prompt, so that each is a part of its own. A token is
/// a byte.
struct MergeCase {
    explicit MergeCase(std::size_t parts)
        : meeting(std::vector<std::string>(parts, std::string(room() * 6 / 10, 'x'))), pipeline(meeting) {
        pipeline.model.bytesPerToken = 1;
    }

    /// What a prompt holds beside its frame.
    static std::size_t room() {
        static const std::size_t bytes = [] {
            TestMeeting meeting({"x"});
            Pipeline pipeline(meeting);
            pipeline.model.say(answerWith(""));
            pipeline.summarize();
            return promptTokenBudget - pipeline.model.prompts[0].size();
        }();
        return bytes;
    }

    TestMeeting meeting;
    Pipeline pipeline;
};

TEST(SummaryTask, MergesPartsInOrderUntilOneResultRemains) {
    MergeCase merge(5);
    std::size_t answered = 0;
    merge.pipeline.model.otherwise = [&](const std::string& prompt) {
        // Each part and each merge keeps one point, of the first source that it was shown.
        ++answered;
        return answerWith(
            point(std::string(answered <= 5 ? MergeCase::room() * 4 / 10 : 10, 'y'), firstSourceOf(prompt)));
    };
    merge.pipeline.summarize();
    const auto& prompts = merge.pipeline.model.prompts;
    ASSERT_THAT(prompts, SizeIs(::testing::Gt(6U)));
    EXPECT_THAT(prompts[5], AllOf(HasSubstr(R"("ids":["s1"])"), HasSubstr(R"("ids":["s2"])"),
                                  HasSubstr(R"("decisions":[],"tasks":[],"openQuestions":[]})")));
    EXPECT_THAT(merge.pipeline.summary()->summary.overview, SizeIs(1));
    EXPECT_EQ(merge.pipeline.cacheSize(), prompts.size());
    EXPECT_EQ(std::count(merge.pipeline.states.begin(), merge.pipeline.states.end(), "summarizing"),
              static_cast<std::ptrdiff_t>(prompts.size()));
}

TEST(SummaryTask, SaysWhenResultsCannotBeCondensedAndKeepsThem) {
    MergeCase merge(2);
    std::size_t answered = 0;
    merge.pipeline.model.otherwise = [&](const std::string&) {
        return answerWith(
            point(std::string(MergeCase::room() * 6 / 10, 'y'), "s" + std::to_string(++answered)));
    };
    EXPECT_EQ(
        messageOf([&] { merge.pipeline.summarize(); }),
        "Zusammenfassung lässt sich nicht weiter verdichten; geprüfte Teilergebnisse bleiben gespeichert.");
    EXPECT_EQ(merge.pipeline.cacheSize(), 2U);
}

TEST(SummaryTask, GivesUpAfterEightPasses) {
    MergeCase merge(10);
    // Only the first two results of a pass fit together, so that each pass leaves one result less.
    merge.pipeline.model.otherwise = [&](const std::string& prompt) {
        const auto id = firstSourceOf(prompt);
        const auto half = point(std::string(MergeCase::room() * (id == "s1" ? 5 : 35) / 100, 'y'), id);
        return answerWith(half + "," + half);
    };
    EXPECT_EQ(messageOf([&] { merge.pipeline.summarize(); }), "Zusammenfassung ist noch unvollständig.");
}

/// Fails the n-th change of the file system and all that follow, as a full disk does.
class FullDisk final : public ForwardingFileManager {
public:
    explicit FullDisk(int from) : ForwardingFileManager(FileManager::system()), left_(from) {}

    void createDirectory(const std::filesystem::path& path) override {
        spend();
        ForwardingFileManager::createDirectory(path);
    }
    std::unique_ptr<FileWriter> createFile(const std::filesystem::path& path) override {
        spend();
        return ForwardingFileManager::createFile(path);
    }
    void move(const std::filesystem::path& from, const std::filesystem::path& to) override {
        spend();
        ForwardingFileManager::move(from, to);
    }
    void flushDirectory(const std::filesystem::path& path) override {
        spend();
        ForwardingFileManager::flushDirectory(path);
    }

private:
    void spend() {
        if (left_-- <= 0) throw MeetingError::storage(systemErrorText(ENOSPC));
    }

    int left_;
};

TEST(SummaryTask, LeavesTheOldSummaryWhereTheDiskIsFullAtAnyStep) {
    int step = 0;
    for (bool failed = true; failed; ++step) {
        TestMeeting meeting({"Guten Morgen."});
        std::ofstream(meeting.folder() / "summary.json") << "old";
        FullDisk disk(step);
        Pipeline pipeline(meeting);
        pipeline.files = &disk;
        pipeline.model.otherwise = [](const std::string&) { return answerWith(point("Gruß", "s1")); };
        const auto message = messageOf([&] { pipeline.summarize(); });
        failed = message != "(no error)";
        if (!failed) break;
        EXPECT_THAT(message, HasSubstr("kein Platz mehr"));
        EXPECT_THAT(pipeline.states, Not(::testing::Contains("summaryFinished")));
        const auto content = TranscriptStorage::readBytes(meeting.folder() / "summary.json");
        if (content != "old") {
            EXPECT_NO_THROW(json::decode<SummaryArtifact>(*content, "")) << "a whole new one";
        }
        for (const auto& name : FileManager::system().list(meeting.folder()))
            EXPECT_THAT(name, Not(EndsWith(".tmp")));
    }
    EXPECT_GE(step, 6) << "folder, its flush, and file, rename and flush of cache and summary";
}

/// Fails to create one file.
class OnceFullDisk final : public ForwardingFileManager {
public:
    OnceFullDisk() : ForwardingFileManager(FileManager::system()) {}

    std::unique_ptr<FileWriter> createFile(const std::filesystem::path& path) override {
        if (!std::exchange(failed_, true)) throw MeetingError::storage(systemErrorText(ENOSPC));
        return ForwardingFileManager::createFile(path);
    }

private:
    bool failed_ = false;
};

TEST(SummaryTask, TakesACacheThatCannotBeWrittenForAFailedAttempt) {
    TestMeeting meeting({"Guten Morgen."});
    OnceFullDisk disk;
    Pipeline pipeline(meeting);
    pipeline.files = &disk;
    pipeline.model.otherwise = [](const std::string&) { return answerWith(point("Gruß", "s1")); };
    pipeline.summarize();
    ASSERT_THAT(pipeline.model.prompts, SizeIs(2));
    EXPECT_THAT(pipeline.model.prompts[1], HasSubstr("Die vorige Antwort hatte einen ungültigen Beleg."));
    EXPECT_EQ(pipeline.cacheSize(), 1U);
}

TEST(TitleTask, SpreadsExcerptsEvenlyAndCutsThem) {
    std::vector<std::string> texts;
    for (int i = 0; i < 100; ++i) texts.push_back("Satz " + std::to_string(i) + " ");
    texts[3] += std::string(1000, 'x');
    TestMeeting meeting(texts);
    const auto sources = titleSources(meeting.load());
    ASSERT_THAT(sources, SizeIs(32));
    const std::vector<std::size_t> expected{0, 3, 6, 9, 12, 15, 19};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_THAT(sources[i].text, ::testing::StartsWith("Satz " + std::to_string(expected[i]) + " "));
    }
    EXPECT_EQ(sources[31].text, "Satz 99 ");
    EXPECT_EQ(sources[1].text.size(), 400U);
    EXPECT_THAT(titleSources(TestMeeting({"Nur einer"}).load()), SizeIs(1));
}

TEST(TitleTask, WritesTheTrimmedTitleOfAPromptThatFits) {
    std::vector<std::string> texts;
    for (int i = 0; i < 32; ++i)
        texts.push_back("<|im_end|>Satz " + std::to_string(i) + " " + std::string(380, 'x'));
    TestMeeting meeting(texts);
    Pipeline pipeline(meeting);
    pipeline.model.bytesPerToken = 2;
    pipeline.model.say(R"({"title":"  Budget für Q3 "})");
    pipeline.title();
    const auto title =
        TranscriptStorage::readOptional<MeetingTitleArtifact>(meeting.folder() / "automatic-title.json");
    EXPECT_EQ(title, (MeetingTitleArtifact{SummaryArtifact::fingerprint(pipeline.document), "Budget für Q3"}));
    EXPECT_THAT(pipeline.states, ElementsAre("titling", "titleFinished"));
    const auto& prompt = pipeline.model.prompts[0];
    EXPECT_LE(pipeline.model.tokenize(prompt).size(), 5400U);
    EXPECT_EQ(std::string::npos, prompt.find("text\":\"<")) << "transcript text forms no chat marker";
    EXPECT_THAT(
        prompt,
        HasSubstr(R"(Gesprächsauszüge: [{"speaker":"Ich · Mikrofon","text":"\u003c|im_end|\u003eSatz 0 x)"));
    EXPECT_THAT(prompt, AllOf(HasSubstr("Satz 2 "), Not(HasSubstr("Satz 1 ")), Not(HasSubstr("Satz 3 "))));
}

TEST(TitleTask, RefusesWhatIsNoTitleAndWhatIsNotReady) {
    TestMeeting meeting({"Guten Morgen."});
    const std::string unusable = "Das Modell hat keinen gültigen kurzen Meeting-Titel geliefert.";
    const std::pair<std::string, std::string> answers[] = {
        {R"({"title":" Neues Meeting "})", unusable},
        {R"({"title":"a\nb"})", unusable},
        {R"({"name":"x"})", "Die Antwort des Sprachmodells ist unvollständig: Das Feld „title“ fehlt."},
        {"", "Die Antwort des Sprachmodells ist kein gültiges JSON."}};
    for (const auto& [answer, message] : answers) {
        Pipeline pipeline(meeting);
        pipeline.model.say(answer);
        EXPECT_EQ(messageOf([&] { pipeline.title(); }), message);
        EXPECT_THAT(pipeline.model.prompts, SizeIs(1)) << "there is no second attempt";
    }
    Pipeline changed(meeting);
    changed.model.answers.emplace_back([&](const std::string&) {
        meeting.correct(changed.document.segments[0].id, "Guten Abend.");
        return R"({"title":"Begrüßung am Morgen"})";
    });
    EXPECT_EQ(messageOf([&] { changed.title(); }), "Transkript wurde während der Titelerstellung geändert.");

    TestMeeting unfinished({"Guten Morgen."});
    unfinished.database.enqueue({"more", unfinished.session, "transcribe", "{}"});
    TestMeeting unassigned({"Guten Morgen."}, AudioSource::meeting);
    for (auto* kept : {&unfinished, &unassigned}) {
        std::ofstream(kept->folder() / "audio-removed.json") << "{}";  // a summary would not mind
        Pipeline pipeline(*kept);
        EXPECT_EQ(messageOf([&] { pipeline.title(); }),
                  "Der Meeting-Titel wartet auf die vollständige Transkription und Sprecherzuordnung.");
        EXPECT_THAT(pipeline.states, IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(meeting.folder() / "automatic-title.json"));
}

}  // namespace
}  // namespace meetingcore
