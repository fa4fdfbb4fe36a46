#include <fstream>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore::testing {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

void write(const fs::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

class DurableChunkStoreTest : public ::testing::Test {
protected:
    void SetUp() override { store.createSession(session); }

    std::string refusal(const AudioChunk& chunk, const std::vector<std::int16_t>& samples) {
        try {
            store.commit(chunk, samples);
        } catch (const MeetingError& error) {
            return error.message();
        }
        return "";
    }

    AudioChunk committed(std::int64_t sequence, double start) {
        const auto chunk = testChunk(session.id, sequence, start, 100);
        store.commit(chunk, samplesOf(chunk));
        return chunk;
    }

    TemporaryFolder folder;
    fs::path root = folder.path() / "Daten" / "Meetings";
    DurableChunkStore store{root};
    MeetingSession session = testSession();
    fs::path sessionFolder = store.sessionDirectory(session.id);
};

TEST_F(DurableChunkStoreTest, WritesTheseFilesForTheOwnerAlone) {
    const auto previousMask = ::umask(0);
    const auto chunk = testChunk(session.id, 7, 1.5, 2, AudioSource::meeting);
    const auto stored = store.commit(chunk, samplesOf(chunk));
    ::umask(0777);
    auto other = testSession();
    DurableChunkStore masked(root / "tief" / "unten");
    masked.createSession(other);
    ::umask(previousMask);

    EXPECT_EQ(stored, sessionFolder / (chunk.id.string() + ".chunk"));
    auto& files = FileManager::system();
    EXPECT_EQ(files.read(stored / "audio.wav", 0, 1000), WAV::encode(samplesOf(chunk)));
    EXPECT_EQ(
        files.read(stored / "metadata.json", 0, 1000),
        R"({"schemaVersion":1,"id":")" + chunk.id.string() + R"(","sessionID":")" + session.id.string() +
            R"(","source":"meeting","sequence":7,"startSeconds":1.5,"sampleCount":2,"sampleRate":16000})");
    EXPECT_EQ(files.read(sessionFolder / "session.json", 0, 1000),
              R"({"schemaVersion":1,"id":")" + session.id.string() +
                  R"(","createdAt":721692800.25,"title":"Wochenrunde","applicationBundleID":"example.meeting",)"
                  R"("consentConfirmed":true})");
    std::size_t entries = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
        const auto permissions = fs::symlink_status(entry).permissions();
        EXPECT_EQ(permissions, entry.is_directory() ? fs::perms(0700) : fs::perms(0600)) << entry;
        ++entries;
    }
    EXPECT_EQ(entries, 11U);
}

TEST_F(DurableChunkStoreTest, RefusesSessionsWithoutConsentOrTwice) {
    const auto refusalOf = [&](const MeetingSession& refused) -> std::string {
        try {
            store.createSession(refused);
        } catch (const MeetingError& error) {
            return error.message();
        }
        return "";
    };
    EXPECT_EQ(refusalOf(session), "Die Sitzung existiert bereits.");
    auto unconfirmed = testSession();
    unconfirmed.consentConfirmed = false;
    EXPECT_EQ(refusalOf(unconfirmed), "Die Aufnahme wurde nicht freigegeben.");
    EXPECT_FALSE(fs::exists(store.sessionDirectory(unconfirmed.id)));
}

TEST_F(DurableChunkStoreTest, RefusesWhatBreaksARule) {
    const auto chunk = testChunk(session.id, 0, 0, 100);
    auto invalid = chunk;
    invalid.sampleRate = 48'000;
    EXPECT_EQ(refusal(invalid, samplesOf(invalid)), "Ungültige Audioabschnitt-Metadaten.");
    EXPECT_EQ(refusal(chunk, {1, 2}), "Sampleanzahl passt nicht zu den Metadaten.");
    const auto homeless = testChunk(UUID::random(), 0, 0, 100);
    EXPECT_EQ(refusal(homeless, samplesOf(homeless)), "Die Sitzung wurde noch nicht angelegt.");
    fs::create_directory_symlink(sessionFolder, store.sessionDirectory(homeless.sessionID));
    EXPECT_EQ(refusal(homeless, samplesOf(homeless)), "Die Sitzung wurde noch nicht angelegt.");
    EXPECT_THAT(FileManager::system().list(sessionFolder), ElementsAre("session.json"));
}

TEST_F(DurableChunkStoreTest, TakesAnIdenticalRepeatAndNothingElseUnderTheSameIdentifier) {
    constexpr const char* conflict = "Konflikt: Abschnitts-ID existiert mit anderem Inhalt.";
    const auto chunk = testChunk(session.id, 0, 0, 100);
    auto samples = samplesOf(chunk);
    const auto stored = store.commit(chunk, samples);
    EXPECT_EQ(store.commit(chunk, samples), stored);
    EXPECT_THAT(store.recover().incompleteDirectories, IsEmpty());
    auto moved = chunk;
    moved.startSeconds = 1;
    EXPECT_EQ(refusal(moved, samples), conflict);
    samples[99] = 0;
    EXPECT_EQ(refusal(chunk, samples), conflict);
    write(stored / "metadata.json", "{");
    EXPECT_EQ(refusal(chunk, samplesOf(chunk)), conflict);
    fs::remove_all(stored);
    fs::create_directory_symlink(sessionFolder, stored);
    EXPECT_EQ(refusal(chunk, samplesOf(chunk)), conflict);
}

TEST_F(DurableChunkStoreTest, ListsCompleteChunksOfAllSessionsByTime) {
    const auto late = committed(1, 60);
    const auto early = committed(0, 0);
    auto other = testSession();
    store.createSession(other);
    const auto middle = testChunk(other.id, 0, 30, 10);
    store.commit(middle, samplesOf(middle));
    EXPECT_THAT(store.recover().chunks, ElementsAre(early, middle, late));
    EXPECT_THAT(store.recover(session.id).chunks, ElementsAre(early, late));
    EXPECT_THAT(store.recover().problems, IsEmpty());

    write(sessionFolder / "audio-removed.json", "");
    EXPECT_THAT(store.recover().chunks, ElementsAre(middle));
    EXPECT_THAT(store.recover(session.id).chunks, IsEmpty());
    EXPECT_THAT(DurableChunkStore(root / "fehlt").recover().chunks, IsEmpty());
}

TEST_F(DurableChunkStoreTest, NamesEveryBrokenOrForeignEntryAndGoesOn) {
    struct Case {
        const char* name;
        std::function<void(const fs::path& chunk)> spoil;
        std::string problem;  // behind the chunk's name; a lone text is the whole line
    };
    constexpr const char* brokenAudio = "WAV-Datei ist beschädigt oder hat ein unerwartetes Format.";
    constexpr const char* foreign = "Abschnitt gehört nicht zur erwarteten Sitzung.";
    const auto withRecord = [](auto change) {
        return [change](const fs::path& chunk) {
            const auto text = FileManager::system().read(chunk / "metadata.json", 0, 1000);
            auto record = json::decode<AudioChunk>(text, "");
            change(record);
            write(chunk / "metadata.json", json::encode(record));
        };
    };
    const std::vector<Case> cases{
        {"a sample short", [](auto& chunk) { fs::resize_file(chunk / "audio.wav", 242); }, brokenAudio},
        {"header only", [](auto& chunk) { fs::resize_file(chunk / "audio.wav", 44); }, brokenAudio},
        {"no audio", [](auto& chunk) { fs::remove(chunk / "audio.wav"); }, "„audio.wav“ fehlt."},
        {"no metadata", [](auto& chunk) { fs::remove(chunk / "metadata.json"); }, "„metadata.json“ fehlt."},
        {"a rule broken", withRecord([](auto& record) { record.sampleRate = 8000; }),
         "Ungültige Audioabschnitt-Metadaten."},
        {"another chunk's", withRecord([](auto& record) { record.id = UUID::random(); }), foreign},
        {"another session's", withRecord([](auto& record) { record.sessionID = UUID::random(); }), foreign},
        {"a link to metadata",
         [](auto& chunk) {
             fs::rename(chunk / "metadata.json", chunk / "echt.json");
             fs::create_symlink(chunk / "echt.json", chunk / "metadata.json");
         },
         "„metadata.json“ ist eine symbolische Verknüpfung."},
        {"a link to audio",
         [](auto& chunk) {
             fs::rename(chunk / "audio.wav", chunk / "echt.wav");
             fs::create_symlink(chunk / "echt.wav", chunk / "audio.wav");
         },
         "„audio.wav“ ist eine symbolische Verknüpfung."},
        {"a link to the chunk",
         [](auto& chunk) {
             fs::rename(chunk, chunk.parent_path() / "echt");
             fs::create_directory_symlink(chunk.parent_path() / "echt", chunk);
         },
         "„%“ ist eine symbolische Verknüpfung."},
        {"a file for a chunk",
         [](auto& chunk) {
             fs::remove_all(chunk);
             write(chunk, "");
         },
         "„%“ ist kein Ordner."},
    };
    const auto intact = committed(0, 0);
    for (const auto& [name, spoil, problem] : cases) {
        const auto spoilt = store.chunkDirectory(committed(1, 1));
        spoil(spoilt);
        const auto report = store.recover();
        EXPECT_THAT(report.chunks, ElementsAre(intact)) << name;
        auto line = spoilt.filename().string() + ": " + problem;
        if (const auto mark = line.find('%'); mark != line.npos)
            line.replace(mark, 1, spoilt.filename().string());
        EXPECT_THAT(report.problems, ElementsAre(line)) << name;
        fs::remove_all(spoilt);
        fs::remove_all(sessionFolder / "echt");
    }
}

TEST_F(DurableChunkStoreTest, NamesWhatIsNoSessionAndListsWhatIsUnfinished) {
    const auto intact = committed(0, 0);
    const auto elsewhere = folder.path() / "anderswo";
    fs::rename(store.sessionDirectory(session.id), elsewhere);
    fs::copy(elsewhere, sessionFolder, fs::copy_options::recursive);
    fs::create_directory(sessionFolder / ("." + intact.id.string() + ".X.partial"));
    fs::create_directory(root / ".X.partial");
    fs::create_directory(root / "leer");
    fs::copy(sessionFolder, root / "kopie", fs::copy_options::recursive);
    write(root / "datei", "");
    fs::create_directory(root / "kaputt");
    write(root / "kaputt" / "session.json", "{}");
    fs::create_directory_symlink(elsewhere, root / "verweis");
    const auto report = store.recover();
    EXPECT_THAT(report.chunks, ElementsAre(intact));
    EXPECT_THAT(report.incompleteDirectories,
                ElementsAre(root / ".X.partial", sessionFolder / ("." + intact.id.string() + ".X.partial")));
    EXPECT_THAT(
        report.problems,
        ElementsAre("datei: „datei“ ist kein Ordner.", ::testing::StartsWith("kaputt: „session.json“"),
                    "kopie: Sitzungsmanifest stimmt nicht mit dem Verzeichnis überein.",
                    "leer: „session.json“ fehlt.", "verweis: „verweis“ ist eine symbolische Verknüpfung."));
}

}  // namespace
}  // namespace meetingcore::testing
