#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Platform/Preferences.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/CrashingFileManager.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;

using testing::CrashingFileManager;
using testing::CrashTest;
using ::testing::IsEmpty;
using testing::TemporaryFolder;
using testing::testChunk;

/// A file that is replaced as a whole. Its states are numbered; 0 is the one without the file.
struct StateFile {
    std::string name;
    std::function<void(FileManager&, const fs::path& folder, int state)> write;
    std::function<int(FileManager&, const fs::path& folder)> read;
};

const std::vector<StateFile>& stateFiles() {
    static const std::vector<StateFile> all{
        {"library.json",
         [](FileManager& files, const fs::path& folder, int state) {
             MeetingLibrary(folder, files).update([&](LibrarySnapshot& library) {
                 library.projects = {{UUID(), std::to_string(state)}};
             });
         },
         [](FileManager& files, const fs::path& folder) {
             const auto library = MeetingLibrary(folder, files).snapshot();
             return library.projects.empty() ? 0 : std::stoi(library.projects[0].name);
         }},
        {"events.json",
         [](FileManager& files, const fs::path& folder, int) {
             MeetingLibrary::appendEvent({UUID(), Date(), "paused", std::nullopt}, folder, files);
         },
         [](FileManager& files, const fs::path& folder) {
             const auto events =
                 TranscriptStorage::readOptional<std::vector<SessionEvent>>(folder / "events.json", files);
             return events ? static_cast<int>(events->size()) : 0;
         }},
        {"audio-retention.json",
         [](FileManager& files, const fs::path& folder, int state) {
             AudioRetentionPolicy{state}.save(folder, files);
         },
         [](FileManager& files, const fs::path& folder) {
             return static_cast<int>(AudioRetentionPolicy::load(folder, files).days.value_or(0));
         }},
        {"preferences.json",
         [](FileManager& files, const fs::path& folder, int state) {
             UserDefaults(folder / "neu" / "preferences.json", files).set("state", std::to_string(state));
         },
         [](FileManager& files, const fs::path& folder) {
             const UserDefaults defaults(folder / "neu" / "preferences.json", files);
             return std::stoi(defaults.string("state").value_or("0"));
         }}};
    return all;
}

/// `from` is the state before, one more the state after; once the change was reported as done, only that
/// counts.
CrashTest changeOf(const StateFile& file, int from, const std::shared_ptr<bool>& done) {
    return {[=](CrashingFileManager& files, const fs::path& folder) {
                for (int state = 1; state <= from; ++state) file.write(files, folder, state);
            },
            [=](CrashingFileManager& files, const fs::path& folder) {
                *done = false;
                try {
                    file.write(files, folder, from + 1);
                    *done = true;
                } catch (const MeetingError&) {  // the program reports it and goes on
                }
            },
            [=](CrashingFileManager& files, const fs::path& folder) -> std::string {
                try {
                    const int state = file.read(files, folder);
                    if (state == from + 1 || (state == from && !*done)) return "";
                    return file.name + " is in state " + std::to_string(state);
                } catch (const std::exception& error) {
                    return error.what();
                }
            }};
}

TEST(LibraryCrashes, LeaveEveryFileInItsOldStateOrItsNewOne) {
    for (const auto& file : stateFiles()) {
        for (const int from : {0, 1}) {
            const auto done = std::make_shared<bool>(false);
            const auto test = changeOf(file, from, done);
            auto report = forEachPowerCut(test);
            EXPECT_GT(report.stops, 6U);
            report += forEachFailure(test, [](auto&, const auto&) {});
            EXPECT_THAT(report.violations, IsEmpty()) << file.name;
            EXPECT_GT(report.disks, report.stops);
        }
    }
}

const UUID session = *UUID::parse("11111111-2222-4333-8444-555555555555");
const std::string stagingName = ".Audio-entfernen-AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE";
const std::vector<std::string> audio{".b.c.partial", "Audio", "a.chunk"};

fs::path meetingIn(const fs::path& folder) { return TranscriptStorage::sessionDirectory(folder, session); }

/// A removal up to some point, put together on the disk as a crash would leave it.
struct Progress {
    bool staged = false;
    bool marked = false;
    std::size_t moved = 0;  ///< pieces of audio in the staging folder
    bool trashed = false;
};

void prepareMeeting(const fs::path& folder, const Progress& progress) {
    const auto staging =
        progress.trashed ? folder / "Papierkorb" / stagingName : meetingIn(folder) / stagingName;
    fs::create_directories(folder / "Papierkorb");
    fs::create_directories(meetingIn(folder));
    std::ofstream(meetingIn(folder) / "session.json") << "Manifest";
    if (progress.staged) fs::create_directory(staging);
    if (progress.marked) std::ofstream(meetingIn(folder) / "audio-removed.json") << "{}";
    for (std::size_t i = 0; i < audio.size(); ++i) {
        const auto piece = (i < progress.moved ? staging : meetingIn(folder)) / audio[i];
        fs::create_directory(piece);
        std::ofstream(piece / "audio.wav") << audio[i];
    }
}

/// The meeting's folder in one line, "before" or "removed" where it is as it should be.
std::string stateOf(const fs::path& folder, bool retired) {
    auto names = FileManager::system().list(meetingIn(folder));
    // What an interrupted write of the marker leaves is never read.
    std::erase_if(names, [](const auto& name) { return name.starts_with(".audio-removed.json."); });
    std::map<std::string, int> found;
    const auto count = [&](const fs::path& place, int value) {
        for (const auto& piece : audio) {
            std::ifstream file(place / piece / "audio.wav");
            std::string content;
            if (std::getline(file, content) && content == piece) found[piece] += value;
        }
    };
    count(meetingIn(folder), 1);
    for (const auto& entry : fs::directory_iterator(folder / "Papierkorb")) count(entry.path(), 100);
    const auto all = [&](int value) {
        return std::all_of(audio.begin(), audio.end(),
                           [&](const auto& piece) { return found[piece] == value; });
    };
    auto before = audio;
    before.emplace_back("session.json");
    std::sort(before.begin(), before.end());
    if (names == before && all(1) && !retired) return "before";
    if (names == std::vector<std::string>{"audio-removed.json", "session.json"} && all(100) && retired) {
        return "removed";
    }
    return ::testing::PrintToString(names) + ::testing::PrintToString(found) + (retired ? " retired" : "");
}

/// The job store of the meeting beside the crashing disk; it keeps its own promises.
class Jobs {
public:
    void begin(bool retired) {
        database_.reset();
        for (const auto& name : FileManager::system().list(folder_.path())) fs::remove(folder_.path() / name);
        auto& database = open();
        database.registerChunk(testChunk(session, 0, 0, 16'000));
        database.enqueue({"job", session, "transcribe", "{}"});
        if (retired) database.retireAudio(session);
    }
    SQLiteJobStore& open() {
        if (!database_) database_.emplace(folder_.path() / "quillmoot.sqlite");
        return *database_;
    }
    bool retired() { return open().registeredChunkCount() == 0 && open().jobStats(session)["failed"] == 1; }

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
    return
        [&files, folder](const fs::path& item) { files.move(item, folder / "Papierkorb" / item.filename()); };
}

/// The next start brings every disk into one of the expected states.
CrashTest::Check recoversTo(Jobs& jobs, const std::function<bool(const std::string& state)>& expected) {
    return [&jobs, expected](CrashingFileManager& files, const fs::path& folder) {
        std::string violation;
        jobs.branch([&](SQLiteJobStore& database) {
            const auto report = AudioRemoval::recover(folder, database, trashIn(files, folder), files);
            const bool retired =
                database.registeredChunkCount() == 0 && database.jobStats(session)["failed"] == 1;
            const auto state = stateOf(folder, retired);
            if (!report.problems.empty()) violation = report.problems[0];
            if (!expected(state)) violation += state;
        });
        return violation;
    };
}

/// Removes the audio; `done` tells whether that was reported as done.
CrashTest removal(Jobs& jobs, bool& done) {
    return {[](auto&, const fs::path& folder) { prepareMeeting(folder, {}); },
            [&](CrashingFileManager& files, const fs::path& folder) {
                done = false;
                jobs.begin(/*retired=*/false);
                try {
                    AudioRemoval::moveToTrash(session, folder, jobs.open(), trashIn(files, folder), files);
                    done = true;
                } catch (const MeetingError&) {  // the program reports it and goes on
                }
            },
            recoversTo(jobs, [&](const std::string& state) {
                return state == "removed" || (state == "before" && !done);
            })};
}

TEST(AudioRemovalCrashes, LeaveTheMeetingAsItWasOrWithoutAudio) {
    Jobs jobs;
    bool done = false;
    const auto test = removal(jobs, done);
    const auto recover = [&](CrashingFileManager& files, const fs::path& folder) {
        AudioRemoval::recover(folder, jobs.open(), trashIn(files, folder), files);
    };
    auto report = forEachPowerCut(test);
    EXPECT_GT(report.stops, 12U);
    report += forEachKill(test, recover);
    EXPECT_THAT(report.violations, IsEmpty());
    RecordProperty("disks", static_cast<int>(report.disks));
}

TEST(AudioRemovalCrashes, LeaveTheMeetingWholeWhereTheDiskFails) {
    Jobs jobs;
    bool done = false;
    const auto report = forEachFailure(removal(jobs, done), [](auto&, const auto&) {});
    EXPECT_THAT(report.violations, IsEmpty());
    RecordProperty("disks", static_cast<int>(report.disks));
}

TEST(AudioRemovalCrashes, RecoversEveryStageThroughFurtherCrashes) {
    struct Case {
        Progress left;
        std::string after;
    };
    const Case cases[] = {{{.staged = true}, "before"},
                          {{.staged = true, .marked = true}, "before"},
                          {{.staged = true, .marked = true, .moved = 2}, "before"},
                          {{.staged = true, .marked = true, .moved = 3}, "removed"},
                          {{.staged = true, .marked = true, .moved = 3, .trashed = true}, "removed"}};
    for (const auto& stage : cases) {
        const auto& left = stage.left;
        const auto& after = stage.after;
        Jobs jobs;
        const CrashTest test{[&](auto&, const fs::path& folder) { prepareMeeting(folder, left); },
                             [&](CrashingFileManager& files, const fs::path& folder) {
                                 jobs.begin(/*retired=*/false);
                                 AudioRemoval::recover(folder, jobs.open(), trashIn(files, folder), files);
                                 if (stateOf(folder, jobs.retired()) != after) ADD_FAILURE() << after;
                             },
                             recoversTo(jobs, [&](const std::string& state) { return state == after; })};
        EXPECT_THAT(forEachPowerCut(test).violations, IsEmpty()) << after << " " << left.moved;
    }
}

}  // namespace
}  // namespace meetingcore
