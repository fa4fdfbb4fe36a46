#include <algorithm>
#include <map>

#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/CrashingFileManager.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

/// A file that is replaced as a whole. Its states are numbered; 0 is the one without the file.
struct StateFile {
    void (*write)(FileManager&, const fs::path& folder, int state);
    int (*read)(FileManager&, const fs::path& folder);
};

const StateFile stateFiles[] = {
    {[](auto& files, auto& folder, int state) {
         MeetingLibrary(folder, files).update([&](auto& library) {
             library.projects = {{UUID(), std::to_string(state)}};
         });
     },
     [](auto& files, auto& folder) {
         const auto library = MeetingLibrary(folder, files).snapshot();
         return library.projects.empty() ? 0 : std::stoi(library.projects[0].name);
     }},
    {[](auto& files, auto& folder, int) {
         MeetingLibrary::appendEvent({UUID(), Date(), "paused", std::nullopt}, folder, files);
     },
     [](auto& files, auto& folder) {
         using Events = std::vector<SessionEvent>;
         const auto events = TranscriptStorage::readOptional<Events>(folder / "events.json", files);
         return static_cast<int>(events.value_or(Events{}).size());
     }},
    {[](auto& files, auto& folder, int state) { AudioRetentionPolicy{state}.save(folder, files); },
     [](auto& files, auto& folder) {
         return static_cast<int>(AudioRetentionPolicy::load(folder, files).days.value_or(0));
     }}};

/// `from` is the state before, one more the state after; once the change was reported as done, only that
/// counts.
CrashTest changeOf(const StateFile& file, int from, bool& done) {
    return {[=](auto& files, const auto& folder) {
                for (int state = 1; state <= from; ++state) file.write(files, folder, state);
            },
            [=, &done](auto& files, const auto& folder) {
                // An error is reported, and the program goes on.
                done = messageOf([&] { file.write(files, folder, from + 1); }).empty();
            },
            [=, &done](auto& files, const auto& folder) {
                int state = -1;
                const auto error = messageOf([&] { state = file.read(files, folder); });
                const bool right = state == from + 1 || (state == from && !done);
                return right ? "" : "state " + std::to_string(state) + error;
            }};
}

TEST(LibraryCrashes, LeaveEveryFileInItsOldStateOrItsNewOne) {
    for (const auto& file : stateFiles) {
        for (const int from : {0, 1}) {
            bool done = false;
            const auto test = changeOf(file, from, done);
            auto report = forEachPowerCut(test);
            EXPECT_GT(report.stops, 6U);
            report.add(forEachFailure(test, [](auto&, const auto&) {}));
            EXPECT_THAT(report.violations, IsEmpty());
            EXPECT_GT(report.disks, report.stops);
        }
    }
}

const UUID session = *UUID::parse("11111111-2222-4333-8444-555555555555");
const std::string stagingName = ".Audio-entfernen-AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE";
const std::vector<std::string> audio{".b.c.partial", "Audio", "a.chunk"};

fs::path meetingIn(const fs::path& folder) { return layout::meetingFolder(folder, session); }

/// A removal up to some point, put together on the disk as a crash would leave it.
struct Progress {
    bool staged = false;
    bool marked = false;
    std::size_t moved = 0;  ///< pieces of audio in the staging folder
    bool trashed = false;
};

void prepareMeeting(const fs::path& folder, const Progress& progress) {
    const auto meeting = meetingIn(folder);
    const auto staging = (progress.trashed ? folder / "Papierkorb" : meeting) / stagingName;
    fs::create_directories(folder / "Papierkorb");
    fs::create_directories(meeting);
    writeFile(meeting / "session.json", "Manifest");
    if (progress.staged) fs::create_directory(staging);
    if (progress.marked) writeFile(meeting / "audio-removed.json", "{}");
    for (std::size_t i = 0; i < audio.size(); ++i) {
        const auto piece = (i < progress.moved ? staging : meeting) / audio[i];
        fs::create_directory(piece);
        writeFile(piece / "audio.wav", audio[i]);
    }
}

/// The meeting's folder in one line, "before" or "removed" where it is as it should be.
std::string stateOf(const fs::path& folder, bool retired) {
    auto names = FileManager::system().list(meetingIn(folder));
    // What an interrupted write of the marker leaves is never read.
    std::erase_if(names, [](const auto& name) { return name.starts_with(".audio-removed.json."); });
    std::map<std::string, int> found;  // in the meeting 1, in the trash 100
    const auto count = [&](const fs::path& place, int value) {
        for (const auto& piece : audio) {
            const auto file = place / piece / "audio.wav";
            if (fs::exists(file) && contentOf(file) == piece) found[piece] += value;
        }
    };
    count(meetingIn(folder), 1);
    for (const auto& entry : fs::directory_iterator(folder / "Papierkorb")) count(entry.path(), 100);
    const auto all = [&](int value) {
        return std::all_of(audio.begin(), audio.end(), [&](auto& piece) { return found[piece] == value; });
    };
    using Names = std::vector<std::string>;
    if (names == Names{".b.c.partial", "Audio", "a.chunk", "session.json"} && all(1) && !retired)
        return "before";
    if (names == Names{"audio-removed.json", "session.json"} && all(100) && retired) return "removed";
    return ::testing::PrintToString(names) + ::testing::PrintToString(found) + (retired ? " retired" : "");
}

bool isRetired(SQLiteJobStore& database) {
    return database.registeredChunkCount() == 0 && database.jobStats(session)["failed"] == 1;
}

/// The job store of the meeting beside the crashing disk; it keeps its own promises.
class Jobs {
public:
    void begin() {
        database_.reset();
        for (const auto& name : FileManager::system().list(folder_.path())) fs::remove(folder_.path() / name);
        auto& database = open();
        database.registerChunk(testChunk(session, 0, 0, 16'000));
        database.enqueue({"job", session, "transcribe", "{}"});
    }
    SQLiteJobStore& open() {
        if (!database_) database_.emplace(folder_.path() / "quillmoot.sqlite");
        return *database_;
    }

    /// Lets one of many possible futures go on from here without any other noticing.
    template <class Future>
    void branch(const Future& future) {
        database_.reset();
        fs::copy_file(folder_.path() / "quillmoot.sqlite", other_.path() / "quillmoot.sqlite",
                      fs::copy_options::overwrite_existing);
        SQLiteJobStore database(other_.path() / "quillmoot.sqlite");
        future(database);
    }

private:
    TemporaryFolder folder_;
    TemporaryFolder other_;
    std::optional<SQLiteJobStore> database_;
};

AudioRemoval::Trash trashIn(CrashingFileManager& files, const fs::path& folder) {
    return [&, folder](const fs::path& item) {
        files.move(item, folder / "Papierkorb" / item.filename());
        files.flushDirectory(folder / "Papierkorb");
    };
}

/// The next start brings every disk into one of the expected states.
CrashTest::Check recoversTo(Jobs& jobs, const std::function<bool(const std::string& state)>& expected) {
    return [&jobs, expected](auto& files, const auto& folder) {
        std::string violation;
        jobs.branch([&](auto& database) {
            const auto report = AudioRemoval::recover(folder, database, trashIn(files, folder), files);
            const auto state = stateOf(folder, isRetired(database));
            if (!report.problems.empty()) violation = report.problems[0];
            if (!expected(state)) violation += state;
        });
        return violation;
    };
}

TEST(AudioRemovalCrashes, LeaveTheMeetingAsItWasOrWithoutAudio) {
    Jobs jobs;
    bool done = false;
    const CrashTest test{[](auto&, const auto& folder) { prepareMeeting(folder, {}); },
                         [&](auto& files, const auto& folder) {
                             done = false;
                             jobs.begin();
                             const auto trash = trashIn(files, folder);
                             // An error is reported, and the program goes on.
                             done = messageOf([&] {
                                        AudioRemoval::moveToTrash(session, folder, jobs.open(), trash, files);
                                    }).empty();
                             EXPECT_EQ(stateOf(folder, isRetired(jobs.open())) == "removed", done);
                         },
                         recoversTo(jobs, [&](const auto& state) {
                             return state == "removed" || (state == "before" && !done);
                         })};
    auto report = forEachPowerCut(test);
    EXPECT_GT(report.stops, 12U);
    report.add(forEachKill(test, [&](auto& files, const auto& folder) {
        AudioRemoval::recover(folder, jobs.open(), trashIn(files, folder), files);
    }));
    report.add(forEachFailure(test, [](auto&, const auto&) {}));
    EXPECT_THAT(report.violations, IsEmpty());
    RecordProperty("disks", static_cast<int>(report.disks));
}

TEST(AudioRemovalCrashes, RecoversEveryStageThroughFurtherCrashes) {
    const std::pair<Progress, std::string> cases[] = {
        {{.staged = true}, "before"},
        {{.staged = true, .marked = true}, "before"},
        {{.staged = true, .marked = true, .moved = 2}, "before"},
        {{.staged = true, .marked = true, .moved = 3}, "removed"},
        {{.staged = true, .marked = true, .moved = 3, .trashed = true}, "removed"}};
    for (const auto& stage : cases) {
        const auto& [left, after] = stage;
        Jobs jobs;
        const CrashTest test{[&](auto&, const auto& folder) { prepareMeeting(folder, stage.first); },
                             [&](auto& files, const auto& folder) {
                                 jobs.begin();
                                 AudioRemoval::recover(folder, jobs.open(), trashIn(files, folder), files);
                                 EXPECT_EQ(stateOf(folder, isRetired(jobs.open())), stage.second);
                             },
                             recoversTo(jobs, [&](const auto& state) { return state == stage.second; })};
        EXPECT_THAT(forEachPowerCut(test).violations, IsEmpty()) << after << " " << left.moved;
    }
}

}  // namespace
}  // namespace meetingcore::testing
