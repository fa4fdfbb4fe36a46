#include <atomic>
#include <fstream>
#include <iterator>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "MeetingCore/Library/TranscriptionRun.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/WAV.h"
#include "MeetingCore/Transcript/CommandTranscriber.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/Failure.h"
#include "Support/ForkedProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::failureOf;
using testing::ForkedProcess;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::TemporaryFolder;

/// A meeting whose recording consists of windows of a tenth of a second every ten seconds, and engines for it:
/// shell scripts that get the file, the window's id, its source and its start.
class TranscriptionRunTest : public ::testing::Test {
protected:
    void record(int windows, AudioSource source = AudioSource::meeting) {
        DurableChunkStore store(meetings());
        if (!fs::exists(meetings())) store.createSession(session_);
        std::vector<AudioChunk> chunks;
        for (int i = 0; i < windows; ++i) {
            chunks.push_back(testing::testChunk(session_.id, i, 10.0 * i, 1600, source));
            store.commit(chunks.back(), testing::samplesOf(chunks.back()));
        }
        SQLiteJobStore database(databaseFile());
        WorkScheduler::enqueue(chunks, database, true);
    }

    /// The command for an engine that runs `script` and then says that the window begins with "Hallo".
    std::string engine(const std::string& script) const {
        const auto file = folder_.path() / "engine.sh";
        std::ofstream(file) << "wav=$1 window=$2 source=$3 start=$4\n"
                            << script << R"SH(
printf '{"version":1,"windowID":"%s","words":[],"segments":[{"id":"%s","startSeconds":%s,"endSeconds":%s,' \
       "$window" 01234567-89AB-CDEF-0123-456789ABCDEF "$start" "$start"
printf '"source":"%s","text":"Hallo"}]}' "$source"
)SH";
        return "sh '" + file.string() + "' {wav} {window} {source} {start}";
    }

    TranscriptionRun::Report run(
        const std::string& command, TranscriptionRun::Options options = {},
        const StopRequest& stop = StopRequest(),
        const std::function<void(const TranscriptionRun::Progress&)>& onProgress = {}) {
        CommandTranscriber transcriber(command, root(), timeLimit_);
        SQLiteJobStore database(databaseFile());
        return TranscriptionRun::run(session_.id, root(), database, transcriber, options, stop, onProgress);
    }

    std::map<std::string, std::int64_t> stats() { return SQLiteJobStore(databaseFile()).jobStats(session_.id); }

    std::string log() const {
        std::ifstream stream(folder_.path() / "log");
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::string toLog() const { return " >>'" + (folder_.path() / "log").string() + "'\n"; }

    void awaitLog() const {
        while (log().empty()) std::this_thread::sleep_for(1ms);
    }

    bool hasWorkFolder() const {
        return std::any_of(fs::directory_iterator(meetings() / session_.id.string()), {},
                           [](const auto& entry) { return entry.path().extension() == ".partial"; });
    }

    fs::path root() const { return folder_.path() / "Daten 'und' \"Ton\""; }
    fs::path meetings() const { return root() / "Meetings"; }
    fs::path databaseFile() const { return root() / "quillmoot.sqlite"; }

    TemporaryFolder folder_;
    MeetingSession session_ = testing::testSession();
    std::chrono::milliseconds timeLimit_ = 60s;
};

TEST_F(TranscriptionRunTest, GivesTheEngineTheWindowAndNothingStays) {
    record(0);
    DurableChunkStore store(meetings());
    std::vector chunks{testing::testChunk(session_.id, 0, 5, 1600),
                       testing::testChunk(session_.id, 1, 5.14, 800)};
    for (const auto& chunk : chunks) store.commit(chunk, testing::samplesOf(chunk));
    SQLiteJobStore(databaseFile()).enqueue({"other", UUID::random(), "transcribe", "{}"});
    {
        SQLiteJobStore database(databaseFile());
        WorkScheduler::enqueue(chunks, database, true);
    }
    auto samples = testing::samplesOf(chunks[0]);
    samples.resize(2240);
    const auto second = testing::samplesOf(chunks[1]);
    samples.insert(samples.end(), second.begin(), second.end());

    const auto report = run(engine("cat \"$wav\"" + toLog() +
                                   "touch \"$wav.json\"; ls -ld \"${wav%/*}\" \"$wav\" | cut -c 1-10" +
                                   toLog() + "printf %s \"$source $start $window\"" + toLog()));
    EXPECT_EQ(report.transcribed, 1);
    EXPECT_THAT(report.setAside, IsEmpty());
    const TranscriptionWindow window{session_.id, AudioSource::microphone, chunks};
    EXPECT_EQ(log(), WAV::encode(samples) + "drwx------\n-rw-------\nmicrophone 5 " + window.id());
    EXPECT_FALSE(hasWorkFolder());
}

TEST_F(TranscriptionRunTest, SplitsTheCommandAsAShellDoes) {
    record(1);
    DurableChunkStore store(meetings());
    const TranscriptionWindow window{session_.id, AudioSource::meeting, store.recover().chunks};
    const auto script = folder_.path() / "arguments.sh";
    std::ofstream(script) << "printf '%s|' \"$@\" >&2; exit 9";
    const StopRequest never;
    for (const auto& [words, expected] : {
             std::pair{"a  'b c'\td\"e f\"'' \\\"g '' {start}", "a|b c|de f|\"g||0|"},
             std::pair{R"("\$\"\x" {source}={wav}'{' '{wav}' $HOME *)", R"($"\x|meeting=)"},
         }) {
        CommandTranscriber transcriber("sh " + script.string() + " " + words, root(), timeLimit_);
        EXPECT_THAT(failureOf([&] { transcriber.transcribe(window, never).get(); }),
                    HasSubstr(std::string("„sh“ endete mit Status 9: ") + expected))
            << words;
    }
    for (const char* const bad : {"", " \n", "'a", "a \"b", "a\\"})
        EXPECT_NE(failureOf([&] { CommandTranscriber(bad, root(), timeLimit_); }), "no failure") << bad;
}

TEST_F(TranscriptionRunTest, SetsAsideWhatFailsAgainAndAgainWithItsReason) {
    struct Case {
        const char* script;
        const char* message;
    };
    timeLimit_ = 300ms;
    for (const auto& [script, message] : {
             Case{"echo 'Modell fehlt' >&2; exit 1", "„sh“ endete mit Status 1: Modell fehlt"},
             Case{"echo Hallo Welt; exit", "Das Ergebnis der Erkennung"},
             Case{"exit", "„sh“ lieferte kein Ergebnis auf der Standardausgabe."},
             Case{"start=20.7", "Ungültige Zeitmarken oder Textsegmente vom Sprachmodell."},
             Case{"window=x", "Ungültige Zeitmarken oder Textsegmente vom Sprachmodell."},
             Case{"exec sleep 60", "„sh“ brauchte länger als 300 ms und wurde beendet."},
         }) {
        fs::remove_all(root());
        record(2, AudioSource::microphone);
        record(4);
        const auto command =
            engine("if [ $source$start = meeting20 ]; then echo x" + toLog() + script + "\nfi");
        fs::remove(folder_.path() / "log");
        const auto report = run(command, {.jobs = 2});
        EXPECT_EQ(log(), "x\nx\nx\n") << script;
        EXPECT_EQ(report.transcribed, 5) << script;
        ASSERT_EQ(report.setAside.size(), 1) << script;
        EXPECT_EQ(report.setAside[0].source, AudioSource::meeting);
        EXPECT_EQ(report.setAside[0].startSeconds, 20);
        EXPECT_EQ(report.setAside[0].endSeconds, 20.1);
        EXPECT_THAT(report.setAside[0].message, HasSubstr(message));
        EXPECT_THAT(stats(), ElementsAre(Pair("completed", 5), Pair("failed", 1)));
    }
    SQLiteJobStore(databaseFile()).retrySession(session_.id);
    EXPECT_EQ(run(engine("")).progress.done, 6);
    const auto nothing = run("false");
    EXPECT_EQ(nothing.transcribed, 0);
    EXPECT_EQ(nothing.progress.done, 6);
}

TEST_F(TranscriptionRunTest, TriesAgainAndReportsProgress) {
    record(8);
    std::vector<std::int64_t> done;
    const auto report = run(engine("mkdir '" + folder_.path().string() + "'/$start 2>/dev/null && exit 1"),
                            {.jobs = 4}, StopRequest(), [&](const auto& progress) {
                                EXPECT_EQ(progress.total, 8);
                                EXPECT_EQ(progress.failed, 0);
                                done.push_back(progress.done);
                            });
    EXPECT_EQ(report.transcribed, 8);
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
    EXPECT_EQ(done.size(), 17);
    SQLiteJobStore database(databaseFile());
    EXPECT_EQ(TranscriptStorage::load(session_.id, root(), database).segments.size(), 8);
}

TEST_F(TranscriptionRunTest, RenewsTheLeaseOfASlowWindow) {
    record(1);
    std::atomic<bool> over = false;
    std::atomic<int> taken = 0;
    std::thread other([&] {
        SQLiteJobStore database(databaseFile());
        while (!over) {
            if (database.recoverExpired(Date::now()) > 0) ++taken;
            std::this_thread::sleep_for(5ms);
        }
    });
    EXPECT_EQ(run(engine("sleep 1.5"), {.leaseSeconds = 0.6}).transcribed, 1);
    over = true;
    other.join();
    EXPECT_EQ(taken, 0);
}

TEST_F(TranscriptionRunTest, DropsTheResultOfALostLease) {
    record(1);
    std::optional<JobLease> stolen;
    std::thread thief([&] {
        awaitLog();
        SQLiteJobStore database(databaseFile());
        database.recoverExpired(Date::now().advanced(1000));
        stolen = database.claimNext(Date::now(), 1000);
    });
    const auto report = run(engine("echo x" + toLog() + "sleep 60"), {.leaseSeconds = 1});
    thief.join();
    EXPECT_EQ(report.transcribed, 0);
    EXPECT_EQ(report.elsewhere, 1);
    SQLiteJobStore(databaseFile()).finish(stolen.value(), "{}", Date::now());
}

TEST_F(TranscriptionRunTest, GivesBackWhatAStopRequestInterrupts) {
    record(3);
    StopRequest stop;
    std::thread user([&] {
        awaitLog();
        stop.request();
    });
    const auto report = run(engine("echo x" + toLog() + "exec sleep 60"), {.jobs = 2}, stop);
    user.join();
    EXPECT_EQ(report.pending, 3);
    EXPECT_THAT(stats(), ElementsAre(Pair("pending", 3)));
    EXPECT_FALSE(hasWorkFolder());
    EXPECT_EQ(failureOf([&] { run("gibt-es-nicht", {.jobs = 2}); }, MeetingError::Kind::notConfigured),
              "Das Programm „gibt-es-nicht“ wurde nicht gefunden.");
    EXPECT_THAT(stats(), ElementsAre(Pair("pending", 3)));
    EXPECT_EQ(run(engine("")).transcribed, 3);
}

TEST_F(TranscriptionRunTest, GoesOnAfterAKill) {
    record(3);
    const auto command = engine("echo x" + toLog() + "[ $start = 0 ] || exec sleep 2");
    ForkedProcess killed([&] {
        run(command);
        return 0;
    });
    while (log() != "x\nx\n") std::this_thread::sleep_for(1ms);
    killed.kill();
    EXPECT_TRUE(hasWorkFolder());  // where recovery finds it
    EXPECT_THAT(stats(), ElementsAre(Pair("completed", 1), Pair("pending", 1), Pair("running", 1)));
    SQLiteJobStore(databaseFile()).recoverExpired(Date::now().advanced(1000));
    EXPECT_EQ(run(engine("")).progress.done, 3);
}

TEST_F(TranscriptionRunTest, SharesTheWindowsWithAnotherProcess) {
    constexpr int windows = 12;
    record(windows);
    const auto command = engine("echo x" + toLog() + "sleep 0.05");
    const auto work = [&] { return static_cast<int>(run(command, {.jobs = 2}).transcribed); };
    ForkedProcess first(work);
    ForkedProcess second(work);
    EXPECT_EQ(first.wait() + second.wait(), windows);
    EXPECT_EQ(log().size(), 2 * windows);
    EXPECT_THAT(stats(), ElementsAre(Pair("completed", windows)));
}

}  // namespace
}  // namespace meetingcore
