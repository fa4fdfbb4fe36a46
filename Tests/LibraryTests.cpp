#include <cstdlib>

#include <unistd.h>

#include "MeetingCore/Library/DataDirectoryPreference.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/Trash.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/ForkedProcess.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

MeetingEntry meeting(const std::string& title) {
    auto entry = MeetingEntry::starting(testSession(), std::nullopt);
    entry.id = UUID::random();
    entry.title = title;
    return entry;
}

TEST(MeetingLibrary, WritesWhatItReadsAndNothingBeforeTheFirstChange) {
    const TemporaryFolder folder;
    const auto root = folder.path() / "neu" / "Daten";
    MeetingLibrary library(root);
    EXPECT_EQ(library.snapshot(), LibrarySnapshot{});
    EXPECT_TRUE(fs::is_empty(root));
    const auto projectID = UUID::random();
    library.update([&](LibrarySnapshot& snapshot) {
        snapshot.projects.push_back({projectID, " Nord "});
        snapshot.meetings.push_back(meeting("Wochenrunde"));
        snapshot.meetings[0].projectID = projectID;
        snapshot.meetings[0].metadata = MeetingMetadata{{" Anna "}, {}, {{" Q3 ", "q3"}}};
        snapshot.customFields = {{UUID::random(), " Ort "}};
    });
    EXPECT_EQ(library.snapshot().customFields->front().name, "Ort") << "only definitions are stored trimmed";
    EXPECT_THAT(library.snapshot().meetings[0].metadata->participants, ElementsAre(" Anna "));
    EXPECT_EQ(library.snapshot().projects[0].name, " Nord ");
    EXPECT_EQ(fs::status(library.file()).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(root).permissions(), fs::perms(0700));
    EXPECT_EQ(MeetingLibrary(root).snapshot(), library.snapshot());
    EXPECT_EQ(json::encode(library.snapshot()), contentOf(root / "library.json"));
}

TEST(MeetingLibrary, RefusesABrokenSnapshotAndStaysAsItWas) {
    const TemporaryFolder root;
    MeetingLibrary library(root.path());
    library.update([&](LibrarySnapshot& snapshot) {
        snapshot.projects.push_back({UUID::random(), "Nord"});
        snapshot.meetings = {meeting("Wochenrunde"), meeting("Abschluss")};
        snapshot.meetings[0].projectID = snapshot.projects[0].id;
    });
    const auto before = library.snapshot();
    const auto bytes = contentOf(library.file());
    const std::string invalid = "Ungültige Bibliotheksdaten.";
    const std::pair<std::string, void (*)(LibrarySnapshot&)> cases[] = {
        {invalid, [](auto& s) { s.meetings[1].title = "   "; }},
        {invalid, [](auto& s) { s.projects[0].name = "\n"; }},
        {invalid, [](auto& s) { s.projects.clear(); }},
        {invalid, [](auto& s) { s.meetings[1].id = s.meetings[0].id; }},
        {invalid, [](auto& s) { s.projects.push_back(s.projects[0]); }},
        {"Ein Text enthält ungültige Zeichen und kann nicht gespeichert werden.",
         [](auto& s) { s.meetings[0].notes = "Notiz \xFF"; }},
        {invalid, [](auto& s) { s.version = 2; }},
        {"Meeting-Angaben sind zu lang oder ungültig.",
         [](auto& s) { s.meetings[0].metadata.emplace().participants = {" "}; }},
        {"Bis zu 20 eindeutige Feldnamen mit 1–60 Zeichen verwenden. Teilnehmer, Datum, Uhrzeit und "
         "Inhaltsüberschriften sind bereits reserviert.",
         [](auto& s) {
             s.customFields.emplace().push_back({UUID(), "Notizen"});
         }},
        {"Eine Zahl ist nicht endlich und kann nicht gespeichert werden.",
         [](auto& s) { s.meetings[0].duration = INFINITY; }},
        {"nein", [](auto& s) { s.meetings.clear(), throw MeetingError::invalidData("nein"); }}};
    for (const auto& [message, body] : cases) {
        EXPECT_EQ(failureOf([&, &change = body] { library.update(change); }), message);
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
        writeFile(root.path() / "library.json", bytes);
        return messageOf([&] { MeetingLibrary library(root.path()); });
    };
    EXPECT_EQ(message(R"({"version":2,"projects":[],"meetings":[]})"), "Unbekannte Bibliotheksversion.");
    for (const auto* bytes : {R"({"version":1,"projects":[]})", ""})
        EXPECT_THAT(message(bytes), StartsWith("„library.json“"));
    EXPECT_EQ(message(R"({"version":1,"projects":[],"meetings":[],"farben":[1]})"), "");
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
    auto gone = MeetingEntry::starting(older, std::nullopt), named = gone;
    gone.id = UUID::random();
    gone.state = "completed";
    gone.duration = 7;
    gone.chunkCount = 3;
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
    gone.chunkCount = 0;
    named.state = "interrupted";
    named.chunkCount = 3;
    named.duration = 30;
    ASSERT_EQ(found.size(), 4U);
    EXPECT_EQ(found[0].id, newer.id);
    EXPECT_EQ(found[1].id, unknown.id);
    EXPECT_EQ(found[1].title, unknown.title);
    EXPECT_EQ(found[0].state + found[1].state, "interruptedinterrupted");
    EXPECT_EQ(found[2], gone) << "equal dates keep their order";
    EXPECT_EQ(found[3], named);
}

TEST(MeetingLibrary, ReconcilesNothingWhereAManifestIsWrong) {
    const TemporaryFolder root;
    const auto meetings = root.path() / "Meetings", folder = meetings / UUID::random().string();
    MeetingLibrary library(root.path());
    library.reconcile(meetings, {});
    EXPECT_TRUE(fs::is_directory(meetings)) << "a data folder is known by it";
    library.update([](LibrarySnapshot& snapshot) { snapshot.meetings = {meeting("Läuft")}; });
    fs::create_directory(folder);
    const auto failure = [&] { return messageOf([&] { library.reconcile(meetings, {}); }); };
    EXPECT_EQ(failure(), quotedName(folder) + " enthält kein Sitzungsmanifest.");
    writeFile(folder / "session.json", json::encode(testSession()));
    EXPECT_EQ(failure(), "Ungültiges Sitzungsmanifest.");
    writeFile(folder / "session.json", "{");
    EXPECT_THAT(failure(), StartsWith("„session.json“"));
    EXPECT_EQ(library.snapshot().meetings[0].state, "starting");
}

TEST(MeetingLibrary, KeepsAMeetingsHistory) {
    const TemporaryFolder folder;
    const auto file = folder.path() / "events.json";
    const std::vector<SessionEvent> history{{UUID(), Date(), "started", {}},
                                            {UUID(), Date(), "paused", "leise"}};
    for (const auto& event : history) MeetingLibrary::appendEvent(event, folder.path());
    EXPECT_EQ(contentOf(file), json::encode(history));
    writeFile(file, "[{}]");
    EXPECT_THAT(failureOf([&] { MeetingLibrary::appendEvent({}, folder.path()); }),
                StartsWith("„events.json“"));
    EXPECT_EQ(contentOf(file), "[{}]");
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
    const auto chunk = chunks[3].id.string();
    const WorkItem wanted{other.string() + ":microphone:" + chunk + ":" + chunk + ":v1", other, "transcribe",
                          R"({"chunks":[)" + json::encode(chunks[3], json::Keys::sorted) +
                              R"(],"sessionID":")" + other.string() + R"(","source":"microphone"})"};
    std::vector<WorkItem> found;
    while (const auto lease = database.claimNext(Date::now(), 60)) found.push_back(lease->item);
    EXPECT_THAT(found, Contains(wanted));
    chunks[3].startSeconds = 1;
    EXPECT_EQ(failureOf([&] { WorkScheduler::enqueue(chunks, database, true); }, Kind::database),
              "Auftrags-ID existiert mit einem anderen Inhalt.");
}

TEST(DataDirectoryPreference, AcceptsEmptyFoldersAndDataFoldersOnly) {
    const TemporaryFolder folder;
    const auto root = folder.path() / "Daten", readOnly = folder.path() / "Nur lesbar";
    const auto failure = [&] { return messageOf([&] { DataDirectoryPreference::validate(root); }); };
    const std::string unreachable =
        "Der gewählte Datenordner ist nicht erreichbar. Bitte das Laufwerk verbinden oder in den Einstellungen "
        "einen anderen Ordner wählen.";
    EXPECT_EQ(failure(), unreachable);
    writeFile(root, "eine Datei");
    EXPECT_EQ(failure(), unreachable);
    fs::remove(root);
    for (const auto& path : {root, readOnly}) fs::create_directory(path);
    writeFile(root / ".DS_Store", "");
    EXPECT_EQ(failure(), "");
    writeFile(root / "quillmoot.sqlite", "");
    EXPECT_EQ(failure(), "Bitte einen leeren Ordner oder einen vorhandenen Quillmoot-Datenordner wählen.");
    fs::create_directory(root / "Meetings");
    EXPECT_EQ(failure(), "");
    writeFile(root / "library.json", R"({"version":2,"projects":[],"meetings":[]})");
    EXPECT_EQ(failure(), "Unbekannte Bibliotheksversion.");
    EXPECT_THAT(FileManager::system().list(root),
                ElementsAre(".DS_Store", "Meetings", "library.json", "quillmoot.sqlite"));
    fs::permissions(folder.path(), fs::perms(0755));
    fs::permissions(readOnly, fs::perms(0555));
    // Root may write everywhere, so what is refused to a user is tried as one.
    ForkedProcess user([&] {
        const bool isOrdinary = ::geteuid() != 0 || ::seteuid(65'534) == 0;
        const auto refusal = failureOf([&] { DataDirectoryPreference::validate(readOnly); }, Kind::storage);
        return isOrdinary && refusal.starts_with("Datei konnte nicht angelegt werden: .quillmoot-write-check-")
                   ? 0
                   : 1;
    });
    EXPECT_EQ(user.wait(), 0);
}

TEST(DataDirectoryPreference, RemembersTheChosenFolderInTheUsersConfiguration) {
    const TemporaryFolder home;
    ::setenv("XDG_CONFIG_HOME", (home.path() / "config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    auto defaults = UserDefaults::standard();
    EXPECT_EQ(DataDirectoryPreference::selectedRoot(defaults), home.path() / "data" / "Quillstead");
    const auto chosen = home.path() / "Gewählt";
    fs::create_directories(chosen / "leer");
    EXPECT_NE(failureOf([&] { DataDirectoryPreference::select(chosen, defaults); }, Kind::storage), noFailure);
    EXPECT_FALSE(fs::exists(home.path() / "config")) << "a refused folder changes nothing";
    DataDirectoryPreference::select(chosen / "leer" / ".." / "leer" / "", defaults);
    EXPECT_EQ(DataDirectoryPreference::selectedRoot(UserDefaults::standard()), chosen / "leer");
    EXPECT_EQ(defaults.string("localDataDirectory"), (chosen / "leer").string());

    defaults.set("andere", "1");
    defaults.remove("localDataDirectory");
    EXPECT_EQ(contentOf(home.path() / "config" / "Quillstead" / "preferences.json"), R"({"andere":"1"})");
    EXPECT_NE(failureOf([&] { defaults.set("Pfad", "\xFF"); }), noFailure);

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
    writeFile(folder / "a.chunk" / "audio.wav", "Ton");
#ifdef MEETING_HAVE_GIO
    moveToSystemTrash(folder);
    EXPECT_FALSE(fs::exists(folder));
    const auto trash = home.path() / "data" / "Trash";
    EXPECT_EQ(contentOf(trash / "files" / ".Audio-entfernen" / "a.chunk" / "audio.wav"), "Ton");
    EXPECT_THAT(contentOf(trash / "info" / ".Audio-entfernen.trashinfo"), HasSubstr("Path=" + folder.string()));
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
}  // namespace meetingcore::testing
