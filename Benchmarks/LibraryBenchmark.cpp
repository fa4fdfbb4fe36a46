#include <atomic>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sqlite3.h>

#include "Comparison.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "Support/ForwardingFileManager.h"
#include "Support/TemporaryFolder.h"

namespace {

std::atomic<int> flushes;

int countedFlush(const char* name, int descriptor) {
    ++flushes;
    return reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, name))(descriptor);
}

}  // namespace

// Stand before the system's own, so that SQLite's calls are counted too.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int fsync(int descriptor) { return countedFlush("fsync", descriptor); }
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int fdatasync(int descriptor) { return countedFlush("fdatasync", descriptor); }

namespace meetingcore {
namespace {

using benchmarks::interleaved;
using benchmarks::secondsOf;
using testing::TemporaryFolder;

constexpr int meetingCount = 10'000;
constexpr int chunksPerMeeting = 20;
constexpr int minutesPerDay = 1440;

/// Forgets what is written, to leave the work before.
class Forgetful final : public testing::ForwardingFileManager {
public:
    using ForwardingFileManager::ForwardingFileManager;

    std::unique_ptr<FileWriter> createFile(const std::filesystem::path&) override {
        struct Nowhere final : FileWriter {
            void write(std::string_view) override {}
            void flush() override {}
            void close() override {}
        };
        return std::make_unique<Nowhere>();
    }
    void move(const std::filesystem::path&, const std::filesystem::path&) override {}
    void flushDirectory(const std::filesystem::path&) override {}
};

MeetingEntry sampleMeeting(int number) {
    MeetingEntry entry;
    entry.id = UUID::random();
    entry.title = "Wochenrunde " + std::to_string(number) + ": Budget für das dritte Quartal";
    entry.createdAt = Date::sinceReferenceDate(721'692'800.25 + number * 3600.0);
    entry.state = "completed";
    entry.duration = 3600.125;
    entry.chunkCount = chunksPerMeeting;
    for (int line = 0; line < 8; ++line) entry.notes += "Größere Beträge klären wir mit der Buchhaltung.\n";
    entry.metadata = MeetingMetadata{{"Anna Schmidt", "Jürgen Weiß", "Zoë Krämer", "Max Öztürk"}, {}, {}};
    for (const auto* name : {"Kunde", "Ort", "Kostenstelle"}) {
        entry.metadata->fields.push_back({UUID::random(), name, "Köln, Gebäude 3"});
    }
    entry.metadata->transcriptionPhrases = {{"Kostenstelle", "Öztürk"}};
    return entry;
}

void updating(benchmark::State& state) {
    const TemporaryFolder root;
    Forgetful files(FileManager::system());
    MeetingLibrary library(root.path(), files);
    library.update([](LibrarySnapshot& snapshot) {
        for (int i = 0; i < meetingCount; ++i) snapshot.meetings.push_back(sampleMeeting(i));
    });
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            9, [&] { return secondsOf([&] { library.update([](LibrarySnapshot&) {}); }); },
            [&] { return secondsOf([&] { benchmark::DoNotOptimize(json::encode(library.snapshot())); }); });
        state.SetIterationTime(result.ours);
        state.counters["bare_encoding_ms"] = result.baseline * 1e3;
        state.counters["ours/bare"] = result.ratio;
        state.counters["MB"] = static_cast<double>(json::encode(library.snapshot()).size()) / 1e6;
    }
    state.SetLabel("10,000 meetings; copy, validate and encode, without the disk");
}

std::vector<AudioChunk> dayOfChunks(const UUID& session, int count) {
    std::vector<AudioChunk> chunks;
    for (int i = 0; i < count; ++i) {
        AudioChunk chunk;
        chunk.id = UUID::random();
        chunk.sessionID = session;
        chunk.sequence = i;
        chunk.startSeconds = 60.0 * i;
        chunk.sampleCount = audio::maximumChunkSamples;
        chunks.push_back(chunk);
    }
    return chunks;
}

void reconciling(benchmark::State& state) {
    const TemporaryFolder root;
    const auto meetings = root.path() / "Meetings";
    std::vector<AudioChunk> chunks;
    for (int i = 0; i < meetingCount; ++i) {
        MeetingSession session;
        session.id = UUID::random();
        session.title = "Wochenrunde";
        session.applicationBundleID = "example.meeting";
        const auto folder = meetings / session.id.string();
        std::filesystem::create_directories(folder);
        std::ofstream(folder / "session.json") << json::encode(session);
        const auto own = dayOfChunks(session.id, chunksPerMeeting);
        chunks.insert(chunks.end(), own.begin(), own.end());
    }
    MeetingLibrary library(root.path());
    auto& files = FileManager::system();
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            5, [&] { return secondsOf([&] { library.reconcile(meetings, chunks); }); },
            [&] {
                return secondsOf([&] {
                    for (const auto& name : files.list(meetings)) {
                        const auto bytes = files.read(meetings / name / "session.json", 0, 1 << 20);
                        benchmark::DoNotOptimize(json::decode<MeetingSession>(bytes, name));
                    }
                });
            });
        state.SetIterationTime(result.ours);
        state.counters["manifests_ms"] = result.baseline * 1e3;
        state.counters["ours/manifests"] = result.ratio;
    }
    state.SetLabel("10,000 meetings, 200,000 chunks, the library written each time");
}

/// The lookups that the store's rules ask for, on statements prepared once.
class BareLookups {
public:
    explicit BareLookups(const std::filesystem::path& file) {
        sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
        for (const auto* sql :
             {"BEGIN IMMEDIATE", "SELECT payload FROM jobs WHERE id=?",
              "SELECT session_id FROM jobs WHERE id=?", "SELECT kind FROM jobs WHERE id=?", "COMMIT"}) {
            sqlite3_stmt* statement = nullptr;
            if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK)
                throw std::runtime_error(sql);
            statements_.push_back(statement);
        }
    }
    ~BareLookups() {
        for (auto* const statement : statements_) sqlite3_finalize(statement);
        sqlite3_close(db_);
    }
    BareLookups(const BareLookups&) = delete;
    BareLookups& operator=(const BareLookups&) = delete;

    void lookUp(const WorkItem& item) {
        for (auto* const statement : statements_) {
            if (sqlite3_bind_parameter_count(statement) > 0) {
                sqlite3_bind_text(statement, 1, item.id.data(), static_cast<int>(item.id.size()),
                                  SQLITE_TRANSIENT);
            }
            if (sqlite3_step(statement) == SQLITE_ROW) found_ += sqlite3_column_bytes(statement, 0);
            sqlite3_reset(statement);
        }
    }

private:
    sqlite3* db_ = nullptr;
    std::vector<sqlite3_stmt*> statements_;
    std::int64_t found_ = 0;
};

std::vector<WorkItem> plannedItems(const std::vector<AudioChunk>& chunks) {
    std::vector<WorkItem> items;
    for (const auto& window : WorkScheduler::windows(chunks, true)) {
        items.push_back(
            {window.id(), window.sessionID, "transcribe", json::encode(window, json::Keys::sorted)});
    }
    return items;
}

void schedulingAgain(benchmark::State& state) {
    const TemporaryFolder root;
    const auto file = root.path() / "quillmoot.sqlite";
    const auto chunks = dayOfChunks(UUID::random(), minutesPerDay);
    const auto items = plannedItems(chunks);
    SQLiteJobStore database(file);
    WorkScheduler::enqueue(chunks, database, true);
    BareLookups bare(file);
    const auto ours = [&] { return secondsOf([&] { WorkScheduler::enqueue(chunks, database, true); }); };
    for ([[maybe_unused]] auto iteration : state) {
        const auto store = interleaved(9, ours, [&] {
            return secondsOf([&] {
                for (const auto& item : items) database.enqueue(item);
            });
        });
        const auto result = interleaved(9, ours, [&] {
            return secondsOf([&] {
                for (const auto& item : items) bare.lookUp(item);
            });
        });
        state.SetIterationTime(result.ours);
        state.counters["bare_lookups_ms"] = result.baseline * 1e3;
        state.counters["ours/bare"] = result.ratio;
        state.counters["ours/store"] = store.ratio;
    }
    state.SetLabel("24 hours of a track, all jobs known");
}

void schedulingNew(benchmark::State& state) {
    const TemporaryFolder root;
    for ([[maybe_unused]] auto iteration : state) {
        int ourFlushes = 0, storeFlushes = 0;
        const auto measure = [&](int& count, const auto& add) {
            SQLiteJobStore database(root.path() / (UUID::random().string() + ".sqlite"));
            const auto chunks = dayOfChunks(UUID::random(), minutesPerDay);
            const auto items = plannedItems(chunks);
            flushes = 0;
            const auto seconds = secondsOf([&] { add(database, chunks, items); });
            count = flushes;
            return seconds;
        };
        const auto result = interleaved(
            3,
            [&] {
                return measure(ourFlushes, [](auto& database, const auto& chunks, const auto&) {
                    WorkScheduler::enqueue(chunks, database, true);
                });
            },
            [&] {
                return measure(storeFlushes, [](auto& database, const auto&, const auto& items) {
                    for (const auto& item : items) database.enqueue(item);
                });
            });
        state.SetIterationTime(result.ours);
        state.counters["flushes"] = ourFlushes;
        state.counters["store_flushes"] = storeFlushes;
        state.counters["ours/store"] = result.ratio;
    }
    state.SetLabel("1,440 new jobs in one call, against as many calls of the store");
}

BENCHMARK(updating)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(reconciling)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(schedulingAgain)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(schedulingNew)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace meetingcore
