#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Library/AudioArchive.h"
#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/Failure.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using testing::failureOf;
using ::testing::IsEmpty;
using testing::TemporaryFolder;
using testing::testChunk;
using ::testing::UnorderedElementsAre;
using Kind = MeetingError::Kind;

const std::string daysMessage = "Bitte 1 bis 36500 Tage oder „Nie“ wählen.";

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(AudioRetentionPolicy, KeepsDaysInRangeOrForEver) {
    const TemporaryFolder root;
    const auto file = root.path() / "audio-retention.json";
    const auto load = [&] { return AudioRetentionPolicy::load(root.path()); };
    EXPECT_EQ(load(), AudioRetentionPolicy{});
    for (const std::int64_t days : {1, 36'500}) {
        AudioRetentionPolicy{days}.save(root.path());
        EXPECT_EQ(load().days, days);
    }
    EXPECT_EQ(contentOf(file), R"({"days":36500})");
    for (const std::int64_t days : {0, 36'501, -1}) {
        EXPECT_EQ(failureOf([&] { AudioRetentionPolicy{days}.save(root.path()); }), daysMessage);
        std::ofstream(file) << json::encode(AudioRetentionPolicy{days});
        EXPECT_EQ(failureOf(load), daysMessage);
    }
    AudioRetentionPolicy{}.save(root.path());
    EXPECT_EQ(contentOf(file), "{}");
    EXPECT_EQ(load(), AudioRetentionPolicy{});
    fs::resize_file(file, TranscriptStorage::maximumFileBytes + 1);
    EXPECT_EQ(failureOf(load), "Ergebnisdatei ist zu groß.");
}

TEST(AudioRetentionPolicy, IsDueToTheSecond) {
    const auto now = Date::since1970(1'700'000'000);
    struct Case {
        std::optional<std::int64_t> days;
        std::string state;
        std::int64_t chunkCount;
        std::optional<double> secondsAgo;
        bool due;
    };
    const Case cases[] = {{2, "completed", 1, 172'800, true},    {2, "completed", 1, 172'799, false},
                          {2, "interrupted", 1, 1e9, false},     {2, "completed", 0, 1e9, false},
                          {2, "completed", 1, {}, false},        {2, "completed", 1, -1, false},
                          {{}, "completed", 1, 1e9, false},      {0, "completed", 1, 1e9, false},
                          {36'501, "completed", 1, 1e11, false}, {36'500, "completed", 1, 1e11, true}};
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
struct RecordedMeeting {
    RecordedMeeting() {
        fs::create_directories(folder() / (chunks[0].id.string() + ".chunk"));
        fs::create_directories(folder() / ".x.y.partial");
        fs::create_directories(folder() / "Audio");
        std::ofstream(folder() / (chunks[0].id.string() + ".chunk") / "audio.wav") << "Ton";
        std::ofstream(folder() / "diarization.json.chunk.bak") << "kein Ton";
        for (const auto& chunk : chunks) database.registerChunk(chunk);
        WorkScheduler::enqueue(std::span(chunks).first(2), database, true);
    }

    /// Finishes the oldest open job as a speech engine would.
    void transcribeNext() {
        const auto lease = database.claimNext(Date::now(), 60);
        SpeechResult result;
        result.windowID = lease->item.id;
        database.finish(*lease, json::encode(result), Date::now());
    }
    bool fullyProcessed() {
        return AudioRetentionPolicy::fullyProcessed(session, root.path(), database, chunks);
    }
    void remove(const AudioRemoval::Trash& trash) {
        AudioRemoval::moveToTrash(session, root.path(), database, trash, FileManager::system(),
                                  Date::since1970(1'741'944'413.75));
    }
    AudioRemoval::Recovered recover(const AudioRemoval::Trash& trash) {
        return AudioRemoval::recover(root.path(), database, trash);
    }
    std::vector<std::string> names() const { return FileManager::system().list(folder()); }
    fs::path folder() const { return TranscriptStorage::sessionDirectory(root.path(), session); }

    TemporaryFolder root;
    UUID session = UUID::random();
    SQLiteJobStore database{root.path() / "quillmoot.sqlite"};
    std::vector<AudioChunk> chunks{testChunk(session, 0, 0, 960'000), testChunk(session, 1, 60, 16'000),
                                   testChunk(UUID::random(), 0, 0, 960'000)};
    AudioRemoval::Trash refuse = [](const fs::path&) {
        throw MeetingError::storage("Der Papierkorb ist voll.");
    };
    AudioRemoval::Trash intoRoot = [this](const fs::path& item) {
        fs::rename(item, root.path() / "Papierkorb");
    };
};

TEST(AudioRetentionPolicy, CountsAMeetingAsProcessedWhenNothingIsOpen) {
    RecordedMeeting meeting;
    EXPECT_FALSE(meeting.fullyProcessed()) << "nothing is transcribed";
    meeting.transcribeNext();
    EXPECT_FALSE(meeting.fullyProcessed()) << "a job is pending";
    const auto lease = meeting.database.claimNext(Date::now(), 60);
    EXPECT_FALSE(meeting.fullyProcessed()) << "a job is running";
    meeting.database.fail(*lease, "kaputt", Date::now());
    EXPECT_FALSE(meeting.fullyProcessed()) << "a job has failed";
    meeting.database.retrySession(meeting.session);
    meeting.transcribeNext();
    EXPECT_TRUE(meeting.fullyProcessed());

    meeting.database.enqueue({"anderer", meeting.session, "index", "1"});
    meeting.database.fail(*meeting.database.claimNext(Date::now(), 60), "kaputt", Date::now());
    EXPECT_FALSE(meeting.fullyProcessed()) << "a job has failed, though every window has its result";
    meeting.database.retrySession(meeting.session);
    meeting.database.finish(*meeting.database.claimNext(Date::now(), 60), "1", Date::now());

    const DiarizationResult unfinished{1, meeting.session, UUID::random(), false, {}};
    TranscriptStorage::save(unfinished, meeting.folder() / "diarization.json");
    EXPECT_FALSE(meeting.fullyProcessed()) << "speakers are being assigned";
    fs::remove(meeting.folder() / "diarization.json");
    meeting.chunks.push_back(testChunk(meeting.session, 2, 61, 960'000));
    EXPECT_FALSE(meeting.fullyProcessed()) << "a window has no result";
    meeting.chunks.erase(meeting.chunks.begin(), meeting.chunks.begin() + 2);
    meeting.chunks.pop_back();
    EXPECT_FALSE(meeting.fullyProcessed()) << "there are no chunks";
}

TEST(AudioRemoval, MovesTheAudioAwayAndSaysSo) {
    RecordedMeeting meeting;
    meeting.transcribeNext();
    const auto chunk = meeting.chunks[0].id.string() + ".chunk";
    meeting.remove([&](const fs::path& item) {
        EXPECT_EQ(item.parent_path(), meeting.folder());
        EXPECT_EQ(UUID::parse(item.filename().string().substr(17)).has_value(), true) << item;
        EXPECT_THAT(FileManager::system().list(item), UnorderedElementsAre(".x.y.partial", chunk, "Audio"));
        EXPECT_TRUE(AudioArchive::removed(meeting.session, meeting.root.path()));
        meeting.intoRoot(item);
    });
    EXPECT_THAT(meeting.names(), ElementsAre("audio-removed.json", "diarization.json.chunk.bak"));
    EXPECT_EQ(contentOf(meeting.folder() / "audio-removed.json"), R"({"removedAt":"2025-03-14T09:26:53Z"})");
    auto jobs = meeting.database.jobStats(meeting.session);
    EXPECT_EQ(jobs["failed"], 1);
    EXPECT_EQ(jobs["completed"], 1);
    EXPECT_EQ(meeting.database.registeredChunkCount(), 1) << "of the other meeting";
    EXPECT_EQ(failureOf([&] { meeting.remove(meeting.refuse); }, Kind::storage),
              "Keine Audiodateien vorhanden.");
    EXPECT_TRUE(AudioArchive::removed(meeting.session, meeting.root.path()));
}

TEST(AudioRemoval, LeavesTheMeetingAsItWasWhereTheTrashRefuses) {
    RecordedMeeting meeting;
    const auto before = meeting.names();
    EXPECT_EQ(failureOf([&] { meeting.remove(meeting.refuse); }, Kind::storage), "Der Papierkorb ist voll.");
    EXPECT_EQ(meeting.names(), before);
    EXPECT_EQ(meeting.database.jobStats(meeting.session)["pending"], 2);

    const auto takeAndComplain = [&](const fs::path& item) {
        meeting.intoRoot(item);
        meeting.refuse(item);
    };
    EXPECT_EQ(failureOf([&] { meeting.remove(takeAndComplain); }, Kind::storage), "Der Papierkorb ist voll.");
    EXPECT_TRUE(AudioArchive::removed(meeting.session, meeting.root.path()))
        << "the audio is gone all the same";
    EXPECT_THAT(meeting.recover(meeting.refuse).finished, ElementsAre(meeting.session));
    EXPECT_EQ(meeting.database.jobStats(meeting.session)["failed"], 2);
}

TEST(AudioRemoval, RecoversOneMeetingAfterTheOther) {
    RecordedMeeting meeting;
    fs::create_directories(meeting.root.path() / "Meetings" / "Notizen");
    meeting.remove(meeting.intoRoot);
    const auto quiet = meeting.recover(meeting.refuse);
    EXPECT_THAT(quiet.finished, IsEmpty()) << "all is done";
    EXPECT_THAT(quiet.problems, IsEmpty());

    // As a crash left them: one removal with all of the audio in its staging folder, one with nothing in it
    // yet.
    const auto staging = meeting.folder() / (".Audio-entfernen-" + UUID::random().string());
    fs::rename(meeting.root.path() / "Papierkorb", staging);
    const auto begun = UUID::random();
    const auto other = TranscriptStorage::sessionDirectory(meeting.root.path(), begun);
    fs::create_directories(other / (".Audio-entfernen-" + UUID::random().string()));
    fs::create_directories(other / "a.chunk");
    const auto recovered = meeting.recover(meeting.refuse);
    EXPECT_THAT(recovered.undone, ElementsAre(begun));
    EXPECT_THAT(FileManager::system().list(other), ElementsAre("a.chunk"));
    EXPECT_THAT(recovered.problems, ElementsAre(meeting.session.string() + ": Der Papierkorb ist voll."));
    EXPECT_FALSE(AudioArchive::removed(meeting.session, meeting.root.path())) << "the audio is back";
    EXPECT_TRUE(fs::exists(meeting.folder() / "Audio"));
}

}  // namespace
}  // namespace meetingcore
