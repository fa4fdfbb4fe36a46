#include <set>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "SummaryWorker/Progress.h"
#include "Support/Process.h"
#include "Support/StandInModel.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

const std::string done = "loadingSummary, summarizing, summaryFinished";
const std::string allCached = "loadingSummary, summaryFinished";

/// The states that a run reported, and the message of the last one.
std::string reported(const ProcessResult& result) {
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
        writeCatalog(catalog, model);
    }
    std::string run(const std::string& command) const {
        return reported(runProcess("/bin/sh", {"-c", command}, environment));
    }
    ChildProcess start() const { return {"/bin/sh", {"-c", "exec " + worker}, environment}; }

    TestMeeting meeting{{"Guten Morgen, Anna.", "Anna liefert bis Freitag."}};
    fs::path root = meeting.root.path(), models = root / "Modelle", model = models / "Qwen3-4B-Q4_K_M.gguf";
    fs::path catalog = root / "catalog.json", summary = meeting.folder / "summary.json";
    ChildProcess::Environment environment{{"SUMMARY_WORKER_CATALOG", catalog},
                                          {"GGML_BACKEND_PATH", root / "libggml-evil.so"}};
    std::string session = " --protocol 1 --session " + meeting.session.string();
    std::string arguments = session + " --models " + models.string() + " --root " + root.string();
    std::string worker = MEETING_SummaryWorkerFixture_PATH + arguments, titleWorker = worker + " --title-only";
};

TEST_F(Worker, SummarizesAndNamesAMeetingOnARealModel) {
    EXPECT_EQ(run(worker), done);
    const auto document = meeting.load();
    const auto artifact = TranscriptStorage::readOptional<SummaryArtifact>(summary).value();
    EXPECT_EQ(artifact.transcriptFingerprint, SummaryArtifact::fingerprint(document));
    const auto& quoted = document.segments[1];
    EXPECT_EQ(artifact.summary.overview,
              (std::vector{EvidenceBullet{"Anna liefert.", {quoted.id}, quoted.text, "Anna", "bis Freitag"}}));
    EXPECT_EQ(fs::status(summary).permissions(), fs::perms(0600));
    EXPECT_EQ(run(worker), allCached);
    EXPECT_EQ(run(titleWorker), "loadingSummary, titling, titleFinished");
    EXPECT_THAT(contentOf(meeting.folder / "automatic-title.json"), HasSubstr("Lieferung bis Freitag"));
}

TEST_F(Worker, ReadsItsArgumentsInOrderAndTakesWhateverFollowsAName) {
    const auto missing = root.string() + "/fehlt";
    const std::string unknown = "Ungültiges Summary-Protokoll.", noLock = "KI-Sperrdatei nicht verfügbar.";
    const std::string noValue = "Worker-Argument fehlt: --";
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"", noValue + "protocol"}, {" --protocol=1", noValue + "protocol"}, {" --protocol 01", unknown},
        {" --protocol 1", noValue + "session"}, {" --protocol 1 --session x", unknown}, {session, noValue + "root"},
        {" --root x" + session, noValue + "models"}, {session + " --root --models", noValue + "models"},
        {session + " --root --models x", noLock},  // the root is "--models", a folder that does not exist
        {session + " --models x --root " + missing + "/", noLock}};
    // clang-format on
    for (const auto& [list, message] : cases)
        EXPECT_EQ(run(MEETING_SummaryWorker_PATH + list), "failed: " + message) << list;
    EXPECT_FALSE(fs::exists(missing));
}

TEST_F(Worker, StaysInsideTheLibrary) {
    const TemporaryFolder outside;
    for (const auto& folder : {meeting.folder, root / "Meetings"}) {
        fs::remove_all(folder);
        fs::create_directory_symlink(outside.path(), folder);
        EXPECT_EQ(run(worker), "failed: Ungültiger Meetingpfad.");
        fs::remove(folder);
        // Its target may come into being before the summary is written.
        fs::create_directory_symlink(outside.path() / "missing", folder);
        EXPECT_EQ(run(worker), "failed: Ungültiger Meetingpfad.");
        fs::remove(folder);
    }
    // A link to the root itself is followed, a relative path taken from the working directory.
    fs::create_directory_symlink(root, outside.path() / "link");
    fs::create_directory(outside.path() / "x");
    const auto prefix = "cd " + outside.path().string() + "; " MEETING_SummaryWorkerFixture_PATH;
    EXPECT_EQ(run(prefix + session + " --root x/../link --models " + models.string()), done);
}

TEST_F(Worker, WaitsForTranscriptAndSpeakersUnlessTheAudioIsGone) {
    const auto removed = meeting.folder / "audio-removed.json";
    const std::string unfinished = "failed: Sprachverarbeitung muss zuerst vollständig abgeschlossen sein.";
    const auto expectWithoutAudio = [&] {
        writeFile(removed, R"({"removedAt":"2025-03-14T09:26:53Z"})");
        EXPECT_EQ(run(worker), done);
        fs::remove(removed);
    };
    meeting.database.enqueue({"second", meeting.session, "transcribe", "{}"});
    EXPECT_EQ(run(worker), unfinished);
    const auto lease = meeting.database.claimNext(Date::now(), 60);
    EXPECT_EQ(run(titleWorker), unfinished);
    meeting.database.fail(*lease, "kaputt", Date::now());
    EXPECT_EQ(run(worker), unfinished);
    expectWithoutAudio();
    meeting.database.retrySession(meeting.session);
    const TranscriptSegment spoken{UUID::random(), 60, 61, AudioSource::meeting, std::nullopt, "Ja."};
    meeting.database.finish(*meeting.database.claimNext(Date::now(), 60),
                            json::encode(SpeechResult{1, "second", {spoken}, {}}), Date::now());
    EXPECT_EQ(run(worker), "failed: Die Sprecherzuordnung muss zuerst abgeschlossen sein.");
    expectWithoutAudio();
}

TEST_F(Worker, RunsOncePerLibraryAndAgainAfterACrashAtAnyMoment) {
    {
        const WorkerLock held(root, WorkerLock::Purpose::inference);
        EXPECT_EQ(run(worker), "failed: Eine lokale KI-Verarbeitung läuft bereits für diese Bibliothek.");
        const TestMeeting other({});
        EXPECT_EQ(run(MEETING_SummaryWorkerFixture_PATH " --root " + other.root.path().string() + arguments),
                  "failed: Noch kein Transkript zum Zusammenfassen.");
    }
    for (int lines = 0; lines < 3; ++lines) {
        fs::remove_all(meeting.folder / "summary-parts");
        auto child = start();
        for (int i = 0; i < lines; ++i) child.nextLine();
        child.kill();
        child.wait();
        EXPECT_THAT(run(worker), AnyOf(done, allCached));
    }
}

TEST_F(Worker, LoadsOnlyAModelOfItsOwnCatalogAndReportsWhatItDoesWrong) {
    fs::copy_file(catalog, models / "catalog.json");
    EXPECT_EQ(run(MEETING_SummaryWorker_PATH + arguments + " --catalog " + catalog.string()),
              "loadingSummary, failed: Qwen3-4B-Q4_K_M.gguf fehlt oder ist unvollständig.");
    const auto whole = contentOf(model);
    auto changed = whole;
    changed[changed.size() / 2] ^= 1;
    writeFile(model, changed);
    EXPECT_EQ(run(worker),
              "loadingSummary, failed: Die Prüfsumme von Qwen3-4B-Q4_K_M.gguf stimmt nicht. "
              "Modell erneut laden.");
    auto equalTokens = whole;  // llama.cpp takes these for a bug of its own and ends the process
    equalTokens.replace(whole.find("<0x41>"), 6, "<0x42>");
    writeFile(model, equalTokens);
    writeCatalog(catalog, model);
    EXPECT_EQ(run(worker), "loadingSummary, failed: Qwen-Modell konnte nicht geladen werden.");
}

TEST_F(Worker, SaysInGermanWhichFileIsDamagedAndKeepsTheOldSummary) {
    writeFile(summary, "alt");
    meeting.database.close();
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"diarization.json", std::string(100'000, '['), "„diarization.json“ enthält einen unzulässigen Wert"},
        {"transcript-edits.json", "\xff\xfe", "„transcript-edits.json“ ist kein gültiges JSON."},
        {"summary-request.json", "{}",
         "„summary-request.json“ ist unvollständig: Das Feld „basePrompt“ fehlt."},
        {"summary-parts", "", "„summary-parts“ kann nicht angelegt werden: Der Name ist schon vergeben."},
        {"../../quillmoot.sqlite", std::string(5000, 'x'), "file is not a database"}};
    for (const auto& [name, content, message] : cases) {
        writeFile(meeting.folder / name, content);
        EXPECT_THAT(run(worker), HasSubstr(std::string("failed: ") + message));
        fs::remove(meeting.folder / name);
    }
    EXPECT_EQ(contentOf(summary), "alt");
}

TEST_F(Worker, DoesNotCoverUpALostDatabase) {
    meeting.database.close();
    fs::remove(root / "quillmoot.sqlite");
    EXPECT_EQ(run(worker), "failed: Noch kein Transkript zum Zusammenfassen.");
    EXPECT_FALSE(fs::exists(root / "quillmoot.sqlite"));
}

TEST_F(Worker, SaysWhatHappenedWhereItIsEndedWithoutAnException) {
    useModel({.summaryPieces = {R"({"overview":[{"text":")", " weiter"},
              .titlePieces = {R"({"title":")"},
              .neverEnds = true});
    auto child = start();
    for (int line = 0; line < 2; ++line) child.nextLine();
    fs::resize_file(model, 0);  // its pages are gone while they are in use
    EXPECT_THAT(reported(child.wait()), StartsWith("loadingSummary, summarizing, failed: Eine Datei wurde "));
    EXPECT_THAT(run("ulimit -f 8; " + worker), StartsWith("failed: "));
}

#ifndef MEETING_SANITIZED  // a sanitizer ends a process that gets no memory
TEST_F(Worker, SaysInGermanWhatItGotNoMemoryFor) {
    std::set<std::string> messages;
    for (int kibibytes = 40'000;; kibibytes += 2'000) {
        ASSERT_LT(kibibytes, 2'000'000);
        const auto limit = "ulimit -v " + std::to_string(kibibytes) + "; " + worker;
        const auto result = runProcess("/bin/sh", {"-c", limit}, environment);
        if (result.status == 0) break;
        if (result.status == 127) continue;  // not even its libraries could be loaded
        EXPECT_EQ(result.status, 1) << limit << '\n' << result.out << result.err;
        const auto lastLine = result.out.substr(result.out.rfind('\n', result.out.size() - 2) + 1);
        messages.insert(json::decode<std::map<std::string, std::string>>(lastLine, lastLine)["message"]);
    }
    // Which of them meets the limit is up to the allocator.
    EXPECT_THAT(messages, Not(IsEmpty()));
    EXPECT_THAT(messages, Each(AnyOf("Qwen-Modell konnte nicht geladen werden.",
                                     "LLM-Kontext konnte nicht erstellt werden.",
                                     StartsWith("Der Arbeitsspeicher reicht nicht aus."),
                                     StartsWith("Das System hat die Verarbeitung beendet."))));
    EXPECT_THAT(run(worker), allCached);
}
#endif

/// The worker with strace between it and the system.
class WatchedWorker : public Worker {
protected:
    void SetUp() override {
        if (runProcess("/bin/sh", {"-c", "strace -f true"}).status != 0)
            GTEST_SKIP() << "strace cannot watch processes here";
    }
    /// Runs the worker in the library's folder, after `before`; strace writes to the file `trace`.
    std::string watched(const std::string& options, const std::string& before = "") const {
        // The search for leaks cannot work where another program watches.
        return run("cd " + root.string() + "; " + before + "ASAN_OPTIONS=detect_leaks=0 strace -f -o trace " +
                   options + worker);
    }
    std::string traced() const { return contentOf(root / "trace"); }
};

TEST_F(WatchedWorker, RunsNoCodeOfTheWorkingDirectoryOrTheEnvironment) {
    // Whatever lies there is opened only if it is looked for, and then fails to load with a trace of its name.
    for (const auto* name : {"cuda", "blas", "cpu", "evil"})
        writeFile(root / (std::string("libggml-") + name + ".so"), "kein Code");
    EXPECT_EQ(watched("-e trace=openat "), done);
    EXPECT_THAT(traced(), Not(HasSubstr("libggml-")));
}

TEST_F(WatchedWorker, KeepsTheOldSummaryWhereTheDiskIsFullAtAnyWrite) {
    auto calls = split("pwrite64|fsync|fdatasync|mkdir|rename");
#ifndef MEETING_SANITIZED
    calls.emplace_back("write");  // a sanitizer writes to pipes of its own, and waits for ever where that fails
#endif
    std::set<std::string> reported;
    for (const auto& call : calls) {
        for (int number = 1;; ++number) {
            writeFile(summary, "alt");
            fs::remove_all(meeting.folder / "summary-parts");
            std::ostringstream options;
            options << "-y -e trace=" << call << " -e inject=" << call << ":error=ENOSPC:when=" << number
                    << ' ';
            const auto outcome = watched(options.str());
            const auto trace = traced();
            const auto injected = trace.find("(INJECTED)");
            if (injected == std::string::npos) break;
            const auto failure = trace.substr(0, injected).substr(trace.rfind('\n', injected) + 1);
            const auto where = failure + outcome;
            const bool failed = outcome.find("failed: ") != std::string::npos;
            EXPECT_TRUE(failed || contentOf(summary) != "alt") << where;
            EXPECT_TRUE(contentOf(summary) == "alt" ||
                        TranscriptStorage::readOptional<SummaryArtifact>(summary));
            // Whatever the meeting's folder did not take is an error. A part that cannot be cached is tried
            // again.
            const bool isCache = failure.find("summary-parts/") < injected || failure.find("parts>") < injected;
            if (failure.find(meeting.session.string()) < injected && !isCache) {
                EXPECT_TRUE(failed) << where;
                reported.insert(call);
            }
            for (const auto& file : fs::recursive_directory_iterator(meeting.folder))
                EXPECT_NE(file.path().extension(), ".tmp") << where;
        }
        EXPECT_THAT(run(worker), AnyOf(done, allCached)) << "after " << call;
    }
    EXPECT_THAT(reported, ::testing::IsSupersetOf({"fsync", "mkdir", "rename"}));
}

TEST_F(WatchedWorker, UsesNoModelThatWasExchangedBetweenItsCheckAndItsLoading) {
    writeFile(summary, "alt");
    // Two seconds pass before the second opening of the file, which follows the closing after the check.
    const auto exchange = "until grep -q close trace; do sleep 0.02; done; cp '" + model.string() +
                          "' gleich && mv gleich '" + model.string() + "'";
    EXPECT_EQ(watched("-P '" + model.string() +
                          "' -e trace=openat,close -e inject=openat:delay_enter=2000000:when=2 ",
                      ": >trace; (" + exchange + ") & "),
              "loadingSummary, failed: Die Modelldatei Qwen3-4B-Q4_K_M.gguf wurde während der Prüfung "
              "ausgetauscht. Bitte erneut starten.");
    EXPECT_EQ(contentOf(summary), "alt");
}

TEST_F(Worker, NeedsNoStandardStreams) {
    auto child = start();
    child.closeOutput();
    EXPECT_EQ(child.wait().status, 0);
    EXPECT_TRUE(fs::exists(summary)) << "the reader has gone";
    EXPECT_EQ(run(worker + " <&- >&- 2>&-"), "");
    EXPECT_EQ(fs::status(root / "inference.lock").permissions(), fs::perms(0600));
    EXPECT_EQ(contentOf(root / "inference.lock"), "") << "no progress went into its files";
    EXPECT_EQ(run(worker), allCached);
}

TEST(Progress, CutsMessagesToAThousandCharactersAndEscapesThem) {
    const auto message = repeated("e\u0301", 1500);
    EXPECT_EQ(progressLine("failed", message), R"({"message":")" + message.substr(0, 3000) +
                                                   R"(","state":"failed","version":"1"})"
                                                   "\n");
    EXPECT_EQ(progressLine("failed", "Ä/\n\xff"),
              "{\"message\":\"Ä\\/\\n\uFFFD\",\"state\":\"failed\",\"version\":\"1\"}\n");
}

}  // namespace
}  // namespace meetingcore::testing
