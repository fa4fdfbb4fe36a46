#include <algorithm>
#include <fstream>
#include <thread>

#include "MeetingCore/Library/TranscriptionRun.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/WAV.h"
#include "MeetingCore/Transcript/CommandTranscriber.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/ForkedProcess.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using namespace std::chrono_literals;

/// A meeting whose recording consists of windows of a tenth of a second every ten seconds, and engines for it:
/// shell scripts that get the file, the window's id, its source and its start.
class TranscriptionRunTest : public ::testing::Test {
protected:
    TranscriptionWindow record(const std::vector<AudioChunk>& chunks) {
        DurableChunkStore store(meetings());
        if (!fs::exists(meetings())) store.createSession(session_);
        for (const auto& chunk : chunks) store.commit(chunk, samplesOf(chunk));
        SQLiteJobStore database(databaseFile());
        WorkScheduler::enqueue(chunks, database, true);
        return {session_.id, chunks.front().source, chunks};
    }

    void record(int windows, AudioSource source = AudioSource::meeting) {
        for (int i = 0; i < windows; ++i) record({testChunk(session_.id, i, 10.0 * i, 1600, source)});
    }

    /// The command for an engine that runs `script` and then hears "Hallo" at `$at`.
    std::string engine(const std::string& script) const {
        const auto file = folder_.path() / "engine.sh";
        std::ofstream(file) << "wav=$1 window=$2 source=$3 start=$4 at=0\n"
                            << script << "\n"
                            << R"(echo "{\"segments\":[{\"start\":$at,\"end\":$at,\"text\":\"Hallo\"}]}")";
        return "sh '" + file.string() + "' {wav} {window} {source} {start}";
    }

    TranscriptionRun::Report run(
        const std::string& command, TranscriptionRun::Options options = {},
        const StopRequest& stop = StopRequest(),
        const std::function<void(const TranscriptionRun::Progress&)>& onProgress = {}) {
        CommandTranscriber transcriber(command, root(), 60s);
        SQLiteJobStore database(databaseFile());
        return TranscriptionRun::run(session_.id, root(), database, transcriber, options, stop, onProgress);
    }

    std::map<std::string, std::int64_t> stats() { return SQLiteJobStore(databaseFile()).jobStats(session_.id); }

    std::string log() const {
        const auto file = folder_.path() / "log";
        return fs::exists(file) ? contentOf(file) : "";
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
    MeetingSession session_ = testSession();
};

TEST_F(TranscriptionRunTest, GivesTheEngineTheWindowAndNothingStays) {
    const auto window = record({testChunk(session_.id, 0, 5, 1600), testChunk(session_.id, 1, 5.14, 800)});
    SQLiteJobStore(databaseFile()).enqueue({"other", UUID::random(), "transcribe", "{}"});
    auto samples = samplesOf(window.chunks[0]);
    samples.resize(2240);
    for (const auto sample : samplesOf(window.chunks[1])) samples.push_back(sample);

    const auto report =
        run(engine("cat \"$wav\"" + toLog() + R"(touch "$wav.json"; ls -ld "${wav%/*}" "$wav" | cut -c 1-10)" +
                   toLog() + "printf %s \"$source $start $window\"" + toLog()));
    EXPECT_EQ(report.transcribed, 1);
    EXPECT_THAT(report.setAside, IsEmpty());
    EXPECT_EQ(log(), WAV::encode(samples) + "drwx------\n-rw-------\nmicrophone 5 " + window.id());
    EXPECT_FALSE(hasWorkFolder());
}

TEST_F(TranscriptionRunTest, SplitsTheCommandAsAShellDoes) {
    const auto window = record({testChunk(session_.id, 0, 20, 1600)});
    const auto failure = [&](const std::string& command, std::chrono::milliseconds limit = 60s) {
        const StopRequest never;
        return failureOf([&] { CommandTranscriber(command, root(), limit).transcribe(window, never).get(); });
    };
    const std::string script = R"(sh -c 'printf "%s|" "$@" >&2; exit 9' - )";
    EXPECT_THAT(failure(script + "a  'b c'\td\"e f\"'' \\\"g '' {start}"),
                HasSubstr("„sh“ endete mit Status 9: a|b c|de f|\"g||20|/"));
    EXPECT_THAT(failure(script + R"("\$\"\x" {source}={wav}'{' '{wav}' $HOME *)"),
                HasSubstr(R"(Status 9: $"\x|microphone=)"));
    for (const char* const bad : {"", " \n", "'a", "a \"b", "a\\"})
        EXPECT_THAT(failure(bad), HasSubstr("Befehl")) << bad;
    EXPECT_EQ(failure("sh -c 'sleep 60'", 100ms), "„sh“ brauchte länger als 100 ms und wurde beendet.");
}

TEST_F(TranscriptionRunTest, TakesTheFormsOfOtherRecognisers) {
    const auto window = record({testChunk(session_.id, 0, 20, 1600)});
    const auto heard = [&](const std::string& json) {
        const StopRequest never;
        CommandTranscriber engine("printf '%s\\n%.0s' '" + json + "'", root(), 60s);
        const auto result = engine.transcribe(window, never).get();
        std::ostringstream text;
        const auto tell = [&](const auto& part) {
            text << part.startSeconds << "-" << part.endSeconds << " " << part.text << "|";
        };
        std::ranges::for_each(result.segments, tell);
        std::ranges::for_each(result.words, tell);
        return text.str();
    };
    const std::string own =
        R"({"version":1,"windowID":"{window}","words":[],"segments":[{"id":")" + UUID().string() +
        R"(","startSeconds":{start},"endSeconds":20.6,"source":"{source}","text":"Hallo"}]})";
    EXPECT_EQ(heard(own), "20-20.6 Hallo|");
    EXPECT_EQ(heard(R"({"transcription":[{"offsets":{"from":10,"to":30000},"text":" Guten Tag "}]})"),
              "20.01-20.1 Guten Tag|");
    EXPECT_EQ(
        heard(R"({"segments":[{"start":0.02,"end":0.06,"text":"Ja, x","words":[)"
              R"({"word":"Ja,","start":0.02,"end":0.04},{"word":"x"}]},{"start":0.4,"end":9,"text":"y"}]})"),
        "20.02-20.06 Ja, x|20.4-20.4 y|20.02-20.04 Ja,|");
    EXPECT_EQ(heard(R"({"segments":[]})"), "");
    for (const auto& change : {std::pair{"{window}", "x"},
                               {"20.6", "20.7"},
                               {"{start}", "19.8"},
                               {"{source}", "meeting"},
                               {":1,", ":3,"},
                               {"window", "other"},
                               {own.c_str(), "[]"}})
        EXPECT_NE(failureOf([&] { heard(text::replacing(own, change.first, change.second)); }), noFailure)
            << change.second;
}

TEST_F(TranscriptionRunTest, SetsAsideWhatFailsAgainAndAgainWithItsReason) {
    record(2, AudioSource::microphone);
    record(6);
    const auto report = run(engine("fail() { echo x" + toLog() + R"(}
        case $source$start in
        microphone10) fail; echo 'Modell fehlt' >&2; exit 1;;
        meeting10) fail; echo Hallo Welt; exit;;
        meeting20) fail; exit;;
        meeting30) fail; at=0.7;;
        esac)"),
                            {.jobs = 2});
    EXPECT_EQ(report.transcribed, 4);
    std::ostringstream out;
    for (const auto& window : report.setAside) {
        out << json::nameOf(window.source) << " " << window.startSeconds << "-" << window.endSeconds << " "
            << text::prefix(window.message, 30) << "|";
    }
    EXPECT_EQ(
        out.str(),
        "microphone 10-10.1 „sh“ endete mit Status 1: Mode|meeting 10-10.1 Das Ergebnis der Erkennung ist|"
        "meeting 20-20.1 „sh“ lieferte kein Ergebnis au|meeting 30-30.1 Ungültige Zeitmarken oder Text|");
    EXPECT_EQ(log().size(), 4 * 3 * 2);
    EXPECT_THAT(stats(), ElementsAre(Pair("completed", 4), Pair("failed", 4)));
    SQLiteJobStore(databaseFile()).retrySession(session_.id);
    EXPECT_EQ(run(engine("")).progress.done, 8);
    EXPECT_EQ(run("false").progress.done, 8);
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
    EXPECT_EQ(run(engine("sleep 2"), {.leaseSeconds = 1.2}).transcribed, 1);
    EXPECT_EQ(SQLiteJobStore(databaseFile()).jobs(session_.id).at(0).attempts, 1);
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
    EXPECT_EQ(failureOf([&] { run("gibt-es-nicht", {.jobs = 2}); }, Kind::notConfigured),
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

}  // namespace
}  // namespace meetingcore::testing
