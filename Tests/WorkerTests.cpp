#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "SummaryWorker/Progress.h"
#include "Support/Process.h"
#include "Support/StandInModel.h"
#include "Support/TestMeeting.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::ProcessResult;
using ::testing::SizeIs;
using ::testing::StartsWith;
using testing::TestMeeting;

constexpr const char* modelName = "Qwen3-4B-Q4_K_M.gguf";

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

/// The lines' states, and the message of the last line in brackets where it has one.
std::vector<std::string> statesOf(const ProcessResult& result) {
    std::vector<std::string> states;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        auto fields = json::decode<std::map<std::string, std::string>>(line, line);
        EXPECT_EQ(fields["version"], "1");
        states.push_back(fields.contains("message") ? fields["state"] + " [" + fields["message"] + "]"
                                                    : fields["state"]);
    }
    return states;
}

/// A meeting, a stand-in model and its catalog: all that the worker needs.
class Worker : public ::testing::Test {
protected:
    Worker() : meeting({"Guten Morgen, Anna.", "Anna liefert bis Freitag."}) {
        fs::create_directory(models());
        useModel(testing::StandInScript::answering(
            R"({"overview":[{"text":"Anna liefert.","ids":["s2"],"owner":"Anna","dueDate":"bis Freitag"}],"decisions":[],)"
            R"("tasks":[],"openQuestions":[]})",
            R"({"title":"Lieferung bis Freitag"})"));
    }

    void useModel(const testing::StandInScript& script) {
        writeStandInModel(models() / modelName, script);
        listModel();
    }

    void listModel() {
        const auto bytes = contentOf(models() / modelName);
        const std::vector<LocalModel> list{
            {"summary", modelName, static_cast<std::int64_t>(bytes.size()), SHA256::hex(bytes)}};
        write(catalog(), json::encode(list));
    }

    fs::path models() const { return meeting.root.path() / "Modelle"; }
    fs::path catalog() const { return meeting.root.path() / "catalog.json"; }
    fs::path summaryFile() const { return meeting.folder() / "summary.json"; }

    std::vector<std::string> arguments() const {
        return {"--protocol", "1",    "--session", meeting.session.string(),
                "--root",     root(), "--models",  models().string()};
    }
    std::string root() const { return meeting.root.path().string(); }

    ProcessResult run(std::vector<std::string> list,
                      const char* program = MEETING_SummaryWorkerFixture_PATH) const {
        return testing::runProcess(program, list, {{"SUMMARY_WORKER_CATALOG", catalog().string()}});
    }
    ProcessResult run() const { return run(arguments()); }
    ProcessResult runTitle() const {
        auto list = arguments();
        list.emplace_back("--title-only");
        return run(list);
    }

    /// Expects exit status 1, nothing on standard error and these lines.
    void expectFailure(const ProcessResult& result,
                       const ::testing::Matcher<std::vector<std::string>>& states) const {
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "");
        EXPECT_THAT(statesOf(result), states);
    }
    void expectRefusal(const ProcessResult& result, const std::string& message) const {
        expectFailure(result, ElementsAre("failed [" + message + "]"));
    }

    TestMeeting meeting;
};

TEST_F(Worker, SummarizesAndNamesAMeetingOnARealModel) {
    auto result = run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(statesOf(result), ElementsAre("loadingSummary", "summarizing", "summaryFinished"));
    const auto artifact = TranscriptStorage::readOptional<SummaryArtifact>(summaryFile());
    ASSERT_TRUE(artifact);
    const auto document = meeting.load();
    EXPECT_EQ(artifact->transcriptFingerprint, SummaryArtifact::fingerprint(document));
    ASSERT_THAT(artifact->summary.overview, SizeIs(1));
    EXPECT_EQ(
        artifact->summary.overview[0],
        (EvidenceBullet{
            "Anna liefert.", {document.segments[1].id}, "Anna liefert bis Freitag.", "Anna", "bis Freitag"}));
    EXPECT_EQ(fs::status(summaryFile()).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    result = run();
    EXPECT_THAT(statesOf(result), ElementsAre("loadingSummary", "summaryFinished")) << "all from the cache";

    result = runTitle();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(statesOf(result), ElementsAre("loadingSummary", "titling", "titleFinished"));
    const auto title =
        TranscriptStorage::readOptional<MeetingTitleArtifact>(meeting.folder() / "automatic-title.json");
    EXPECT_EQ(title->title, "Lieferung bis Freitag");
}

TEST_F(Worker, ReadsItsArgumentsInOrderAndTakesWhateverFollowsAName) {
    const auto session = meeting.session.string();
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "Worker-Argument fehlt: --protocol"},
        {{"--protocol"}, "Worker-Argument fehlt: --protocol"},
        {{"--protocol=1"}, "Worker-Argument fehlt: --protocol"},
        {{"--protocol", "2"}, "Ungültiges Summary-Protokoll."},
        {{"--protocol", "01"}, "Ungültiges Summary-Protokoll."},
        {{"--protocol", "1"}, "Worker-Argument fehlt: --session"},
        {{"--protocol", "1", "--session", "x"}, "Ungültiges Summary-Protokoll."},
        {{"--protocol", "1", "--session", "{" + session + "}"}, "Ungültiges Summary-Protokoll."},
        {{"--session", session, "--protocol", "1"}, "Worker-Argument fehlt: --root"},
        {{"--protocol", "1", "--session", session, "--root", root()}, "Worker-Argument fehlt: --models"},
        {{"--protocol", "1", "--session", session, "--root", "--models"}, "Worker-Argument fehlt: --models"},
        // Here "--models" is the root, a folder that does not exist, and "x" the model folder.
        {{"--protocol", "1", "--session", session, "--root", "--models", "x"},
         "KI-Sperrdatei nicht verfügbar."},
        {{"--protocol", "1", "--session", session, "--root", root() + "/fehlt", "--models", "x"},
         "KI-Sperrdatei nicht verfügbar."},
        {{"--protocol", "1", "--session", session, "--root", root() + "/fehlt/", "--models", "x"},
         "KI-Sperrdatei nicht verfügbar."}};
    for (const auto& [list, message] : cases) expectRefusal(run(list, MEETING_SummaryWorker_PATH), message);
    EXPECT_FALSE(fs::exists(root() + "/fehlt"));
}

TEST_F(Worker, StaysInsideTheLibrary) {
    testing::TemporaryFolder outside;
    fs::remove_all(meeting.folder());
    fs::create_directory_symlink(outside.path(), meeting.folder());
    expectRefusal(run(), "Ungültiger Meetingpfad.");

    fs::remove_all(meeting.root.path() / "Meetings");
    fs::create_directory_symlink(outside.path(), meeting.root.path() / "Meetings");
    expectRefusal(run(), "Ungültiger Meetingpfad.");

    // A link to the root itself is followed, a relative path taken from the working directory.
    fs::remove(meeting.root.path() / "Meetings");
    fs::create_directory_symlink(meeting.root.path(), outside.path() / "link");
    auto list = arguments();
    fs::create_directory(outside.path() / "x");
    list[5] = (fs::relative(outside.path()) / "x" / ".." / "link").string();
    EXPECT_EQ(run(list).status, 0);
}

TEST_F(Worker, WaitsForTranscriptAndSpeakersUnlessTheAudioIsGone) {
    const std::string unfinished = "Sprachverarbeitung muss zuerst vollständig abgeschlossen sein.";
    const auto expectRefusals = [&](const std::string& message) {
        expectRefusal(run(), message);
        expectRefusal(runTitle(), message);
    };
    meeting.database.enqueue({"second", meeting.session, "transcribe", "{}"});
    expectRefusals(unfinished);
    const auto lease = meeting.database.claimNext(Date::now(), 60);
    expectRefusals(unfinished);
    meeting.database.fail(*lease, "kaputt", Date::now());
    expectRefusals(unfinished);

    write(meeting.folder() / "audio-removed.json", R"({"removedAt":"2025-03-14T09:26:53Z"})");
    EXPECT_EQ(run().status, 0);
    const std::string titleWaits =
        "Der Meeting-Titel wartet auf die vollständige Transkription und Sprecherzuordnung.";
    expectFailure(runTitle(), ElementsAre("loadingSummary", "failed [" + titleWaits + "]"));

    fs::remove(meeting.folder() / "audio-removed.json");
    meeting.database.retrySession(meeting.session);
    const TranscriptSegment spoken{UUID::random(), 60, 61, AudioSource::meeting, std::nullopt, "Ja."};
    meeting.database.finish(*meeting.database.claimNext(Date::now(), 60),
                            json::encode(SpeechResult{1, "second", {spoken}, {}}), Date::now());
    expectRefusals("Die Sprecherzuordnung muss zuerst abgeschlossen sein.");
    write(meeting.folder() / "audio-removed.json", "{}");
    EXPECT_EQ(run().status, 0);
    expectFailure(runTitle(), ElementsAre("loadingSummary", "failed [" + titleWaits + "]"));

    auto other = arguments();
    other[3] = UUID::random().string();
    expectRefusal(run(other), "Noch kein Transkript zum Zusammenfassen.");
}

TEST_F(Worker, RunsOncePerLibraryAndAgainAfterACrash) {
    {
        const WorkerLock held(meeting.root.path(), WorkerLock::Purpose::inference);
        expectRefusal(run(), "Eine lokale KI-Verarbeitung läuft bereits für diese Bibliothek.");
        TestMeeting elsewhere({"x"});
        auto list = arguments();
        list[5] = elsewhere.root.path().string();
        expectRefusal(run(list), "Noch kein Transkript zum Zusammenfassen.");
    }
    // Killed at any moment, it leaves nothing that keeps the next one from its work.
    for (int lines = 0; lines < 3; ++lines) {
        fs::remove_all(meeting.folder() / "summary-parts");
        testing::ChildProcess child(MEETING_SummaryWorkerFixture_PATH, arguments(),
                                    {{"SUMMARY_WORKER_CATALOG", catalog().string()}});
        for (int i = 0; i < lines; ++i) child.nextLine();
        child.kill();
        child.wait();
        EXPECT_EQ(run().status, 0);
    }
}

TEST_F(Worker, LoadsOnlyAModelThatIsWhole) {
    const auto file = models() / modelName;
    const auto whole = contentOf(file);
    write(file, whole.substr(1));
    expectFailure(run(),
                  ElementsAre("loadingSummary", "failed [Qwen3-4B-Q4_K_M.gguf fehlt oder ist unvollständig.]"));
    auto changed = whole;
    changed[changed.size() / 2] ^= 1;
    write(file, changed);
    expectFailure(
        run(),
        ElementsAre("loadingSummary",
                    "failed [Die Prüfsumme von Qwen3-4B-Q4_K_M.gguf stimmt nicht. Modell erneut laden.]"));
    write(file, std::string(1000, 'x'));
    listModel();
    expectFailure(run(), ElementsAre("loadingSummary", "failed [Qwen-Modell konnte nicht geladen werden.]"));
}

TEST_F(Worker, TakesItsRealCatalogFromNowhereElse) {
    auto list = arguments();
    list.insert(list.end(), {"--catalog", catalog().string(), "--SUMMARY_WORKER_CATALOG", catalog().string()});
    fs::copy_file(catalog(), models() / "catalog.json");
    const std::string message = "failed [Qwen3-4B-Q4_K_M.gguf fehlt oder ist unvollständig.]";
    expectFailure(run(list, MEETING_SummaryWorker_PATH), ElementsAre("loadingSummary", message));
    EXPECT_THAT(contentOf(MEETING_SummaryWorker_PATH), ::testing::Not(HasSubstr("SUMMARY_WORKER_CATALOG")));
}

TEST_F(Worker, ReportsWhatTheModelDoesWrong) {
    const auto titleAnswer = R"({"title":"Titel"})";
    useModel(testing::StandInScript::answering(
        R"({"overview":[{"text":"x","ids":["s999"],"owner":null,"dueDate":null}],"decisions":[],"tasks":[],"openQuestions":[]})",
        titleAnswer));
    expectFailure(run(), ElementsAre("loadingSummary", "summarizing",
                                     "failed [Zusammenfassung nennt eine unbekannte Quellen-ID.]"));
    auto endless = testing::StandInScript::answering(
        R"({"overview":[],"decisions":[],"tasks":[],"openQuestions":[]})", R"({"title":"Titel ohne Ende)");
    endless.neverEnds = true;
    useModel(endless);
    expectFailure(runTitle(),
                  ElementsAre("loadingSummary", "titling",
                              "failed [Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte "
                              "nötig.]"));
    EXPECT_FALSE(fs::exists(summaryFile()));
    EXPECT_FALSE(fs::exists(meeting.folder() / "automatic-title.json"));
}

TEST_F(Worker, SaysInGermanWhichFileIsDamagedAndKeepsTheOldSummary) {
    write(summaryFile(), "alt");
    const std::string deep(100'000, '[');
    const std::string tooLarge(TranscriptStorage::maximumFileBytes + 1, ' ');
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"diarization.json", "{", "„diarization.json“ ist kein gültiges JSON"},
        {"diarization.json", deep, "„diarization.json“ enthält einen unzulässigen Wert"},
        {"diarization.json", R"({"x":)" + deep, "„diarization.json“ ist kein gültiges JSON"},
        {"diarization.json", tooLarge, "Ergebnisdatei ist zu groß."},
        {"transcript-edits.json", R"({"correctedText":{"a":1},"speakerNames":{}})",
         "„transcript-edits.json“ enthält einen unzulässigen Wert (Feld „correctedText.a“)."},
        {"transcript-edits.json", "\xff\xfe", "„transcript-edits.json“ ist kein gültiges JSON."},
        {"summary-request.json", R"({"basePrompt":"x"})",
         "„summary-request.json“ ist unvollständig: Das Feld „meetingPrompt“ fehlt."},
        {"summary-request.json", R"({"basePrompt":")" + std::string(3001, 'x') + R"(","meetingPrompt":""})",
         "Der Grund-Prompt darf höchstens 3.000 Zeichen"},
        {"summary-parts", "eine Datei",
         "„summary-parts“ kann nicht angelegt werden: Der Name ist schon vergeben."},
    };
    for (const auto& [name, content, message] : cases) {
        write(meeting.folder() / name, content);
        const auto result = run();
        EXPECT_THAT(statesOf(result).back(), StartsWith("failed [" + message));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "");
        fs::remove(meeting.folder() / name);
    }
    EXPECT_EQ(contentOf(summaryFile()), "alt");

    fs::create_directory(meeting.folder() / "transcript-edits.json");
    expectFailure(run(), ElementsAre("failed [„transcript-edits.json“ ist keine gewöhnliche Datei.]"));
    fs::remove(meeting.folder() / "transcript-edits.json");
    ASSERT_EQ(::mkfifo((meeting.folder() / "diarization.json").c_str(), 0600), 0);
    expectFailure(run(), ElementsAre("failed [„diarization.json“ ist keine gewöhnliche Datei.]"));
}

TEST_F(Worker, SurvivesADamagedDatabaseAndDamagedResults) {
    const std::pair<std::string, std::string> results[] = {
        {R"({"version":3,"windowID":"w","segments":[],"words":[]})", "Unbekannte Transkriptversion."},
        {"[1e300]", "Das Ergebnis eines Transkriptionsauftrags enthält einen unzulässigen Wert."},
        {R"({"version":1})",
         "Das Ergebnis eines Transkriptionsauftrags ist unvollständig: Das Feld „windowID“ fehlt."}};
    for (const auto& [result, message] : results) {
        TestMeeting damaged({"x"});
        damaged.database.enqueue({"broken", damaged.session, "transcribe", "{}"});
        damaged.database.finish(*damaged.database.claimNext(Date::now(), 60), result, Date::now());
        auto list = arguments();
        list[3] = damaged.session.string();
        list[5] = damaged.root.path().string();
        expectRefusal(run(list), message);
    }
    meeting.database.close();
    for (const auto* suffix : {"-wal", "-shm"}) fs::remove(root() + "/quillmoot.sqlite" + suffix);
    write(root() + "/quillmoot.sqlite", std::string(5000, 'x'));
    expectRefusal(run(), "file is not a database");
}

TEST_F(Worker, SaysWhatHappenedWhereItIsEndedWithoutAnException) {
    auto endless = testing::StandInScript::answering(
        R"({"overview":[],"decisions":[],"tasks":[],"openQuestions":[]})", R"({"title":"Titel ohne Ende)");
    endless.neverEnds = true;
    useModel(endless);
    testing::ChildProcess child(MEETING_SummaryWorkerFixture_PATH, arguments(),
                                {{"SUMMARY_WORKER_CATALOG", catalog().string()}});
    child.nextLine();
    child.nextLine();
    fs::resize_file(models() / modelName, 0);  // its pages are gone while they are in use
    const auto result = child.wait();
    expectFailure(result,
                  ElementsAre("loadingSummary", "summarizing", StartsWith("failed [Eine Datei wurde ")));

    writeStandInModel(models() / modelName, endless);
    std::string command = "ulimit -f 8; exec " MEETING_SummaryWorkerFixture_PATH;
    for (const auto& word : arguments()) command += " '" + word + "'";
    const auto limited =
        testing::runProcess("/bin/sh", {"-c", command}, {{"SUMMARY_WORKER_CATALOG", catalog().string()}});
    EXPECT_EQ(limited.status, 1);
    EXPECT_THAT(statesOf(limited), ElementsAre(StartsWith("failed [")));
}

TEST_F(Worker, RunsNoCodeOfTheWorkingDirectoryOrTheEnvironment) {
    // Whatever lies there is opened only if it is looked for, and then fails to load with a trace of its name.
    const auto folder = fs::canonical(meeting.root.path());
    for (const auto* name : {"libggml-cuda.so", "libggml-blas.so", "libggml-cpu.so"})
        write(folder / name, "kein Code");
    std::string command = "cd '" + folder.string() + "'; exec strace -f -e trace=openat -o '" +
                          (folder / "trace").string() + "' " MEETING_SummaryWorkerFixture_PATH;
    for (const auto& word : arguments()) command += " '" + word + "'";
    const auto result = testing::runProcess("/bin/sh", {"-c", command},
                                            {{"SUMMARY_WORKER_CATALOG", catalog().string()},
                                             {"GGML_BACKEND_PATH", (folder / "libggml-evil.so").string()}});
    if (contentOf(folder / "trace").find("inference.lock") == std::string::npos) {
        GTEST_SKIP() << "strace cannot watch processes here: " << result.err;
    }
    EXPECT_THAT(contentOf(folder / "trace"), ::testing::Not(HasSubstr("libggml-")));
}

TEST_F(Worker, OutlivesAReaderThatHasGone) {
    testing::ChildProcess child(MEETING_SummaryWorkerFixture_PATH, arguments(),
                                {{"SUMMARY_WORKER_CATALOG", catalog().string()}});
    child.closeOutput();
    EXPECT_EQ(child.wait().status, 0);
    EXPECT_TRUE(fs::exists(summaryFile()));
}

TEST_F(Worker, WritesNoProgressIntoItsFilesWhereItsStreamsWereClosed) {
    std::string command;
    for (const auto& word : arguments()) command += " '" + word + "'";
    const auto result = testing::runProcess(
        "/bin/sh", {"-c", std::string(MEETING_SummaryWorkerFixture_PATH) + command + " <&- >&- 2>&-"},
        {{"SUMMARY_WORKER_CATALOG", catalog().string()}});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(contentOf(root() + "/inference.lock"), "");
    EXPECT_EQ(run().status, 0) << "the database is still one";
}

TEST(Progress, CutsMessagesToAThousandCharactersAndEscapesThem) {
    std::string message;
    for (int i = 0; i < 1500; ++i) message += "e\u0301";
    const auto line = progressLine("failed", message);
    const auto fields = json::decode<std::map<std::string, std::string>>(line, "");
    EXPECT_EQ(fields.at("message"), message.substr(0, 3000));
    EXPECT_EQ(progressLine("failed", "Ä/\n\xff"),
              "{\"message\":\"Ä\\/\\n\uFFFD\",\"state\":\"failed\",\"version\":\"1\"}\n");
    EXPECT_EQ(progressLine("titling", std::nullopt), "{\"state\":\"titling\",\"version\":\"1\"}\n");
}

}  // namespace
}  // namespace meetingcore
