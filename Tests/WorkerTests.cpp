#include <sstream>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "SummaryWorker/Progress.h"
#include "Support/FileContent.h"
#include "Support/Process.h"
#include "Support/StandInModel.h"
#include "Support/TestMeeting.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using testing::contentOf;
using ::testing::HasSubstr;
using testing::StandInScript;
using ::testing::StartsWith;
using testing::TestMeeting;
using testing::writeFile;

const std::string done = "loadingSummary, summarizing, summaryFinished";
const std::string allCached = "loadingSummary, summaryFinished";

/// The states that a run reported, and the message of the last one.
std::string reported(const testing::ProcessResult& result) {
    std::string states;
    std::map<std::string, std::string> fields;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        fields = json::decode<std::map<std::string, std::string>>(line, line);
        EXPECT_EQ(fields["version"], "1");
        states += (states.empty() ? "" : ", ") + fields["state"];
    }
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, fields["state"] == "failed" ? 1 : 0) << states;
    return fields.contains("message") ? states + ": " + fields["message"] : states;
}

/// A meeting, a stand-in model and its catalog: all that the worker needs.
class Worker : public ::testing::Test {
protected:
    Worker() {
        fs::create_directory(models);
        useModel(StandInScript::answering(
            R"({"overview":[{"text":"Anna liefert.","ids":["s2"],"owner":"Anna","dueDate":"bis Freitag"}],)"
            R"("decisions":[],"tasks":[],"openQuestions":[]})",
            R"({"title":"Lieferung bis Freitag"})"));
    }

    void useModel(const StandInScript& script) const {
        writeStandInModel(model, script);
        testing::writeCatalog(catalog, model);
    }

    using Arguments = std::vector<std::string>;
    static Arguments argumentsFor(const TestMeeting& of, const fs::path& root, const fs::path& modelFolder) {
        return {"--protocol", "1", "--session", of.session.string(), "--root", root, "--models", modelFolder};
    }
    Arguments arguments() const { return argumentsFor(meeting, root, models); }

    std::string run(const Arguments& list, const char* program = MEETING_SummaryWorkerFixture_PATH) const {
        return reported(testing::runProcess(program, list, environment));
    }
    std::string run() const { return run(arguments()); }
    std::string runTitle() const {
        auto list = arguments();
        list.emplace_back("--title-only");
        return run(list);
    }
    /// Runs the worker in a shell behind this command and before these redirections.
    std::string runInShell(std::string command, const std::string& redirections = "") const {
        command += " " MEETING_SummaryWorkerFixture_PATH;
        for (const auto& word : arguments()) command += " '" + word + "'";
        return reported(testing::runProcess("/bin/sh", {"-c", command + redirections}, environment));
    }
    testing::ChildProcess start() const {
        return {MEETING_SummaryWorkerFixture_PATH, arguments(), environment};
    }

    TestMeeting meeting{{"Guten Morgen, Anna.", "Anna liefert bis Freitag."}};
    fs::path root = meeting.root.path(), models = root / "Modelle", model = models / "Qwen3-4B-Q4_K_M.gguf";
    fs::path catalog = root / "catalog.json", summary = meeting.folder() / "summary.json";
    testing::ChildProcess::Environment environment{{"SUMMARY_WORKER_CATALOG", catalog},
                                                   {"GGML_BACKEND_PATH", root / "libggml-evil.so"}};
};

TEST_F(Worker, SummarizesAndNamesAMeetingOnARealModel) {
    EXPECT_EQ(run(), done);
    const auto artifact = TranscriptStorage::readOptional<SummaryArtifact>(summary).value();
    const auto document = meeting.load();
    EXPECT_EQ(artifact.transcriptFingerprint, SummaryArtifact::fingerprint(document));
    const EvidenceBullet point{
        "Anna liefert.", {document.segments[1].id}, "Anna liefert bis Freitag.", "Anna", "bis Freitag"};
    EXPECT_EQ(artifact.summary, (EvidenceSummary{{point}, {}, {}, {}}));
    EXPECT_EQ(fs::status(summary).permissions(), fs::perms(0600));
    EXPECT_EQ(run(), allCached);
    EXPECT_EQ(runTitle(), "loadingSummary, titling, titleFinished");
    const auto title = contentOf(meeting.folder() / "automatic-title.json");
    EXPECT_EQ(json::decode<MeetingTitleArtifact>(title, "").title, "Lieferung bis Freitag");
}

TEST_F(Worker, ReadsItsArgumentsInOrderAndTakesWhateverFollowsAName) {
    const auto session = "--protocol 1 --session " + meeting.session.string();
    const auto missing = root.string() + "/fehlt";
    const std::string unknown = "Ungültiges Summary-Protokoll.", noLock = "KI-Sperrdatei nicht verfügbar.";
    const std::string noModels = "Worker-Argument fehlt: --models";
    const std::pair<std::string, std::string> cases[] = {
        {"", "Worker-Argument fehlt: --protocol"},
        {"--protocol=1", "Worker-Argument fehlt: --protocol"},
        {"--protocol 01", unknown},
        {"--protocol 1", "Worker-Argument fehlt: --session"},
        {"--protocol 1 --session x", unknown},
        {session, "Worker-Argument fehlt: --root"},
        {"--root " + missing + " " + session, noModels},
        {session + " --root --models", noModels},
        {session + " --root --models x", noLock},  // the root is "--models", a folder that does not exist
        {session + " --models x --root " + missing + "/", noLock}};
    for (const auto& [text, message] : cases) {
        std::istringstream words(text);
        const Arguments list{std::istream_iterator<std::string>(words), {}};
        EXPECT_EQ(run(list, MEETING_SummaryWorker_PATH), "failed: " + message) << text;
    }
    EXPECT_FALSE(fs::exists(missing));
}

TEST_F(Worker, StaysInsideTheLibrary) {
    const testing::TemporaryFolder outside;
    for (const auto& folder : {meeting.folder(), root / "Meetings"}) {
        fs::remove_all(folder);
        fs::create_directory_symlink(outside.path(), folder);
        EXPECT_EQ(run(), "failed: Ungültiger Meetingpfad.");
    }
    // A link to the root itself is followed, a relative path taken from the working directory.
    fs::remove(root / "Meetings");
    fs::create_directory_symlink(root, outside.path() / "link");
    fs::create_directory(outside.path() / "x");
    EXPECT_EQ(run(argumentsFor(meeting, fs::relative(outside.path()) / "x/../link", models)), done);
}

TEST_F(Worker, WaitsForTranscriptAndSpeakersUnlessTheAudioIsGone) {
    const auto removed = meeting.folder() / "audio-removed.json";
    const std::string unfinished = "failed: Sprachverarbeitung muss zuerst vollständig abgeschlossen sein.";
    const std::string titleWaits =
        "loadingSummary, failed: Der Meeting-Titel wartet auf die vollständige Transkription und "
        "Sprecherzuordnung.";
    meeting.database.enqueue({"second", meeting.session, "transcribe", "{}"});
    EXPECT_EQ(run(), unfinished);
    const auto lease = meeting.database.claimNext(Date::now(), 60);
    EXPECT_EQ(runTitle(), unfinished);
    meeting.database.fail(*lease, "kaputt", Date::now());
    EXPECT_EQ(run(), unfinished);
    writeFile(removed, R"({"removedAt":"2025-03-14T09:26:53Z"})");
    EXPECT_EQ(run(), done);
    EXPECT_EQ(runTitle(), titleWaits);

    fs::remove(removed);
    meeting.database.retrySession(meeting.session);
    const TranscriptSegment spoken{UUID::random(), 60, 61, AudioSource::meeting, std::nullopt, "Ja."};
    meeting.database.finish(*meeting.database.claimNext(Date::now(), 60),
                            json::encode(SpeechResult{1, "second", {spoken}, {}}), Date::now());
    EXPECT_EQ(runTitle(), "failed: Die Sprecherzuordnung muss zuerst abgeschlossen sein.");
    writeFile(removed, "{}");
    EXPECT_EQ(run(), done);
    EXPECT_EQ(runTitle(), titleWaits);
}

TEST_F(Worker, RunsOncePerLibraryAndAgainAfterACrashAtAnyMoment) {
    {
        const WorkerLock held(root, WorkerLock::Purpose::inference);
        EXPECT_EQ(run(), "failed: Eine lokale KI-Verarbeitung läuft bereits für diese Bibliothek.");
        const TestMeeting elsewhere({"x"});
        EXPECT_EQ(run(argumentsFor(meeting, elsewhere.root.path(), models)),
                  "failed: Noch kein Transkript zum Zusammenfassen.");
    }
    for (int lines = 0; lines < 3; ++lines) {
        fs::remove_all(meeting.folder() / "summary-parts");
        auto child = start();
        for (int i = 0; i < lines; ++i) child.nextLine();
        child.kill();
        child.wait();
        EXPECT_THAT(run(), ::testing::AnyOf(done, allCached));
    }
}

TEST_F(Worker, LoadsOnlyAModelOfItsOwnCatalog) {
    auto list = arguments();
    list.insert(list.end(), {"--catalog", catalog, "--SUMMARY_WORKER_CATALOG", catalog});
    fs::copy_file(catalog, models / "catalog.json");
    EXPECT_EQ(run(list, MEETING_SummaryWorker_PATH),
              "loadingSummary, failed: Qwen3-4B-Q4_K_M.gguf fehlt oder ist unvollständig.");
    auto changed = contentOf(model);
    changed[changed.size() / 2] ^= 1;
    writeFile(model, changed);
    EXPECT_EQ(run(),
              "loadingSummary, failed: Die Prüfsumme von Qwen3-4B-Q4_K_M.gguf stimmt nicht. Modell "
              "erneut laden.");
    writeFile(model, "x");
    testing::writeCatalog(catalog, model);
    EXPECT_EQ(run(), "loadingSummary, failed: Qwen-Modell konnte nicht geladen werden.");
}

const StandInScript endless{.summaryPieces = {R"({"overview":[{"text":")", " weiter"},
                            .titlePieces = {R"({"title":")", " fort"},
                            .neverEnds = true};

TEST_F(Worker, ReportsWhatTheModelDoesWrong) {
    useModel(
        StandInScript::answering(R"({"overview":[{"text":"x","ids":["s999"],"owner":null,"dueDate":null}],)"
                                 R"("decisions":[],"tasks":[],"openQuestions":[]})",
                                 R"({"title":"x"})"));
    EXPECT_EQ(run(), "loadingSummary, summarizing, failed: Zusammenfassung nennt eine unbekannte Quellen-ID.");
    useModel(endless);
    EXPECT_EQ(runTitle(),
              "loadingSummary, titling, failed: Zusammenfassung überschreitet das Ausgabelimit. "
              "Kürzere Abschnitte nötig.");
    EXPECT_FALSE(fs::exists(summary) || fs::exists(meeting.folder() / "automatic-title.json"));
}

TEST_F(Worker, SaysInGermanWhichFileIsDamagedAndKeepsTheOldSummary) {
    writeFile(summary, "alt");
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"diarization.json", std::string(100'000, '['), "„diarization.json“ enthält einen unzulässigen Wert"},
        {"diarization.json", std::string(TranscriptStorage::maximumFileBytes + 1, ' '), "Ergebnisdatei ist zu"},
        {"transcript-edits.json", "\xff\xfe", "„transcript-edits.json“ ist kein gültiges JSON."},
        {"summary-request.json", R"({"basePrompt":"x"})",
         "„summary-request.json“ ist unvollständig: Das Feld „meetingPrompt“ fehlt."},
        {"summary-parts", "", "„summary-parts“ kann nicht angelegt werden: Der Name ist schon vergeben."}};
    for (const auto& [name, content, message] : cases) {
        writeFile(meeting.folder() / name, content);
        EXPECT_THAT(run(), HasSubstr(std::string("failed: ") + message));
        fs::remove(meeting.folder() / name);
    }
    ASSERT_EQ(::mkfifo((meeting.folder() / "diarization.json").c_str(), 0600), 0);
    EXPECT_EQ(run(), "failed: „diarization.json“ ist keine gewöhnliche Datei.");
    EXPECT_EQ(contentOf(summary), "alt");
}

TEST_F(Worker, SurvivesADamagedDatabaseAndDamagedResults) {
    meeting.database.enqueue({"broken", meeting.session, "transcribe", "{}"});
    meeting.database.finish(*meeting.database.claimNext(Date::now(), 60), "[1e300]", Date::now());
    EXPECT_EQ(run(), "failed: Das Ergebnis eines Transkriptionsauftrags enthält einen unzulässigen Wert.");
    meeting.database.close();
    for (const auto* suffix : {"-wal", "-shm"}) fs::remove(root / (std::string("quillmoot.sqlite") + suffix));
    writeFile(root / "quillmoot.sqlite", std::string(5000, 'x'));
    EXPECT_EQ(run(), "failed: file is not a database");
}

TEST_F(Worker, SaysWhatHappenedWhereItIsEndedWithoutAnException) {
    useModel(endless);
    auto child = start();
    for (int line = 0; line < 2; ++line) child.nextLine();
    fs::resize_file(model, 0);  // its pages are gone while they are in use
    EXPECT_THAT(reported(child.wait()), StartsWith("loadingSummary, summarizing, failed: Eine Datei wurde "));
    EXPECT_THAT(runInShell("ulimit -f 8; exec"), StartsWith("failed: "));
}

TEST_F(Worker, RunsNoCodeOfTheWorkingDirectoryOrTheEnvironment) {
    // Whatever lies there is opened only if it is looked for, and then fails to load with a trace of its name.
    for (const auto* name : {"cuda", "blas", "cpu", "evil"})
        writeFile(root / (std::string("libggml-") + name + ".so"), "kein Code");
    if (testing::runProcess("/bin/sh", {"-c", "strace -f true"}).status != 0)
        GTEST_SKIP() << "strace cannot watch processes here";
    runInShell("cd '" + root.string() + "'; exec strace -f -e trace=openat -o trace");
    EXPECT_THAT(contentOf(root / "trace"), ::testing::Not(HasSubstr("libggml-")));
}

TEST_F(Worker, NeedsNoStandardStreams) {
    auto child = start();
    child.closeOutput();
    EXPECT_EQ(child.wait().status, 0);
    EXPECT_TRUE(fs::exists(summary)) << "the reader has gone";
    EXPECT_EQ(runInShell("exec", " <&- >&- 2>&-"), "");
    EXPECT_EQ(contentOf(root / "inference.lock"), "") << "no progress went into its files";
    EXPECT_EQ(run(), allCached);
}

TEST(Progress, CutsMessagesToAThousandCharactersAndEscapesThem) {
    std::string message;
    while (message.size() < 4500) message += "e\u0301";
    EXPECT_EQ(progressLine("failed", message), R"({"message":")" + message.substr(0, 3000) +
                                                   R"(","state":"failed","version":"1"})"
                                                   "\n");
    EXPECT_EQ(progressLine("failed", "Ä/\n\xff"),
              "{\"message\":\"Ä\\/\\n\uFFFD\",\"state\":\"failed\",\"version\":\"1\"}\n");
}

}  // namespace
}  // namespace meetingcore
