#include <sys/stat.h>

#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

class DurableChunkStoreTest : public ::testing::Test {
protected:
    void SetUp() override { store.createSession(session); }

    std::string refusal(const AudioChunk& chunk, const std::vector<std::int16_t>& samples) {
        return messageOf([&] { store.commit(chunk, samples); });
    }

    AudioChunk committed(std::int64_t sequence, double start, const UUID& id) {
        const auto chunk = testChunk(id, sequence, start, 100);
        store.commit(chunk, samplesOf(chunk));
        return chunk;
    }

    TemporaryFolder folder;
    fs::path root = folder.path() / "Daten" / "Meetings";
    DurableChunkStore store{root};
    MeetingSession session = testSession(), other = testSession();
    fs::path sessionFolder = store.sessionDirectory(session.id);
};

TEST_F(DurableChunkStoreTest, WritesTheseFilesForTheOwnerAlone) {
    const auto previousMask = ::umask(0);
    const auto chunk = testChunk(session.id, 7, 1.5, 2, AudioSource::meeting);
    const auto stored = store.commit(chunk, samplesOf(chunk));
    ::umask(0777);
    DurableChunkStore(root / "tief" / "unten").createSession(other);
    ::umask(previousMask);

    EXPECT_EQ(stored, sessionFolder / (chunk.id.string() + ".chunk"));
    EXPECT_EQ(contentOf(stored / "audio.wav"), WAV::encode(samplesOf(chunk)));
    EXPECT_EQ(contentOf(stored / "metadata.json"), json::encode(chunk));
    EXPECT_EQ(contentOf(sessionFolder / "session.json"), json::encode(session));
    std::size_t entries = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
        const auto permissions = fs::symlink_status(entry).permissions();
        EXPECT_EQ(permissions, entry.is_directory() ? fs::perms(0700) : fs::perms(0600)) << entry;
        ++entries;
    }
    EXPECT_EQ(entries, 11U);
}

TEST_F(DurableChunkStoreTest, RefusesWhatBreaksARule) {
    EXPECT_EQ(messageOf([&] { store.createSession(session); }), "Die Sitzung existiert bereits.");
    other.consentConfirmed = false;
    EXPECT_EQ(messageOf([&] { store.createSession(other); }), "Die Aufnahme wurde nicht freigegeben.");
    const auto chunk = testChunk(session.id, 0, 0, 100), homeless = testChunk(other.id, 0, 0, 100);
    auto invalid = chunk;
    invalid.sampleRate = 48'000;
    EXPECT_EQ(refusal(invalid, samplesOf(invalid)), "Ungültige Audioabschnitt-Metadaten.");
    EXPECT_EQ(refusal(chunk, {1, 2}), "Sampleanzahl passt nicht zu den Metadaten.");
    EXPECT_EQ(refusal(homeless, samplesOf(homeless)), "Die Sitzung wurde noch nicht angelegt.");
    fs::create_directory_symlink(sessionFolder, store.sessionDirectory(other.id));
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
    writeFile(stored / "metadata.json", "{");
    EXPECT_EQ(refusal(chunk, samplesOf(chunk)), conflict);
    fs::remove_all(stored);
    fs::create_directory_symlink(sessionFolder, stored);
    EXPECT_EQ(refusal(chunk, samplesOf(chunk)), conflict);
}

TEST_F(DurableChunkStoreTest, ListsCompleteChunksOfAllSessionsByTime) {
    store.createSession(other);
    const auto late = committed(1, 60, session.id), early = committed(0, 0, session.id);
    const auto middle = committed(0, 30, other.id);
    EXPECT_THAT(store.recover().chunks, ElementsAre(early, middle, late));
    EXPECT_THAT(store.recover(session.id).chunks, ElementsAre(early, late));
    writeFile(sessionFolder / "audio-removed.json", "");
    EXPECT_THAT(store.recover().chunks, ElementsAre(middle));
    EXPECT_THAT(store.recover(session.id).chunks, IsEmpty());
    EXPECT_THAT(DurableChunkStore(root / "fehlt").recover().chunks, IsEmpty());
}

TEST_F(DurableChunkStoreTest, NamesEveryBrokenOrForeignEntryAndGoesOn) {
    using Spoil = std::function<void(const fs::path& chunk)>;
    const auto withRecord = [](auto change) -> Spoil {
        return [change](const fs::path& chunk) {
            auto record = json::decode<AudioChunk>(contentOf(chunk / "metadata.json"), "");
            change(record);
            writeFile(chunk / "metadata.json", json::encode(record));
        };
    };
    const auto link = [](const std::string& name) -> Spoil {
        return [name](const fs::path& chunk) {
            const auto path = name.empty() ? chunk : chunk / name, real = chunk.parent_path() / "echt";
            fs::rename(path, real);
            fs::create_symlink(real, path);
        };
    };
    const std::string brokenAudio = "WAV-Datei ist beschädigt oder hat ein unerwartetes Format.";
    const std::string foreign = "Abschnitt gehört nicht zur erwarteten Sitzung.";
    const std::pair<Spoil, std::string> cases[] = {
        // % stands for the chunk's name
        {[](auto& chunk) { fs::resize_file(chunk / "audio.wav", 242); }, brokenAudio},
        {[](auto& chunk) { fs::remove(chunk / "audio.wav"); }, "„audio.wav“ fehlt."},
        {[](auto& chunk) { fs::remove(chunk / "metadata.json"); }, "„metadata.json“ fehlt."},
        {withRecord([](auto& record) { record.sampleRate = 8000; }), "Ungültige Audioabschnitt-Metadaten."},
        {withRecord([](auto& record) { record.id = UUID::random(); }), foreign},
        {withRecord([](auto& record) { record.sessionID = UUID::random(); }), foreign},
        {link("metadata.json"), "„metadata.json“ ist eine symbolische Verknüpfung."},
        {link("audio.wav"), "„audio.wav“ ist eine symbolische Verknüpfung."},
        {link(""), "„%“ ist eine symbolische Verknüpfung."},
        {[](auto& chunk) { fs::remove_all(chunk), writeFile(chunk, ""); }, "„%“ ist kein Ordner."}};
    const auto intact = committed(0, 0, session.id);
    for (const auto& [spoil, problem] : cases) {
        const auto spoilt = store.chunkDirectory(committed(1, 1, session.id));
        spoil(spoilt);
        const auto report = store.recover();
        EXPECT_THAT(report.chunks, ElementsAre(intact)) << problem;
        auto line = spoilt.filename().string() + ": " + problem;
        if (const auto mark = line.find('%'); mark != std::string::npos)
            line.replace(mark, 1, spoilt.filename().string());
        EXPECT_THAT(report.problems, ElementsAre(line));
        for (const auto& path : {spoilt, sessionFolder / "echt"}) fs::remove_all(path);
    }
}

TEST_F(DurableChunkStoreTest, NamesWhatIsNoSessionAndListsWhatIsUnfinished) {
    const auto intact = committed(0, 0, session.id);
    const auto partial = sessionFolder / ("." + intact.id.string() + ".X.partial");
    for (const auto& path : {partial, root / ".X.partial", root / "leer", root / "kaputt"})
        fs::create_directory(path);
    fs::copy(sessionFolder, root / "kopie", fs::copy_options::recursive);
    fs::create_directory_symlink(sessionFolder, root / "verweis");
    writeFile(root / "datei", "");
    writeFile(root / "kaputt" / "session.json", "{}");
    const auto report = store.recover();
    EXPECT_THAT(report.chunks, ElementsAre(intact));
    EXPECT_THAT(report.incompleteDirectories, ElementsAre(root / ".X.partial", partial));
    EXPECT_THAT(
        report.problems,
        ElementsAre("datei: „datei“ ist kein Ordner.", StartsWith("kaputt: „session.json“"),
                    "kopie: Sitzungsmanifest stimmt nicht mit dem Verzeichnis überein.",
                    "leer: „session.json“ fehlt.", "verweis: „verweis“ ist eine symbolische Verknüpfung."));
}

}  // namespace
}  // namespace meetingcore::testing
