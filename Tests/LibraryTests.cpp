#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MeetingCore/Library/DataDirectoryPreference.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/Trash.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/ForkedProcess.h"
#include "Support/Failure.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using testing::failureOf;
using ::testing::StartsWith;
using testing::TemporaryFolder;
using testing::testChunk;
using testing::testSession;
using Kind = MeetingError::Kind;

const std::string invalidLibrary = "Ungültige Bibliotheksdaten.";

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

MeetingEntry meeting(const std::string& title) {
    auto entry = MeetingEntry::starting(testSession(), std::nullopt);
    entry.id = UUID::random();
    entry.title = title;
    return entry;
}

TEST(MeetingLibrary, WritesWhatItReadsAndNothingBeforeTheFirstChange) {
    const TemporaryFolder folder;
    const auto root = folder.path() / "neu" / "Daten";
    const auto projectID = UUID::random();
    {
        MeetingLibrary library(root);
        EXPECT_EQ(library.snapshot(), LibrarySnapshot{});
        EXPECT_TRUE(fs::is_empty(root));
        library.update([&](LibrarySnapshot& snapshot) {
            snapshot.projects.push_back({projectID, " Nord "});
            snapshot.meetings.push_back(meeting("Wochenrunde"));
            snapshot.meetings[0].projectID = projectID;
            snapshot.meetings[0].metadata = MeetingMetadata{{" Anna "}, {}, {{" Q3 ", "q3"}}};
            snapshot.customFields = {{UUID::random(), " Ort "}};
        });
        EXPECT_EQ(library.snapshot().customFields->front().name, "Ort") << "definitions are stored trimmed";
        EXPECT_THAT(library.snapshot().meetings[0].metadata->participants, ElementsAre(" Anna "))
            << "metadata is stored as it was entered";
        EXPECT_EQ(library.snapshot().projects[0].name, " Nord ");
    }
    struct stat info {};
    ASSERT_EQ(::stat((root / "library.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat(root.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
    const MeetingLibrary reopened(root);
    EXPECT_EQ(json::encode(reopened.snapshot()), contentOf(root / "library.json"));
    EXPECT_EQ(reopened.snapshot().meetings[0].projectID, projectID);
}

TEST(MeetingLibrary, RefusesABrokenSnapshotAndStaysAsItWas) {
    const TemporaryFolder root;
    MeetingLibrary library(root.path());
    const auto projectID = UUID::random();
    library.update([&](LibrarySnapshot& snapshot) {
        snapshot.projects.push_back({projectID, "Nord"});
        snapshot.meetings = {meeting("Wochenrunde"), meeting("Abschluss")};
        snapshot.meetings[0].projectID = projectID;
    });
    const auto before = library.snapshot();
    const auto bytes = contentOf(library.file());
    struct Case {
        std::string message;
        std::function<void(LibrarySnapshot&)> body;
    };
    const Case cases[] = {
        {invalidLibrary, [](auto& s) { s.meetings[1].title = "   "; }},
        {invalidLibrary, [](auto& s) { s.projects[0].name = "\n"; }},
        {invalidLibrary, [](auto& s) { s.projects.clear(); }},
        {invalidLibrary, [](auto& s) { s.meetings[1].id = s.meetings[0].id; }},
        {invalidLibrary, [](auto& s) { s.projects.push_back(s.projects[0]); }},
        {"Ein Text enthält ungültige Zeichen und kann nicht gespeichert werden.",
         [](auto& s) { s.meetings[0].notes = "Notiz \xFF"; }},
        {invalidLibrary, [](auto& s) { s.version = 2; }},
        {"Meeting-Angaben sind zu lang oder ungültig.",
         [](auto& s) {
             s.meetings[0].metadata = MeetingMetadata{{" "}, {}, {}};
         }},
        {"Bis zu 20 eindeutige Feldnamen mit 1–60 Zeichen verwenden. Teilnehmer, Datum, Uhrzeit und "
         "Inhaltsüberschriften sind bereits reserviert.",
         [](auto& s) {
             s.customFields = {{UUID::random(), "Notizen"}};
         }},
        {"Eine Zahl ist nicht endlich und kann nicht gespeichert werden.",
         [](auto& s) { s.meetings[0].duration = INFINITY; }},
        {"nein", [](auto& s) { s.meetings.clear(), throw MeetingError::invalidData("nein"); }},
    };
    for (const auto& refused : cases) {
        EXPECT_EQ(failureOf([&] { library.update(refused.body); }), refused.message);
        EXPECT_EQ(library.snapshot(), before);
        EXPECT_EQ(contentOf(library.file()), bytes);
    }
    fs::remove(library.file());
    fs::create_directories(library.file() / "im Weg");
    EXPECT_THAT(failureOf([&] { library.update([](auto& s) { s.meetings.clear(); }); }, Kind::storage),
                StartsWith("„library.json“"));
    EXPECT_EQ(library.snapshot(), before);
    EXPECT_THAT(FileManager::system().list(root.path()), ElementsAre("library.json")) << "nothing is left over";
}

TEST(MeetingLibrary, RefusesFilesItCannotRead) {
    const TemporaryFolder root;
    const auto message = [&](const std::string& bytes) {
        write(root.path() / "library.json", bytes);
        return failureOf([&] { MeetingLibrary library(root.path()); });
    };
    EXPECT_EQ(message(R"({"version":2,"projects":[],"meetings":[]})"), "Unbekannte Bibliotheksversion.");
    EXPECT_THAT(message(R"({"version":1,"projects":[]})"), StartsWith("„library.json“"));
    EXPECT_THAT(message(""), StartsWith("„library.json“"));
    EXPECT_EQ(message(R"({"version":1,"projects":[],"meetings":[],"farben":[1]})"), "no failure");
}

TEST(MeetingLibrary, ReconcilesWithTheRecordingsOnDisk) {
    const TemporaryFolder root;
    const auto meetings = root.path() / "Meetings";
    DurableChunkStore store(meetings);
    auto older = testSession(), newer = testSession(), unknown = testSession();
    newer.createdAt = older.createdAt.advanced(60);
    unknown.createdAt = older.createdAt.advanced(30);
    for (const auto* session : {&older, &newer, &unknown}) store.createSession(*session);
    fs::create_directory(meetings / "Notizen");

    MeetingLibrary library(root.path());
    auto gone = MeetingEntry::starting(older, std::nullopt);
    gone.id = UUID::random();
    gone.state = "completed";
    gone.duration = 7;
    gone.chunkCount = 3;
    auto named = MeetingEntry::starting(older, std::nullopt);
    named.state = "paused";
    named.title = "Umbenannt";
    named.automaticTitlePending = false;
    library.update([&](LibrarySnapshot& snapshot) {
        snapshot.meetings = {gone, named, MeetingEntry::starting(newer, std::nullopt)};
    });
    library.reconcile(meetings,
                      std::vector{testChunk(older.id, 0, 0.5, 192'000), testChunk(older.id, 1, 15, 240'000),
                                  testChunk(newer.id, 0, 0, 16'000), testChunk(older.id, 2, 20, 16'000)});

    const auto& found = library.snapshot().meetings;
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found[0].id, newer.id);
    EXPECT_EQ(found[0].state, "interrupted");
    EXPECT_EQ(found[1].id, unknown.id);
    EXPECT_EQ(found[1].title, unknown.title);
    EXPECT_EQ(found[1].state, "interrupted");
    gone.chunkCount = 0;
    EXPECT_EQ(found[2], gone) << "equal dates keep their order";
    named.state = "interrupted";
    named.chunkCount = 3;
    named.duration = 30;
    EXPECT_EQ(found[3], named);
}

TEST(MeetingLibrary, ReconcilesNothingWhereAManifestIsWrong) {
    const TemporaryFolder root;
    const auto meetings = root.path() / "Meetings";
    MeetingLibrary library(root.path());
    library.reconcile(meetings, {});
    EXPECT_TRUE(fs::is_directory(meetings)) << "a data folder is known by it";
    library.update([](LibrarySnapshot& snapshot) { snapshot.meetings = {meeting("Läuft")}; });
    const auto folder = meetings / UUID::random().string();
    fs::create_directory(folder);
    const auto failure = [&](Kind kind) { return failureOf([&] { library.reconcile(meetings, {}); }, kind); };
    EXPECT_EQ(failure(Kind::storage), quotedName(folder) + " enthält kein Sitzungsmanifest.");
    write(folder / "session.json", json::encode(testSession()));
    EXPECT_EQ(failure(Kind::invalidData), "Ungültiges Sitzungsmanifest.");
    write(folder / "session.json", "{");
    EXPECT_THAT(failure(Kind::invalidData), StartsWith("„session.json“"));
    EXPECT_EQ(library.snapshot().meetings[0].state, "starting");
}

TEST(MeetingLibrary, KeepsAMeetingsHistory) {
    const TemporaryFolder folder;
    const SessionEvent first{UUID::random(), Date::since1970(1'700'000'000.25), "started", std::nullopt};
    const SessionEvent second{UUID::random(), Date::since1970(1'700'000'001), "paused", "Mikrofon/leise"};
    MeetingLibrary::appendEvent(first, folder.path());
    MeetingLibrary::appendEvent(second, folder.path());
    const auto bytes = R"([{"id":")" + first.id.string() +
                       R"(","date":721692800.25,"kind":"started"},{"id":")" + second.id.string() +
                       R"(","date":721692801,"kind":"paused","detail":"Mikrofon\/leise"}])";
    EXPECT_EQ(contentOf(folder.path() / "events.json"), bytes);
    write(folder.path() / "events.json", "[{}]");
    EXPECT_THAT(failureOf([&] { MeetingLibrary::appendEvent(first, folder.path()); }),
                StartsWith("„events.json“"));
    EXPECT_EQ(contentOf(folder.path() / "events.json"), "[{}]");
}

TEST(MeetingLibrary, KnowsWhichMeetingsStillNeedATitle) {
    auto entry = meeting("Neues Meeting");
    EXPECT_TRUE(entry.needsAutomaticTitle());
    entry.automaticTitlePending = false;
    EXPECT_FALSE(entry.needsAutomaticTitle());
    EXPECT_FALSE(meeting("Neues meeting").needsAutomaticTitle());
}

TEST(MeetingLibrary, IsOpenInOneApplicationAtATime) {
    const TemporaryFolder root;
    const auto openFromAnotherProcess = [&] {
        testing::ForkedProcess other([&] {
            const auto message = failureOf(
                [&] {
                    const WorkerLock lock(root.path(), WorkerLock::Purpose::application);
                    MeetingLibrary(root.path()).update([](auto& s) {
                        s.meetings.push_back(meeting("Zweite"));
                    });
                },
                Kind::storage);
            if (message == "no failure") return 0;
            return message ==
                           "Die Meeting-Bibliothek ist bereits in einer anderen App-Ausgabe geöffnet. Bitte "
                           "diese "
                           "zuerst beenden."
                       ? 1
                       : 2;
        });
        return other.wait();
    };
    {
        const WorkerLock lock(root.path(), WorkerLock::Purpose::application);
        MeetingLibrary library(root.path());
        EXPECT_EQ(openFromAnotherProcess(), 1);
        EXPECT_FALSE(fs::exists(library.file()));
    }
    EXPECT_EQ(openFromAnotherProcess(), 0);
    EXPECT_EQ(MeetingLibrary(root.path()).snapshot().meetings.size(), 1U);
}

TEST(WorkScheduler, AddsOneJobPerWindowAndTrackOnce) {
    const TemporaryFolder root;
    SQLiteJobStore database(root.path() / "quillmoot.sqlite");
    const auto session = UUID::random(), other = UUID::random();
    std::vector<AudioChunk> chunks{testChunk(session, 1, 30, 480'000), testChunk(session, 0, 0, 480'000),
                                   testChunk(session, 0, 0, 960'000, AudioSource::meeting),
                                   testChunk(other, 0, 0, 960'000), testChunk(session, 2, 60, 16'000)};
    WorkScheduler::enqueue({}, database, true);
    for (const bool flushTail : {false, false, true, true}) {
        WorkScheduler::enqueue(chunks, database, flushTail);
        EXPECT_EQ(database.jobCount(), flushTail ? 4 : 3);
    }
    const auto payload = R"({"chunks":[)" + json::encode(chunks[3], json::Keys::sorted) + R"(],"sessionID":")" +
                         other.string() + R"(","source":"microphone"})";
    bool found = false;
    while (const auto lease = database.claimNext(Date::now(), 60)) {
        EXPECT_EQ(lease->item.kind, "transcribe");
        if (lease->item.sessionID != other) continue;
        found = true;
        EXPECT_EQ(lease->item.payloadJSON, payload);
        EXPECT_EQ(lease->item.id, other.string() + ":microphone:" + chunks[3].id.string() + ":" +
                                      chunks[3].id.string() + ":v1");
    }
    EXPECT_TRUE(found);
    chunks[3].startSeconds = 1;
    EXPECT_EQ(failureOf([&] { WorkScheduler::enqueue(chunks, database, true); }, Kind::database),
              "Auftrags-ID existiert mit einem anderen Inhalt.");
}

/// Root may write everywhere, so what is refused to a user must be tried as one.
class OrdinaryUser {
public:
    OrdinaryUser() : before_(::geteuid()) {
        if (before_ == 0 && ::seteuid(65'534) != 0) throw std::runtime_error("seteuid");
    }
    ~OrdinaryUser() {
        if (::seteuid(before_) != 0) std::abort();
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    uid_t before_;
};

TEST(DataDirectoryPreference, AcceptsEmptyFoldersAndDataFoldersOnly) {
    const TemporaryFolder folder;
    const auto root = folder.path() / "Daten";
    const auto failure = [&](Kind kind) {
        return failureOf([&] { DataDirectoryPreference::validate(root); }, kind);
    };
    const std::string unreachable =
        "Der gewählte Datenordner ist nicht erreichbar. Bitte das Laufwerk verbinden oder in den Einstellungen "
        "einen "
        "anderen Ordner wählen.";
    const std::string foreign =
        "Bitte einen leeren Ordner oder einen vorhandenen Quillmoot-Datenordner wählen.";
    EXPECT_EQ(failure(Kind::storage), unreachable);
    write(root, "eine Datei");
    EXPECT_EQ(failure(Kind::storage), unreachable);
    fs::remove(root);
    fs::create_directory(root);
    write(root / ".DS_Store", "");
    EXPECT_EQ(failure(Kind::storage), "no failure");
    write(root / "quillmoot.sqlite", "");
    EXPECT_EQ(failure(Kind::storage), foreign);
    fs::create_directory(root / "Meetings");
    EXPECT_EQ(failure(Kind::storage), "no failure");
    write(root / "library.json", R"({"version":2,"projects":[],"meetings":[]})");
    EXPECT_EQ(failure(Kind::invalidData), "Unbekannte Bibliotheksversion.");
    write(root / "library.json", "kaputt");
    EXPECT_THAT(failure(Kind::invalidData), StartsWith("„library.json“"));
    EXPECT_THAT(FileManager::system().list(root),
                ElementsAre(".DS_Store", "Meetings", "library.json", "quillmoot.sqlite"));

    const auto readOnly = folder.path() / "Nur lesbar";
    fs::create_directory(readOnly);
    fs::permissions(folder.path(), fs::perms(0755));
    fs::permissions(readOnly, fs::perms(0555));
    const OrdinaryUser user;
    EXPECT_THAT(failureOf([&] { DataDirectoryPreference::validate(readOnly); }, Kind::storage),
                StartsWith("Datei konnte nicht angelegt werden: .quillmoot-write-check-"));
}

TEST(DataDirectoryPreference, RemembersTheChosenFolderInTheUsersConfiguration) {
    const TemporaryFolder home;
    ::setenv("XDG_CONFIG_HOME", (home.path() / "config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    auto defaults = UserDefaults::standard();
    EXPECT_EQ(DataDirectoryPreference::selectedRoot(defaults), home.path() / "data" / "Quillstead");
    const auto chosen = home.path() / "Gewählt";
    fs::create_directories(chosen / "leer");
    EXPECT_NE(failureOf([&] { DataDirectoryPreference::select(chosen, defaults); }, Kind::storage),
              "no failure");
    EXPECT_FALSE(fs::exists(home.path() / "config")) << "a refused folder changes nothing";
    DataDirectoryPreference::select(chosen / "leer" / ".." / "leer" / "", defaults);
    EXPECT_EQ(DataDirectoryPreference::selectedRoot(UserDefaults::standard()), chosen / "leer");
    EXPECT_EQ(defaults.string("localDataDirectory"), (chosen / "leer").string());

    defaults.set("andere", "1");
    defaults.remove("localDataDirectory");
    EXPECT_EQ(contentOf(home.path() / "config" / "Quillstead" / "preferences.json"), R"({"andere":"1"})");
    EXPECT_NE(failureOf([&] { defaults.set("Pfad", "\xFF"); }), "no failure");

    ::setenv("XDG_CONFIG_HOME", "relativ", 1);
    ::unsetenv("XDG_DATA_HOME");
    ::setenv("HOME", home.path().c_str(), 1);
#ifndef __APPLE__
    EXPECT_EQ(userFolder::configuration(), home.path() / ".config");
    EXPECT_EQ(userFolder::applicationSupport(), home.path() / ".local" / "share");
#endif
}

TEST(Trash, TakesAFolderWhole) {
    const TemporaryFolder home;
    // The trash of the home folder takes what lies on the same file system.
    ::setenv("HOME", home.path().c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    const auto folder = home.path() / "Daten" / ".Audio-entfernen";
    fs::create_directories(folder / "a.chunk");
    write(folder / "a.chunk" / "audio.wav", "Ton");
#ifdef MEETING_HAVE_GIO
    moveToSystemTrash(folder);
    EXPECT_FALSE(fs::exists(folder));
    const auto trash = home.path() / "data" / "Trash";
    EXPECT_EQ(contentOf(trash / "files" / ".Audio-entfernen" / "a.chunk" / "audio.wav"), "Ton");
    EXPECT_THAT(contentOf(trash / "info" / ".Audio-entfernen.trashinfo"),
                ::testing::HasSubstr("Path=" + folder.string()));
    EXPECT_THAT(failureOf([&] { moveToSystemTrash(folder); }, Kind::storage),
                StartsWith("„.Audio-entfernen“ konnte nicht in den Papierkorb gelegt werden: "));
#else
    EXPECT_EQ(
        failureOf([&] { moveToSystemTrash(folder); }, Kind::notConfigured),
        "„.Audio-entfernen“ konnte nicht in den Papierkorb gelegt werden: Diese Ausgabe des Programms kennt "
        "keinen Papierkorb.");
    EXPECT_TRUE(fs::exists(folder / "a.chunk" / "audio.wav"));
#endif
}

}  // namespace
}  // namespace meetingcore
