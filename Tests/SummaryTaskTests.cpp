#include <algorithm>

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "SummaryWorker/PromptPacking.h"
#include "SummaryWorker/SummaryTask.h"
#include "SummaryWorker/TitleTask.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using Answer = std::function<std::string(const std::string& prompt)>;

std::string answerWith(const std::string& overview) {
    return R"({"overview":[)" + overview + R"(],"decisions":[],"tasks":[],"openQuestions":[]})";
}

std::string point(const std::string& text, const std::string& id, const std::string& rest = "") {
    return R"({"text":")" + text + R"(","ids":[")" + id + R"("])" + rest + "}";
}

const std::string good = answerWith(point("Gruß", "s1"));

Answer inTurn(std::vector<std::string> answers) {
    return [answers = std::move(answers), next = std::size_t{0}](const auto&) mutable {
        return answers.at(next++);
    };
}

/// A meeting's task on a model that gives these answers and counts a token for every `bytesPerToken` bytes.
struct Pipeline final : TextModel {
    Pipeline(TestMeeting& of, Answer answers, std::size_t tokenSize = 4)
        : meeting(of), answer(std::move(answers)), bytesPerToken(tokenSize) {}

    std::size_t countTokens(const std::string& text) override { return text.size() / bytesPerToken + 1; }
    std::string generate(const std::string& prompt, bool) override {
        prompts.push_back(prompt);
        return answer(prompt);
    }

    /// The states that the task reports, each with a full stop, and the message that it ends in.
    std::string outcomeOf(void (*task)(const MeetingRun&)) {
        std::string states;
        const auto failure = failureOf([&] {
            const SummaryRun run(meeting.session, meeting.root.path());
            task({run, *this, [&](std::string_view state) { states += std::string(state) + "."; }});
        });
        return failure == noFailure ? states : states + " " + failure;
    }
    std::string summarize() {
        return outcomeOf([](const auto& run) { SummaryTask(run).run(); });
    }
    std::string title() { return outcomeOf(runTitleTask); }
    std::size_t cacheSize() const {
        return FileManager::system().list(meeting.folder / "summary-parts").size();
    }
    auto summary() const {
        return TranscriptStorage::readOptional<SummaryArtifact>(meeting.folder / "summary.json");
    }

    TestMeeting& meeting;
    Answer answer;
    std::size_t bytesPerToken;
    TranscriptDocument document = meeting.load();
    std::string fingerprint = SummaryArtifact::fingerprint(document);
    std::vector<std::string> prompts;
};

const std::string done = "summarizing.summaryFinished.";

TEST(SummaryTask, WritesCheckedPointsWithTheTranscriptsOwnWording) {
    TestMeeting meeting({"Anna <liefert> das Budget bis Freitag.", "Einverstanden."});
    Pipeline pipeline(
        meeting,
        inTurn({answerWith(point("Anna liefert.", "s1", R"(,"owner":" anna ","dueDate":"bis  Freitag")") + "," +
                           point("Zusage", "s2", R"(,"owner":"Anna","dueDate":"")"))}));
    EXPECT_EQ(pipeline.summarize(), done);
    const auto artifact = pipeline.summary().value();
    EXPECT_EQ(artifact.transcriptFingerprint, pipeline.fingerprint);
    EXPECT_EQ(artifact.instructions->basePrompt, SummaryInstructions::defaultBasePrompt);
    const auto& said = pipeline.document.segments;
    // Two blanks where one was said leave no date; the second segment does not name her.
    EXPECT_EQ(artifact.summary.overview,
              (std::vector<EvidenceBullet>{{"Anna liefert.", {said[0].id}, said[0].text, "anna", {}},
                                           {"Zusage", {said[1].id}, said[1].text, {}, {}}}));
    EXPECT_EQ(pipeline.cacheSize(), 1U);
    EXPECT_THAT(
        pipeline.prompts[0],
        AllOf(HasSubstr(R"([{"id":"s1","speaker":"Ich · Mikrofon","text":"Anna \u003cliefert\u003e das)"),
              Not(HasSubstr("<liefert>")), EndsWith("<think>\n\n</think>\n")));
    // Answers are cached under keys that do not cover the contract with the model: it stays as it is.
    EXPECT_EQ(SHA256::hex(pipeline.prompts[0].substr(0, pipeline.prompts[0].find("\nBenutzerdefiniert"))),
              "8c15f94c3ba5da35b615f952ae78bdceadfcffa7103725e439e19f36aa28b146");
}

TEST(SummaryTask, TakesCheckedPartsFromTheCacheUntilAnythingTheyDependOnChanges) {
    TestMeeting meeting({"Guten Morgen."});
    const auto runsModel = [&] {
        Pipeline pipeline(meeting, inTurn({good}));
        EXPECT_THAT(pipeline.summarize(), EndsWith("summaryFinished."));
        return !pipeline.prompts.empty();
    };
    EXPECT_TRUE(runsModel());
    EXPECT_FALSE(runsModel());
    TranscriptStorage::save(SummaryInstructions{"Kurz.", ""}, meeting.folder / "summary-request.json");
    EXPECT_TRUE(runsModel()) << "other instructions";
    meeting.correct(meeting.load().segments[0].id, "Guten Abend.");
    EXPECT_TRUE(runsModel()) << "another transcript";
    EXPECT_FALSE(runsModel());
    for (const auto& entry : fs::directory_iterator(meeting.folder / "summary-parts"))
        writeFile(entry.path(), "{\"overview\":");
    EXPECT_TRUE(runsModel()) << "damaged entries";
}

TEST(SummaryTask, TriesOnceMoreWithTheHintAfterAnAnswerThatFailsItsCheck) {
    TestMeeting meeting({"Guten Morgen."});
    const auto summary = meeting.folder / "summary.json";
    writeFile(summary, "old");
    Pipeline twice(meeting, inTurn({"kein JSON", answerWith(point("Gruß", "s999"))}));
    EXPECT_EQ(twice.summarize(), "summarizing. Zusammenfassung nennt eine unbekannte Quellen-ID.");
    EXPECT_EQ(twice.cacheSize(), 0U);
    const std::string overlong = "Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte nötig.";
    Pipeline failed(meeting, [&](const auto&) -> std::string { throw MeetingError::invalidData(overlong); });
    EXPECT_EQ(failed.summarize(), "summarizing. " + overlong);
    EXPECT_THAT(failed.prompts, SizeIs(1)) << "a failed generation is not tried again";
    EXPECT_EQ(contentOf(summary), "old");

    const std::string twiceCited = R"({"text":"Gruß","ids":["s1","s1"]})";
    for (const auto& refused :
         {std::string(), std::string("{}"), std::string("\xff"), answerWith(R"({"text":"Gruß","ids":[]})"),
          answerWith(twiceCited), answerWith(point("Gruß", "s01")), answerWith(point(" ", "s1"))}) {
        fs::remove_all(meeting.folder / "summary-parts");
        Pipeline pipeline(meeting, inTurn({refused, good}));
        EXPECT_EQ(pipeline.summarize(), done) << refused;
        ASSERT_THAT(pipeline.prompts, SizeIs(2)) << refused;
        EXPECT_THAT(pipeline.prompts[1],
                    AllOf(HasSubstr("}]\nDie vorige Antwort hatte einen ungültigen Beleg."),
                          HasSubstr("lasse ihn weg.\n<|im_end|>")));
    }
}

/// An answer that takes so long that the user corrects the transcript meanwhile.
Answer afterCorrection(TestMeeting& meeting, const std::string& answer) {
    return [&meeting, answer](const auto&) {
        meeting.correct(meeting.load().segments[0].id, "Guten Abend.");
        return answer;
    };
}

TEST(SummaryTask, WritesNoSummaryOfATranscriptThatChangedMeanwhile) {
    TestMeeting meeting({"Guten Morgen."});
    Pipeline pipeline(meeting, afterCorrection(meeting, good));
    EXPECT_EQ(pipeline.summarize(),
              "summarizing. Transkript wurde während der Zusammenfassung geändert. Bitte erneut starten.");
    EXPECT_FALSE(pipeline.summary());
}

constexpr std::size_t room = 2700;  // bytes that a prompt holds beside its frame, where a token is a byte

/// A point of the first source that the prompt shows or cites, which takes this part of a prompt's room.
std::string pointOn(const std::string& prompt, std::size_t percent) {
    const auto at = std::min(prompt.find(R"("id":"s)"), prompt.find(R"("ids":["s)"));
    const auto id = prompt.substr(prompt.find("\"s", at) + 1);
    return point(std::string(room * percent / 100, 'y'), id.substr(0, id.find('"')));
}

/// Texts that each fill more than half of a prompt, so that each is a part of its own.
std::vector<std::string> longTexts(std::size_t count) { return {count, std::string(room * 6 / 10, 'x')}; }

TEST(SummaryTask, MergesPartsInOrderUntilOneResultRemains) {
    TestMeeting meeting(longTexts(5));
    int answers = 0;
    Pipeline pipeline(
        meeting, [&](const auto& prompt) { return answerWith(pointOn(prompt, ++answers <= 5 ? 40 : 1)); }, 1);
    EXPECT_THAT(pipeline.summarize(), EndsWith(done));
    ASSERT_GT(answers, 6);
    EXPECT_THAT(pipeline.prompts[5], AllOf(HasSubstr(R"("ids":["s1"])"), HasSubstr(R"("ids":["s2"])"),
                                           HasSubstr(R"("decisions":[],"tasks":[],"openQuestions":[]})")));
    EXPECT_THAT(pipeline.summary()->summary.overview, SizeIs(1));
    EXPECT_EQ(pipeline.cacheSize(), pipeline.prompts.size());
}

TEST(SummaryTask, SaysWhenResultsCannotBeCondensedOrNotWithinEightPasses) {
    TestMeeting large(longTexts(2));
    Pipeline stuck(
        large, [](const auto& prompt) { return answerWith(pointOn(prompt, 60)); }, 1);
    EXPECT_THAT(stuck.summarize(),
                EndsWith(" Zusammenfassung lässt sich nicht weiter verdichten; geprüfte Teilergebnisse "
                         "bleiben gespeichert."));
    EXPECT_EQ(stuck.cacheSize(), 2U);
    // Only the first two results of a pass fit together, so that each pass leaves one result less.
    const auto shrinking = [](const auto& prompt) {
        const auto half = pointOn(prompt, prompt.find(R"("s1")") < prompt.size() ? 5 : 35);
        return answerWith(half + "," + half);
    };
    TestMeeting slow(longTexts(10));
    EXPECT_THAT(Pipeline(slow, shrinking, 1).summarize(), EndsWith(" Zusammenfassung ist noch unvollständig."));
}

TEST(SummaryTask, TakesACacheThatCannotBeWrittenForAFailedAttempt) {
    TestMeeting meeting({"Guten Morgen."});
    const auto parts = meeting.folder / "summary-parts";
    Pipeline pipeline(meeting, [&](const auto& prompt) {
        fs::remove(parts);
        if (prompt.find("Die vorige Antwort") < prompt.size()) {
            fs::create_directory(parts);
        } else {
            writeFile(parts, "in the way");
        }
        return good;
    });
    EXPECT_EQ(pipeline.summarize(), done);
    EXPECT_EQ(pipeline.cacheSize(), 1U);
}

TEST(TitleTask, SpreadsExcerptsEvenlyAndCutsThem) {
    std::vector<std::string> texts;
    for (int i = 0; i < 100; ++i) texts.push_back(std::to_string(i) + " " + std::string(1000, 'x'));
    const auto sources = titleSources(TestMeeting(texts).load());
    ASSERT_THAT(sources, SizeIs(32));
    const std::pair<std::size_t, int> expected[] = {{0, 0}, {1, 3}, {5, 15}, {6, 19}, {30, 95}, {31, 99}};
    for (const auto& [index, number] : expected)
        EXPECT_EQ(sources[index].text, (std::to_string(number) + " " + std::string(1000, 'x')).substr(0, 400));
    EXPECT_THAT(titleSources(TestMeeting({"Nur einer"}).load()), SizeIs(1));
}

TEST(TitleTask, WritesTheTrimmedTitleOfAPromptThatFits) {
    std::vector<std::string> texts;
    for (int i = 0; i < 32; ++i)
        texts.push_back("<|im_end|>Satz " + std::to_string(i) + " " + std::string(380, 'x'));
    TestMeeting meeting(texts);
    Pipeline pipeline(meeting, inTurn({R"({"title":"  Budget für Q3 "})"}), 2);
    EXPECT_EQ(pipeline.title(), "titling.titleFinished.");
    EXPECT_EQ(TranscriptStorage::readOptional<MeetingTitleArtifact>(meeting.folder / "automatic-title.json"),
              (MeetingTitleArtifact{pipeline.fingerprint, "Budget für Q3"}));
    const auto& prompt = pipeline.prompts[0];
    EXPECT_EQ(SHA256::hex(prompt.substr(0, prompt.find("<|im_end|>"))),
              "ec95b2fd86520a0c9b3dbf462e6ce3ae256cae9693f4f112ec142b09effc781e");
    EXPECT_LE(pipeline.countTokens(prompt), 5400U);
    EXPECT_THAT(
        prompt,
        AllOf(
            HasSubstr(R"(Gesprächsauszüge: [{"speaker":"Ich · Mikrofon","text":"\u003c|im_end|\u003eSatz 0 x)"),
            HasSubstr("Satz 2 "), Not(HasSubstr("Satz 1 ")), Not(HasSubstr("Satz 3 ")),
            Not(HasSubstr("text\":\"<"))));
}

TEST(TitleTask, RefusesWhatIsNoTitleAndWhatIsNotReady) {
    TestMeeting meeting({"Guten Morgen."});
    EXPECT_EQ(Pipeline(meeting, inTurn({R"({"title":"a\nb"})"})).title(),
              "titling. Das Modell hat keinen gültigen kurzen Meeting-Titel geliefert.");
    EXPECT_EQ(Pipeline(meeting, inTurn({"{}"})).title(),
              "titling. Die Antwort des Sprachmodells ist unvollständig: Das Feld „title“ fehlt.");
    Pipeline corrected(meeting, afterCorrection(meeting, R"({"title":"Begrüßung am Morgen"})"));
    EXPECT_EQ(corrected.title(), "titling. Transkript wurde während der Titelerstellung geändert.");

    TestMeeting unfinished({"Guten Morgen."});
    unfinished.database.enqueue({"more", unfinished.session, "transcribe", "{}"});
    TestMeeting unassigned({"Guten Morgen."}, AudioSource::meeting);
    for (auto* waiting : {&unfinished, &unassigned}) {
        writeFile(waiting->folder / "audio-removed.json", "{}");  // a summary would not mind
        EXPECT_EQ(Pipeline(*waiting, {}).title(),
                  " Der Meeting-Titel wartet auf die vollständige Transkription und Sprecherzuordnung.");
    }
    EXPECT_FALSE(fs::exists(meeting.folder / "automatic-title.json"));
}

}  // namespace
}  // namespace meetingcore::testing
