#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/ProcessingSnapshot.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "Support/Process.h"
#include "Support/StandInModel.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

/// One data folder and what the recorder keeps open on it.
class Recorder {
public:
    Recorder() {
        session.createdAt = startedAt;
        session.title = "Neues Meeting";
        for (const auto& folder : {models(), trash()}) fs::create_directory(folder);
    }

    /// Captures a track in buffers of a tenth of a second, with a pause where one is given.
    void record(AudioSource source, double seconds, double pauseAt) {
        auto track = PCMChunkAccumulator::make(
            session.id, source, 60, [&](const auto& chunk, auto samples) { store.commit(chunk, samples); });
        const std::vector<std::int16_t> buffer(audio::sampleRate / 10, 7);
        for (int i = 0; i * 0.1 < seconds; ++i) track->append(buffer, i * 0.1 + (i * 0.1 < pauseAt ? 0 : 5));
        track->endSpan();
    }

    /// Recognises one sentence in the middle of every open window.
    int transcribeAll() {
        int windows = 0;
        for (; const auto lease = database.claimNext(Date::now(), 60); ++windows) {
            const auto window = json::decode<TranscriptionWindow>(lease->item.payloadJSON, "payload");
            const double middle = (window.startSeconds() + window.endSeconds()) / 2;
            const auto text = "Anna liefert Teil " + std::to_string(windows) + " bis Freitag.";
            SpeechResult result{2, window.id(), {}, {}};
            result.segments = {{UUID::random(), middle - 1, middle + 1, window.source, std::nullopt, text}};
            result.validate(window);
            database.finish(*lease, json::encode(result), Date::now());
        }
        return windows;
    }

    void assignSpeakers(bool finished) {
        const std::vector<SpeakerTurn> turns{{"mic:1", AudioSource::microphone, 0, 200},
                                             {"1", AudioSource::meeting, 0, 200}};
        TranscriptStorage::save(DiarizationResult{2, session.id, generation_, finished, turns},
                                meetingFolder() / "diarization.json");
    }

    ProcessResult runWorker(bool titleOnly) const {
        std::vector<std::string> arguments{"--protocol", "1",    "--session", session.id.string(),
                                           "--root",     root(), "--models",  models().string()};
        if (titleOnly) arguments.emplace_back("--title-only");
        return runProcess(MEETING_SummaryWorkerFixture_PATH, arguments,
                          {{"SUMMARY_WORKER_CATALOG", (models() / "catalog.json").string()}});
    }

    void installModel() const {
        const auto file = models() / "Qwen3-4B-Q4_K_M.gguf";
        writeStandInModel(file,
                          StandInScript::answering(
                              R"({"overview":[{"text":"Anna liefert.","ids":["s2"],"owner":"Anna","dueDate":)"
                              R"("bis Freitag"}],"decisions":[],"tasks":[],"openQuestions":[]})",
                              R"({"title":"Lieferung bis Freitag"})"));
        const auto bytes = contentOf(file);
        const auto size = static_cast<std::int64_t>(bytes.size());
        const std::vector<LocalModel> list{{"summary", file.filename().string(), size, SHA256::hex(bytes)}};
        writeFile(models() / "catalog.json", json::encode(list));
    }

    bool fullyProcessed(const std::vector<AudioChunk>& chunks) {
        return AudioRetentionPolicy::fullyProcessed(session.id, root(), database, chunks);
    }
    const MeetingEntry& entry() const { return library.snapshot().meetings.at(0); }
    TranscriptDocument transcript() { return TranscriptStorage::load(session.id, folder_.path(), database); }
    ProcessingSnapshot snapshot() {
        return ProcessingSnapshot::load(session.id, folder_.path(), database, startedAt);
    }
    std::string root() const { return folder_.path().string(); }
    fs::path models() const { return folder_.path() / "Modelle"; }
    fs::path meetings() const { return folder_.path() / "Meetings"; }
    fs::path meetingFolder() const { return meetings() / session.id.string(); }
    fs::path trash() const { return folder_.path() / "Papierkorb"; }

private:
    TemporaryFolder folder_;
    UUID generation_ = UUID::random();

public:
    Date startedAt = Date::since1970(1'741'944'413);
    MeetingSession session = testSession();
    MeetingLibrary library{folder_.path()};
    DurableChunkStore store{meetings()};
    SQLiteJobStore database{folder_.path() / "quillmoot.sqlite"};
};

/// From capture to a transcript of two tracks: five windows, since the pause closes one early.
std::vector<AudioChunk> recordAndTranscribe(Recorder& recorder) {
    recorder.store.createSession(recorder.session);
    recorder.library.update([&](LibrarySnapshot& snapshot) {
        snapshot.meetings.push_back(MeetingEntry::starting(recorder.session, std::nullopt));
    });
    recorder.record(AudioSource::microphone, 130, 200);
    recorder.record(AudioSource::meeting, 70, 40);

    auto recovery = recorder.store.recover();
    EXPECT_THAT(recovery.problems, IsEmpty());
    EXPECT_THAT(recovery.chunks, SizeIs(5));
    recorder.library.reconcile(recorder.meetings(), recovery.chunks);
    EXPECT_EQ(recorder.entry().state, "interrupted");
    EXPECT_EQ(recorder.entry().chunkCount, 5);
    EXPECT_NEAR(recorder.entry().duration, 130, 1e-6);

    for (const auto& chunk : recovery.chunks) recorder.database.registerChunk(chunk);
    WorkScheduler::enqueue(recovery.chunks, recorder.database, /*flushTail=*/true);
    EXPECT_FALSE(recorder.fullyProcessed(recovery.chunks));
    EXPECT_EQ(recorder.transcribeAll(), 5);
    EXPECT_TRUE(recorder.transcript().diarizationPending());
    recorder.assignSpeakers(true);
    EXPECT_FALSE(recorder.transcript().diarizationPending());
    return recovery.chunks;
}

void removeAudioWhenDue(Recorder& recorder, const std::vector<AudioChunk>& chunks) {
    AudioRetentionPolicy{30}.save(recorder.root());
    recorder.library.update([](LibrarySnapshot& snapshot) { snapshot.meetings[0].state = "completed"; });
    const auto policy = AudioRetentionPolicy::load(recorder.root());
    const auto endedAt = recorder.startedAt.advanced(130);
    EXPECT_FALSE(policy.isDue(recorder.entry(), endedAt, endedAt.advanced(29 * 86'400.0)));
    ASSERT_TRUE(policy.isDue(recorder.entry(), endedAt, endedAt.advanced(30 * 86'400.0)));
    ASSERT_TRUE(recorder.fullyProcessed(chunks));
    AudioRemoval::moveToTrash(recorder.session.id, recorder.root(), recorder.database,
                              [&](const auto& item) { fs::rename(item, recorder.trash() / "Audio"); });

    const auto recovery = recorder.store.recover();
    EXPECT_THAT(recovery.chunks, IsEmpty());
    EXPECT_THAT(recovery.problems, IsEmpty());
    recorder.library.reconcile(recorder.meetings(), recovery.chunks);
    EXPECT_EQ(recorder.entry().chunkCount, 0);
    EXPECT_NEAR(recorder.entry().duration, 130, 1e-6);
    EXPECT_EQ(recorder.entry().state, "completed");
    EXPECT_FALSE(policy.isDue(recorder.entry(), endedAt, endedAt.advanced(1e9)));
}

TEST(LibraryFlow, KeepsTranscriptAndSummaryOfAMeetingWhoseAudioIsGone) {
    Recorder recorder;
    const auto chunks = recordAndTranscribe(recorder);
    recorder.installModel();
    const auto run = recorder.runWorker(false);
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    const auto before = recorder.snapshot();
    ASSERT_TRUE(before.summary);
    EXPECT_EQ(before.summary->transcriptFingerprint, SummaryArtifact::fingerprint(recorder.transcript()));
    ASSERT_THAT(before.summary->summary.overview, SizeIs(1));
    EXPECT_EQ(before.summary->summary.overview[0].quote, before.correctedSegments[1].text);
    EXPECT_EQ(before.correctedSegments[0].speakerID.has_value(), true);
    EXPECT_EQ(before.rawSegments[0].speakerID, std::nullopt);

    removeAudioWhenDue(recorder, chunks);
    EXPECT_EQ(recorder.snapshot(), before);

    recorder.assignSpeakers(false);
    fs::remove(recorder.meetingFolder() / "summary.json");
    const auto again = recorder.runWorker(false);
    EXPECT_EQ(again.status, 0) << again.out;
    EXPECT_EQ(recorder.snapshot().summary->summary, before.summary->summary);
    const auto title = recorder.runWorker(true);
    EXPECT_EQ(title.status, 1);
    EXPECT_THAT(title.out, HasSubstr("Der Meeting-Titel wartet auf die vollständige "));
    EXPECT_FALSE(fs::exists(recorder.meetingFolder() / "automatic-title.json"));
}

}  // namespace
}  // namespace meetingcore::testing
