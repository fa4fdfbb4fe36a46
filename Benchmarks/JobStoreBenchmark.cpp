#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include "Comparison.h"
#include "MeetingCore/Platform/NumberText.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

constexpr int jobs = 200;

std::filesystem::path filledStore(const std::filesystem::path& folder) {
    auto file = folder / (UUID::random().string() + ".sqlite");
    SQLiteJobStore store(file);
    for (int i = 0; i < jobs; ++i)
        store.enqueue({"job " + std::to_string(i), UUID::random(), "transcribe", "{}"});
    return file;
}

std::string resultText() { return R"({"version":1,"words":")" + std::string(10'000, 'x') + R"("})"; }

double claimAndFinish(const std::filesystem::path& file, const std::string& result) {
    SQLiteJobStore store(file);
    return benchmarks::secondsOf([&] {
        for (int i = 0; i < jobs; ++i) store.finish(*store.claimNext(Date::now(), 60), result, Date::now());
    });
}

/// A bare SQLite database under the store's settings.
class BareDatabase {
public:
    explicit BareDatabase(const std::filesystem::path& file) {
        sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
        sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA foreign_keys=ON;", nullptr,
                     nullptr, nullptr);
    }
    ~BareDatabase() {
        for (auto* const statement : statements_) sqlite3_finalize(statement);
        sqlite3_close(db_);
    }
    BareDatabase(const BareDatabase&) = delete;
    BareDatabase& operator=(const BareDatabase&) = delete;

    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK) throw std::runtime_error(sql);
        statements_.push_back(statement);
        return statement;
    }

    static void run(sqlite3_stmt* statement, const std::vector<std::string>& values = {}) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            sqlite3_bind_text(statement, static_cast<int>(i) + 1, values[i].data(),
                              static_cast<int>(values[i].size()), SQLITE_TRANSIENT);
        }
        if (sqlite3_step(statement) != SQLITE_DONE) throw std::runtime_error("a bare statement failed");
        sqlite3_reset(statement);
    }

private:
    sqlite3* db_ = nullptr;
    std::vector<sqlite3_stmt*> statements_;
};

/// The store's statements, prepared once, with no more around them than SQLite asks for.
double bareStatements(const std::filesystem::path& file, const std::string& result) {
    BareDatabase db(file);
    auto* const begin = db.prepare("BEGIN IMMEDIATE");
    auto* const commit = db.prepare("COMMIT");
    auto* const select = db.prepare(
        "SELECT id,session_id,kind,payload,attempts FROM jobs WHERE status='pending' ORDER BY created_at,id "
        "LIMIT 1");
    auto* const claim = db.prepare(
        "UPDATE jobs SET status='running',attempts=?,lease_token=?,lease_until=? WHERE id=? AND "
        "status='pending'");
    auto* const finish = db.prepare(
        "UPDATE jobs SET status='completed',result=?,lease_token=NULL,lease_until=NULL,last_error=NULL "
        "WHERE id=? AND status='running' AND lease_token=? AND lease_until>=?");
    return benchmarks::secondsOf([&] {
        for (int i = 0; i < jobs; ++i) {
            BareDatabase::run(begin);
            sqlite3_step(select);
            const std::string id = reinterpret_cast<const char*>(sqlite3_column_text(select, 0));
            sqlite3_reset(select);
            const auto token = UUID::random().string();
            const auto until = number::plain(Date::now().advanced(60).secondsSince1970());
            BareDatabase::run(claim, {"1", token, until, id});
            BareDatabase::run(commit);
            BareDatabase::run(finish, {result, id, token, number::plain(Date::now().secondsSince1970())});
        }
    });
}

void claimPlusFinish(benchmark::State& state) {
    const testing::TemporaryFolder folder;
    const auto result = resultText();
    for ([[maybe_unused]] auto iteration : state) {
        const auto compared = benchmarks::interleaved(
            7, [&] { return claimAndFinish(filledStore(folder.path()), result); },
            [&] { return bareStatements(filledStore(folder.path()), result); });
        state.SetIterationTime(compared.ours / jobs);
        state.counters["bare_ms"] = compared.baseline / jobs * 1e3;
        state.counters["ours/bare"] = compared.ratio;
    }
    state.SetLabel("200 jobs, results of 10 KB, 7 rounds");
}

BENCHMARK(claimPlusFinish)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace meetingcore
