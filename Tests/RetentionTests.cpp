#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/ProcessingSnapshot.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using namespace std::string_literals;

TEST(AudioRetentionPolicy, KeepsDaysInRangeOrForEver) {
    const TemporaryFolder root;
    const auto file = root.path() / "audio-retention.json";
    const auto load = [&] { return AudioRetentionPolicy::load(root.path()); };
    EXPECT_EQ(load(), AudioRetentionPolicy{});
    for (const std::int64_t days : {1, 36'500}) {
        AudioRetentionPolicy{days}.save(root.path());
        EXPECT_EQ(load().days, days);
        EXPECT_EQ(contentOf(file), R"({"days":)" + std::to_string(days) + "}");
    }
    for (const std::int64_t days : {0, 36'501, -1}) {
        writeFile(file, json::encode(AudioRetentionPolicy{days}));
        const auto saved = failureOf([&] { AudioRetentionPolicy{days}.save(root.path()); });
        for (const auto& failure : {saved, failureOf(load)})
            EXPECT_EQ(failure, "Bitte 1 bis 36500 Tage oder „Nie“ wählen.");
    }
    AudioRetentionPolicy{}.save(root.path());
    EXPECT_EQ(contentOf(file), "{}");
    EXPECT_EQ(load(), AudioRetentionPolicy{});
}

TEST(AudioRetentionPolicy, IsDueToTheSecond) {
    const auto now = Date::since1970(1'700'000'000);
    using Due = std::tuple<std::optional<int>, std::string, int, std::optional<double>, bool>;
    // clang-format off
    const Due cases[] = {  // days, state, chunks, seconds since the end
        {2, "completed", 1, 172'800, true}, {2, "completed", 1, 172'799, false}, {2, "interrupted", 1, 1e9, false},
        {2, "completed", 0, 1e9, false},    {2, "completed", 1, {}, false},      {2, "completed", 1, -1, false},
        {{}, "completed", 1, 1e9, false},   {0, "completed", 1, 1e9, false},     {36'501, "completed", 1, 1e11, false},
        {36'500, "completed", 1, 1e11, true}};
    // clang-format on
    for (const auto& [days, state, chunkCount, secondsAgo, due] : cases) {
        MeetingEntry entry;
        entry.state = state;
        entry.chunkCount = chunkCount;
        const auto endedAt = secondsAgo ? std::optional(now.advanced(-*secondsAgo)) : std::nullopt;
        EXPECT_EQ(AudioRetentionPolicy{days}.isDue(entry, endedAt, now), due)
            << days.value_or(-1) << " " << state << " " << chunkCount << " " << secondsAgo.value_or(-1);
    }
}

/// A meeting of two windows on the microphone's track, with its folder and its jobs; the last chunk is of
/// another.
class RecordedMeetingTest : public ::testing::Test, protected MeetingFolder {
protected:
    RecordedMeetingTest() {
        chunks = {testChunk(session, 0, 0, 960'000), testChunk(session, 1, 60, 16'000),
                  testChunk(UUID::random(), 0, 0, 960'000)};
        for (const auto& name : {chunkName, ".x.y.partial"s, "Audio"s}) fs::create_directories(folder / name);
        writeFile(folder / chunkName / "audio.wav", "Ton");
        writeFile(folder / "diarization.json.chunk.bak", "kein Ton");
        for (const auto& chunk : chunks) database.registerChunk(chunk);
        WorkScheduler::enqueue(std::span(chunks).first(2), database, true);
    }

    /// Finishes the oldest open job as a speech engine would, or lets it fail.
    void transcribeNext(bool fails = false) {
        const auto lease = database.claimNext(Date::now(), 60).value();
        if (fails) return database.fail(lease, "kaputt", Date::now());
        const TranscriptSegment spoken{UUID::random(), 1, 2, AudioSource::microphone, {}, "erkannt"};
        const SpeechResult result{1, lease.item.id, {spoken}, {}};
        database.finish(lease, json::encode(result), Date::now());
    }
    bool fullyProcessed() {
        return AudioRetentionPolicy::fullyProcessed(session, root.path(), database, chunks);
    }
    void remove(const AudioRemoval::Trash& trash) {
        AudioRemoval::moveToTrash(session, root.path(), database, trash, FileManager::system(),
                                  Date::since1970(1'741'944'413.75));
    }
    std::string removalFailure(const AudioRemoval::Trash& trash) {
        return failureOf([&] { remove(trash); }, Kind::storage);
    }
    AudioRemoval::Recovered recover() { return AudioRemoval::recover(root.path(), database, refuse); }
    std::vector<std::string> names() const { return FileManager::system().list(folder); }
    bool removed() const { return AudioArchive::removed(session, root.path()); }

    std::string chunkName = UUID::random().string() + ".chunk";
    AudioRemoval::Trash refuse = [](auto&) { throw MeetingError::storage("Der Papierkorb ist voll."); };
    AudioRemoval::Trash intoRoot = [this](auto& item) { fs::rename(item, root.path() / "Papierkorb"); };
};

TEST_F(RecordedMeetingTest, IsProcessedWhenNothingIsOpen) {
    EXPECT_FALSE(fullyProcessed()) << "nothing is transcribed";
    transcribeNext();
    EXPECT_FALSE(fullyProcessed()) << "a job is pending";
    const auto lease = database.claimNext(Date::now(), 60);
    EXPECT_FALSE(fullyProcessed()) << "a job is running";
    database.fail(*lease, "kaputt", Date::now());
    EXPECT_FALSE(fullyProcessed()) << "a job has failed";
    database.retrySession(session);
    transcribeNext();
    EXPECT_TRUE(fullyProcessed());
    database.enqueue({"anderer", session, "index", "1"});
    transcribeNext(/*fails=*/true);
    EXPECT_FALSE(fullyProcessed()) << "a job has failed, though every window has its result";
    database.retrySession(session);
    transcribeNext();
    TranscriptStorage::save(DiarizationResult{1, session, UUID::random(), false, {}}, turnsFile);
    EXPECT_FALSE(fullyProcessed()) << "speakers are being assigned";
    fs::remove(turnsFile);
    EXPECT_TRUE(fullyProcessed());
    chunks.push_back(testChunk(session, 2, 61, 960'000));
    EXPECT_FALSE(fullyProcessed()) << "a window has no result";
    chunks = {chunks[2]};
    EXPECT_FALSE(fullyProcessed()) << "there are no chunks";
}

TEST_F(RecordedMeetingTest, LosesItsAudioAndSaysSo) {
    transcribeNext();
    const auto snapshot = [&] { return ProcessingSnapshot::load(session, root.path(), database, Date()); };
    const auto spoken = snapshot().rawSegments.at(0).id;
    TranscriptStorage::save(TranscriptEdits{{{spoken.string(), "berichtigt"}}, {}, {}}, editsFile);
    TranscriptStorage::save(SummaryArtifact{1, "eines alten Transkripts", {}, {}, {}}, folder / "summary.json");
    const auto processed = snapshot();
    EXPECT_EQ(processed.rawSegments[0].text + " " + processed.correctedSegments.at(0).text,
              "erkannt berichtigt");
    EXPECT_EQ(processed.summary.value().transcriptFingerprint, "eines alten Transkripts") << "as stored";
    remove([&](const fs::path& item) {
        EXPECT_EQ(item.parent_path(), folder);
        EXPECT_TRUE(UUID::parse(item.filename().string().substr(17))) << item;
        EXPECT_THAT(FileManager::system().list(item), UnorderedElementsAre(".x.y.partial", chunkName, "Audio"));
        EXPECT_TRUE(removed());
        intoRoot(item);
    });
    EXPECT_EQ(snapshot(), processed) << "all but the audio stays";
    EXPECT_THAT(names(), ElementsAre("audio-removed.json", "diarization.json.chunk.bak", "session.json",
                                     "summary.json", "transcript-edits.json"));
    EXPECT_EQ(contentOf(folder / "audio-removed.json"), R"({"removedAt":"2025-03-14T09:26:53Z"})");
    EXPECT_THAT(database.jobStats(session), UnorderedElementsAre(Pair("failed", 1), Pair("completed", 1)));
    EXPECT_EQ(database.registeredChunkCount(), 1) << "of the other meeting";
    EXPECT_EQ(removalFailure(refuse), "Keine Audiodateien vorhanden.");
    EXPECT_TRUE(removed());
}

TEST_F(RecordedMeetingTest, StaysAsItWasWhereTheTrashRefuses) {
    const auto before = names();
    EXPECT_EQ(removalFailure(refuse), "Der Papierkorb ist voll.");
    EXPECT_EQ(names(), before);
    EXPECT_EQ(database.jobStats(session)["pending"], 2);
    const auto takeAndComplain = [&](const fs::path& item) { intoRoot(item), refuse(item); };
    EXPECT_EQ(removalFailure(takeAndComplain), "Der Papierkorb ist voll.");
    EXPECT_TRUE(removed()) << "the audio is gone all the same";
    EXPECT_THAT(recover().finished, ElementsAre(session));
    EXPECT_EQ(database.jobStats(session)["failed"], 2);
}

TEST_F(RecordedMeetingTest, IsRecoveredAfterAndBesideOthers) {
    fs::create_directories(root.path() / "Meetings" / "Notizen");
    // As a crash leaves them: one removal with all of the audio in its staging folder, one with nothing in it
    // yet.
    struct PowerCut {};
    EXPECT_THROW(remove([](const fs::path&) { throw PowerCut{}; }), PowerCut);
    const auto staging = ".Audio-entfernen-" + UUID::random().string();
    const auto begun = UUID::random();
    const auto other = layout::meetingFolder(root.path(), begun);
    for (const auto& name : {staging, "a.chunk"s}) fs::create_directories(other / name);
    // A link of that name leads to what is not ours to move.
    const auto linked = layout::meetingFolder(root.path(), UUID::random());
    for (const auto& made : {root.path() / "Fremd" / "a.chunk", linked}) fs::create_directories(made);
    fs::create_directory_symlink(root.path() / "Fremd", linked / staging);
    const auto recovered = recover();
    EXPECT_TRUE(fs::exists(root.path() / "Fremd" / "a.chunk"));
    EXPECT_THAT(recovered.undone, ElementsAre(begun));
    EXPECT_THAT(FileManager::system().list(other), ElementsAre("a.chunk"));
    EXPECT_THAT(recovered.problems, ElementsAre(session.string() + ": Der Papierkorb ist voll."));
    EXPECT_FALSE(removed()) << "the audio is back";
    EXPECT_TRUE(fs::exists(folder / "Audio"));
}

TEST_F(RecordedMeetingTest, HasItsAudioAgainWhenTheTrashGivesItBack) {
    const auto before = names();
    remove(intoRoot);
    const auto quiet = recover();
    EXPECT_TRUE(quiet.finished.empty() && quiet.problems.empty()) << "all is done";
    fs::rename(root.path() / "Papierkorb", folder / (".Audio-entfernen-" + UUID::random().string()));
    EXPECT_THAT(recover().undone, ElementsAre(session));
    EXPECT_FALSE(removed());
    EXPECT_EQ(names(), before);
    EXPECT_EQ(database.jobStats(session)["pending"], 2) << "its jobs wait for an engine again";
}

TEST_F(RecordedMeetingTest, IsEnteredInTheLibraryHoweverTheRemovalEnds) {
    MeetingLibrary library(root.path());
    library.update([&](LibrarySnapshot& snapshot) {
        MeetingEntry entry;
        entry.id = session;
        entry.title = "Abnahme";
        entry.state = "completed";
        entry.chunkCount = 2;
        snapshot.meetings.push_back(entry);
    });
    const auto count = [&] { return MeetingLibrary(root.path()).snapshot().meetings.at(0).chunkCount; };
    const auto events = [&] {
        return TranscriptStorage::readOptional<std::vector<SessionEvent>>(folder / "events.json")
            .value_or(std::vector<SessionEvent>{})
            .size();
    };
    const auto recoverBoth = [&] { return AudioRemoval::recover(root.path(), database, library, refuse); };
    remove(intoRoot);
    EXPECT_EQ(count(), 2) << "cut off before the library";
    EXPECT_THAT(recoverBoth().finished, ElementsAre(session));
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(events(), 1U);
    EXPECT_THAT(recoverBoth().finished, IsEmpty()) << "and only once";
    fs::rename(root.path() / "Papierkorb", folder / (".Audio-entfernen-" + UUID::random().string()));
    record(70, 16'000);
    const auto returned = recoverBoth();
    EXPECT_THAT(returned.undone, ElementsAre(session));
    EXPECT_THAT(returned.problems, IsEmpty());
    EXPECT_EQ(count(), 1);
    AudioRemoval::moveToTrash(session, root.path(), database, library, intoRoot);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(events(), 2U);
}

}  // namespace
}  // namespace meetingcore::testing
