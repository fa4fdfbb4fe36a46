#include <atomic>
#include <cmath>
#include <fstream>
#include <limits>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "MeetingCore/Recording/SQLiteConnection.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "Support/Failure.h"
#include "Support/ForkedProcess.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::ForkedProcess;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::Signal;
using testing::TemporaryFolder;
using ::testing::UnorderedElementsAre;

constexpr auto database = MeetingError::Kind::database;
constexpr auto invalidData = MeetingError::Kind::invalidData;
const std::string noFailure = "no failure";
const std::string staleLease = "Veraltete oder unbekannte Worker-Lease.";
const Date noon = Date::since1970(1'700'000'000.5);

std::string failureOf(const std::function<void()>& call, MeetingError::Kind kind = database) {
    return testing::failureOf(call, kind);
}

class JobStoreTest : public ::testing::Test {
protected:
    fs::path file() const { return folder_.path() / "Bibliothek" / "quillmoot.sqlite"; }

    SQLiteJobStore& store() {
        if (store_ == nullptr) store_ = std::make_unique<SQLiteJobStore>(file());
        return *store_;
    }

    WorkItem item(const std::string& id, const std::string& kind = "transcribe") const {
        return {id, session_, kind, R"({"window":1})"};
    }

    /// The row's column as text, "NULL" for NULL, through a connection of its own.
    std::string column(const std::string& id, const std::string& name) const {
        return valueOf("SELECT CASE WHEN " + name + " IS NULL THEN 'NULL' ELSE " + name +
                       " END FROM jobs WHERE id='" + id + "'");
    }

    std::string valueOf(const std::string& sql) const {
        return SQLiteConnection(file()).textValue(sql.c_str(), {}).value_or("no row");
    }

    void execute(const std::string& sql) const { SQLiteConnection(file()).execute(sql.c_str()); }

    JobLease claim(double seconds = 60) { return store().claimNext(noon, seconds).value(); }

    /// A job in the state that the word names; the lease is that of the last claim.
    JobLease jobIn(const std::string& status, const std::string& id) {
        store().enqueue(item(id));
        JobLease lease{item(id), UUID::random(), 0};
        if (status == "pending") return lease;
        lease = claim();
        if (status == "completed") store().finish(lease, "{}", noon);
        if (status == "failed") store().fail(lease, "kaputt", noon);
        return lease;
    }

    TemporaryFolder folder_;
    UUID session_ = UUID::random();
    UUID otherSession_ = UUID::random();
    std::unique_ptr<SQLiteJobStore> store_;
};

TEST_F(JobStoreTest, CreatesItsTablesAsTheyAreDocumented) {
    store();
    const auto sqlOf = [&](const std::string& name) {
        return valueOf("SELECT sql FROM sqlite_master WHERE name='" + name + "'");
    };
    EXPECT_EQ(sqlOf("chunks"),
              "CREATE TABLE chunks (\n  id TEXT PRIMARY KEY NOT NULL, payload TEXT NOT NULL\n)");
    EXPECT_EQ(
        sqlOf("jobs"),
        "CREATE TABLE jobs (\n  id TEXT PRIMARY KEY NOT NULL, session_id TEXT NOT NULL,\n  kind TEXT NOT "
        "NULL, payload TEXT NOT NULL,\n  status TEXT NOT NULL DEFAULT 'pending'\n    CHECK(status IN "
        "('pending','running','completed','failed')),\n  attempts INTEGER NOT NULL DEFAULT 0,\n  lease_token "
        "TEXT, lease_until REAL, result TEXT, last_error TEXT,\n  created_at REAL NOT NULL\n)");
    EXPECT_EQ(sqlOf("job_status_idx"), "CREATE INDEX job_status_idx ON jobs(status, created_at)");
    EXPECT_EQ(
        sqlOf("result_history"),
        "CREATE TABLE result_history (\n  revision INTEGER PRIMARY KEY AUTOINCREMENT, job_id TEXT NOT NULL,\n"
        "  session_id TEXT NOT NULL, result TEXT NOT NULL, created_at REAL NOT NULL\n)");
    EXPECT_EQ(sqlOf("history_job_idx"), "CREATE INDEX history_job_idx ON result_history(job_id,revision)");
    EXPECT_EQ(valueOf("PRAGMA user_version"), "2");
    EXPECT_EQ(valueOf("PRAGMA journal_mode"), "wal");
}

TEST_F(JobStoreTest, KeepsItsFilesToTheOwner) {
    const auto before = ::umask(0);
    store().enqueue(item("a"));
    ::umask(before);
    for (const auto& path : {file(), fs::path(file().string() + "-wal"), fs::path(file().string() + "-shm")}) {
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0) << path;
        EXPECT_EQ(info.st_mode & 0777U, 0600U) << path;
    }
    struct stat info {};
    ASSERT_EQ(::stat(file().parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0700U);
    store_.reset();
    fs::permissions(file(), fs::perms(0644));
    store();
    ASSERT_EQ(::stat(file().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST_F(JobStoreTest, StoresNumbersAsNumbers) {
    store().enqueue(item("a"));
    const auto lease = claim();
    EXPECT_EQ(lease.attempt, 1);
    EXPECT_EQ(lease.item, item("a"));
    EXPECT_EQ(column("a", "typeof(lease_until)||typeof(created_at)||typeof(attempts)"), "realrealinteger");
    EXPECT_EQ(column("a", "lease_until"), "1700000060.5");
    EXPECT_EQ(column("a", "session_id"), session_.string());
    EXPECT_EQ(column("a", "lease_token"), lease.token.string());
    EXPECT_EQ(column("a", "abs(created_at-strftime('%s','now'))<100"), "1");
}

TEST_F(JobStoreTest, EnqueuesAnIdenticalJobOnce) {
    store().enqueue(item("a"));
    claim();
    store().enqueue(item("a"));
    EXPECT_EQ(store().jobCount(), 1);
    EXPECT_EQ(column("a", "status"), "running");
    auto payload = item("a");
    payload.payloadJSON = R"({"window": 1})";
    auto session = item("a");
    session.sessionID = otherSession_;
    for (const auto& other : {payload, session, item("a", "diarize")}) {
        EXPECT_EQ(failureOf([&] { store().enqueue(other); }),
                  "Auftrags-ID existiert mit einem anderen Inhalt.");
    }
    EXPECT_EQ(store().jobCount(), 1);
}

TEST_F(JobStoreTest, RefusesWhatItCannotStore) {
    const std::string wanted = "Auftrag benötigt ID, Typ und gültige JSON-Eingabe.";
    auto noJSON = item("a");
    noJSON.payloadJSON = "{]";
    auto empty = item("a");
    empty.payloadJSON = "";
    for (const auto& bad : {item(""), item("a", ""), noJSON, empty}) {
        EXPECT_EQ(failureOf([&] { store().enqueue(bad); }, invalidData), wanted);
    }
    auto fragment = item("a");
    fragment.payloadJSON = " null ";
    store().enqueue(fragment);
    for (const double seconds : {0.0, -1.0, HUGE_VAL, std::nan("")}) {
        EXPECT_EQ(failureOf([&] { store().claimNext(noon, seconds); }, invalidData),
                  "Die Lease-Dauer muss positiv sein.");
        EXPECT_EQ(failureOf(
                      [&] {
                          store().renew({fragment, UUID::random(), 1}, noon, seconds);
                      },
                      invalidData),
                  "Ungültige Lease-Dauer.");
    }
    const auto lease = claim();
    EXPECT_EQ(failureOf([&] { store().finish(lease, "{\"a\":}", noon); }, invalidData),
              "Das Arbeitsergebnis ist kein gültiges JSON.");
    EXPECT_EQ(column("a", "status"), "running");
    store().finish(lease, "3", noon);
    EXPECT_EQ(store().result("a"), "3");
}

TEST_F(JobStoreTest, ClaimsTheOldestJobAndBreaksTiesById) {
    for (const auto* const id : {"b", "c", "a", "old"}) store().enqueue(item(id));
    execute("UPDATE jobs SET created_at=CASE id WHEN 'old' THEN 9.5 ELSE 10 END");
    std::vector<std::string> order;
    while (const auto lease = store().claimNext(noon, 1)) order.push_back(lease->item.id);
    EXPECT_THAT(order, ElementsAre("old", "a", "b", "c"));
}

TEST_F(JobStoreTest, ClaimsWithinASessionAndByIdUnderTheSameRules) {
    auto foreign = item("0-foreign");
    foreign.sessionID = otherSession_;
    store().enqueue(foreign);
    for (const auto* const id : {"c", "b", "old"}) store().enqueue(item(id));
    execute("UPDATE jobs SET created_at=CASE id WHEN 'old' THEN 9.5 ELSE 10 END");
    EXPECT_EQ(store().claimNext(session_, noon, 1)->item.id, "old");
    const auto lease = store().claim("c", noon, 1).value();
    EXPECT_EQ(lease.item, item("c"));
    EXPECT_EQ(column("c", "status||attempts||lease_until||lease_token"),
              "running11700000001.5" + lease.token.string());
    EXPECT_EQ(store().claim("c", noon.advanced(9), 1), std::nullopt);  // expired, but not recovered
    EXPECT_EQ(store().claim("unknown", noon, 1), std::nullopt);
    EXPECT_EQ(store().claimNext(session_, noon, 1)->item.id, "b");
    EXPECT_EQ(store().claimNext(session_, noon, 1), std::nullopt);
    EXPECT_EQ(column("0-foreign", "status||attempts"), "pending0");
    for (const auto& claim :
         std::vector<std::function<void()>>{[&] { store().claim("0-foreign", noon, 0); },
                                            [&] { store().claimNext(session_, noon, HUGE_VAL); }}) {
        EXPECT_EQ(failureOf(claim, invalidData), "Die Lease-Dauer muss positiv sein.");
    }
}

TEST_F(JobStoreTest, TellsWhereJobsStandAndRestartsOnlyWhatIsCompleted) {
    jobIn("completed", "a");
    jobIn("running", "b");
    jobIn("failed", "c");
    jobIn("pending", "d");
    for (const auto* const id : {"a", "b", "c", "d"}) store().restartCompleted(id);
    const auto payload = item("a").payloadJSON;
    EXPECT_THAT(store().jobs(session_),
                ElementsAre(JobState{"a", "transcribe", payload, JobStatus::pending, 1, {}, {}},
                            JobState{"b", "transcribe", payload, JobStatus::running, 1, noon.advanced(60), {}},
                            JobState{"c", "transcribe", payload, JobStatus::failed, 1, {}, "kaputt"},
                            JobState{"d", "transcribe", payload, JobStatus::pending, 0, {}, {}}));
    EXPECT_EQ(store().result("a"), std::nullopt);
    EXPECT_THAT(store().completedResults(session_), ElementsAre("{}"));  // shown until the new one arrives
    EXPECT_THAT(store().jobs(otherSession_), IsEmpty());
}

TEST_F(JobStoreTest, RefusesAJobOfNoSessionAndLeavesItPending) {
    store().enqueue(item("a"));
    execute("UPDATE jobs SET session_id='keine'");
    EXPECT_EQ(failureOf([&] { claim(); }), "Ungültige Sitzung im Auftrag.");
    EXPECT_EQ(column("a", "status||attempts"), "pending0");
    store().enqueue(item("b"));  // the failed transaction is over
}

TEST_F(JobStoreTest, LeaseEndsJustAfterItsLastInstant) {
    const auto end = noon.advanced(60);
    const auto after = Date::since1970(std::nextafter(end.secondsSince1970(), 1e300));
    for (const auto* const id : {"finish", "fail", "renew"}) store().enqueue(item(id));
    std::map<std::string, JobLease> leases;
    while (const auto lease = store().claimNext(noon, 60)) leases.emplace(lease->item.id, *lease);
    for (const auto& entry : leases) {
        const auto& lease = entry.second;
        EXPECT_EQ(failureOf([&] { store().finish(lease, "{}", after); }), staleLease);
        EXPECT_EQ(failureOf([&] { store().fail(lease, "x", after); }), staleLease);
        EXPECT_EQ(failureOf([&] { store().renew(lease, after, 60); }), staleLease);
        EXPECT_EQ(failureOf([&] { store().release(lease, "x", after); }), staleLease);
        auto foreign = lease;
        foreign.token = UUID::random();
        EXPECT_EQ(failureOf([&] { store().finish(foreign, "{}", noon); }), staleLease);
    }
    EXPECT_EQ(store().recoverExpired(end), 0);
    store().finish(leases.at("finish"), "{}", end);
    store().fail(leases.at("fail"), "kaputt", end);
    store().renew(leases.at("renew"), end, 60);
    EXPECT_EQ(column("renew", "lease_until"), "1700000120.5");
    EXPECT_EQ(store().recoverExpired(after), 0);
    EXPECT_EQ(store().recoverExpired(end.advanced(60.25)), 1);
    EXPECT_EQ(column("renew", "status||attempts||last_error"), "pending1Worker-Lease abgelaufen");
    EXPECT_EQ(column("renew", "lease_token") + column("renew", "lease_until"), "NULLNULL");
    const auto second = claim();
    EXPECT_EQ(second.attempt, 2);
    EXPECT_EQ(failureOf([&] { store().finish(leases.at("renew"), "{}", noon); }), staleLease);
    store().finish(second, "{}", noon);
    EXPECT_EQ(column("renew", "last_error"), "NULL");
}

TEST_F(JobStoreTest, EveryEventMovesAJobOnlyWhereItMay) {
    const std::vector<std::string> states = {"pending", "running", "completed", "failed"};
    struct Event {
        std::string name;
        std::function<void(const JobLease&)> apply;
        std::vector<std::string> after;  ///< by the state before
        std::string failure;             ///< where the state stays as it is
    };
    const std::string none = "Kein fehlgeschlagener Auftrag mit dieser ID.";
    const std::string busy = "Ein Auftrag ist noch belegt. Bitte nach Ablauf der Sperre erneut versuchen.";
    const std::vector<Event> events = {
        {"finish",
         [&](auto& l) { store().finish(l, "1", noon); },
         {"pending", "completed", "completed", "failed"},
         staleLease},
        {"fail",
         [&](auto& l) { store().fail(l, "x", noon); },
         {"pending", "failed", "completed", "failed"},
         staleLease},
        {"release",
         [&](auto& l) { store().release(l, "x", noon); },
         {"pending", "pending", "completed", "failed"},
         staleLease},
        {"renew", [&](auto& l) { store().renew(l, noon, 9); }, states, staleLease},
        {"recover",
         [&](auto&) { store().recoverExpired(noon.advanced(999)); },
         {"pending", "pending", "completed", "failed"},
         noFailure},
        {"retry",
         [&](auto& l) { store().retryFailed(l.item.id); },
         {"pending", "running", "completed", "pending"},
         none},
        {"retry session",
         [&](auto&) { store().retrySession(session_); },
         {"pending", "running", "completed", "pending"},
         noFailure},
        {"restart",
         [&](auto&) { store().restartSession(session_); },
         {"pending", "running", "pending", "pending"},
         busy},
        {"retire",
         [&](auto&) { store().retireAudio(session_); },
         {"failed", "failed", "completed", "failed"},
         noFailure},
        {"forget",
         [&](auto&) { store().forgetSession(session_); },
         {"no row", "no row", "no row", "no row"},
         ""},
    };
    for (const auto& event : events) {
        for (std::size_t i = 0; i < states.size(); ++i) {
            const auto where = event.name + " while " + states[i];
            const auto lease = jobIn(states[i], where);
            const auto before = column(where, "status||attempts||ifnull(lease_token,'')||ifnull(result,'')");
            const auto failure = failureOf([&] { event.apply(lease); });
            EXPECT_EQ(column(where, "status"), event.after[i]) << where;
            if (failure != noFailure) {
                EXPECT_EQ(failure, event.failure) << where;
                EXPECT_EQ(column(where, "status||attempts||ifnull(lease_token,'')||ifnull(result,'')"), before);
            }
            const bool running = event.after[i] == "running" || event.after[i] == "no row";
            if (!running) {
                EXPECT_EQ(column(where, "lease_token IS NULL AND lease_until IS NULL"), "1") << where;
            }
            if (event.after[i] == "pending") {
                EXPECT_EQ(column(where, "result IS NULL"), "1") << where;
            }
            if (event.name == "release" && i == 1) {
                EXPECT_EQ(column(where, "last_error||attempts"), "x1");
            }
            if (event.name == "retire" && i != 2) {
                EXPECT_EQ(column(where, "last_error"), "Audio bewusst entfernt");
            }
            store().forgetSession(session_);
        }
    }
    EXPECT_EQ(failureOf([&] { store().retryFailed("unbekannt"); }), none);
}

TEST_F(JobStoreTest, CutsFailureMessagesAtTwoThousandCharacters) {
    const auto lease = jobIn("running", "a");
    std::string message;
    for (int i = 0; i < 5000; ++i) message += "e\u0301";
    store().fail(lease, message, noon);
    EXPECT_EQ(column("a", "last_error"), message.substr(0, message.size() / 5 * 2));
}

TEST_F(JobStoreTest, KeepsOldResultsReadableAfterARestart) {
    for (const auto* const id : {"a", "b", "c"}) store().enqueue(item(id));
    store().enqueue(item("d", "diarize"));
    execute("UPDATE jobs SET created_at=unicode(id)");
    store().finish(claim(), R"("a1")", noon);
    store().finish(claim(), R"("b1")", noon);
    store().fail(claim(), "kaputt", noon);
    store().finish(claim(), R"("d1")", noon);
    EXPECT_THAT(store().completedResults(session_), ElementsAre(R"("a1")", R"("b1")"));
    EXPECT_THAT(store().completedResults(otherSession_), IsEmpty());

    store().restartSession(session_);
    EXPECT_THAT(store().jobStats(), ElementsAre(Pair("pending", 4)));
    EXPECT_THAT(store().completedResults(session_), ElementsAre(R"("a1")", R"("b1")"));
    EXPECT_EQ(store().result("a"), std::nullopt);
    const auto again = claim();
    EXPECT_EQ(again.attempt, 2);
    EXPECT_EQ(failureOf([&] { store().restartSession(session_); }),
              "Ein Auftrag ist noch belegt. Bitte nach Ablauf der Sperre erneut versuchen.");
    store().restartSession(otherSession_);
    EXPECT_EQ(valueOf("SELECT COUNT(*) FROM result_history"), "3");
    store().finish(again, R"("a2")", noon);
    EXPECT_THAT(store().completedResults(session_), ElementsAre(R"("a2")", R"("b1")"));
    store().restartSession(session_);
    EXPECT_THAT(store().completedResults(session_), ElementsAre(R"("a2")", R"("b1")"));
}

AudioChunk chunkOf(const UUID& session) {
    AudioChunk chunk;
    chunk.id = UUID::random();
    chunk.sessionID = session;
    chunk.startSeconds = 0.1;
    chunk.sampleCount = 960'000;
    return chunk;
}

TEST_F(JobStoreTest, RegistersAChunkOnceAndRefusesOtherMetadata) {
    const auto chunk = chunkOf(session_);
    store().registerChunk(chunk);
    store().registerChunk(chunk);
    EXPECT_EQ(valueOf("SELECT payload FROM chunks WHERE id='" + chunk.id.string() + "'"), json::encode(chunk));
    using Change = void (*)(AudioChunk&);
    for (const Change change :
         {Change([](AudioChunk& c) { c.sessionID = c.id; }), Change([](AudioChunk& c) { c.sequence = 1; }),
          Change([](AudioChunk& c) { c.source = AudioSource::meeting; }),
          Change([](AudioChunk& c) { c.startSeconds = 0.2; }), Change([](AudioChunk& c) { c.sampleCount = 1; }),
          Change([](AudioChunk& c) { c.sampleRate = 1; }),
          Change([](AudioChunk& c) { c.schemaVersion = 2; })}) {
        auto other = chunk;
        change(other);
        EXPECT_EQ(failureOf([&] { store().registerChunk(other); }),
                  "Abschnitts-ID wurde mit anderen Metadaten wiederverwendet.");
    }
    EXPECT_EQ(store().registeredChunkCount(), 1);
}

TEST_F(JobStoreTest, RetiresAndForgetsOneSessionOnly) {
    for (const auto& session : {session_, session_, otherSession_}) store().registerChunk(chunkOf(session));
    jobIn("completed", "done");
    store().restartSession(session_);
    store().finish(claim(), "2", noon);
    jobIn("pending", "waiting");
    auto foreign = item("foreign");
    foreign.sessionID = otherSession_;
    store().enqueue(foreign);
    store().retireAudio(session_);
    EXPECT_EQ(store().registeredChunkCount(), 1);
    EXPECT_THAT(store().jobStats(session_), UnorderedElementsAre(Pair("completed", 1), Pair("failed", 1)));
    EXPECT_THAT(store().jobStats(otherSession_), UnorderedElementsAre(Pair("pending", 1)));
    store().forgetSession(session_);
    EXPECT_THAT(store().jobStats(session_), IsEmpty());
    EXPECT_EQ(valueOf("SELECT COUNT(*) FROM result_history"), "0");
    EXPECT_EQ(store().jobCount(), 1);
    store().forgetSession(otherSession_);
    EXPECT_EQ(store().registeredChunkCount(), 0);
}

TEST_F(JobStoreTest, ReportsAClosedStoreAfterBadArguments) {
    store().close();
    const JobLease lease{item("a"), UUID::random(), 1};
    const std::vector<std::function<void()>> operations = {
        [&] { store().registerChunk(chunkOf(session_)); },
        [&] { store().enqueue(item("a")); },
        [&] { store().claimNext(noon, 1); },
        [&] { store().finish(lease, "{}", noon); },
        [&] { store().renew(lease, noon, 1); },
        [&] { store().fail(lease, "x", noon); },
        [&] { store().recoverExpired(noon); },
        [&] { store().retryFailed("a"); },
        [&] { store().retrySession(session_); },
        [&] { store().restartSession(session_); },
        [&] { store().retireAudio(session_); },
        [&] { store().forgetSession(session_); },
        [&] { store().jobStats(); },
        [&] { store().result("a"); },
        [&] { store().completedResults(session_); },
        [&] { store().jobCount(); },
        [&] { store().registeredChunkCount(); },
    };
    for (const auto& operation : operations) EXPECT_EQ(failureOf(operation), "SQLite ist geschlossen.");
    EXPECT_THAT(failureOf([&] { store().enqueue(item("")); }, invalidData), ::testing::StartsWith("Auftrag "));
    EXPECT_THAT(failureOf([&] { store().finish(lease, "", noon); }, invalidData),
                ::testing::StartsWith("Das Arbeitsergebnis"));
}

TEST_F(JobStoreTest, ReportsAFileThatIsNoDatabase) {
    fs::create_directories(file().parent_path());
    std::ofstream(file()) << std::string(4096, 'x');
    EXPECT_EQ(failureOf([&] { store(); }), "file is not a database");
    fs::remove(file());
    fs::create_directory(file());
    EXPECT_EQ(failureOf([&] { store(); }), "unable to open database file");
    fs::remove(file());
    fs::remove(file().parent_path());
    std::ofstream(file().parent_path()) << "in the way";
    EXPECT_THAT(failureOf([&] { store(); }, MeetingError::Kind::storage),
                ::testing::HasSubstr("Der Name ist schon vergeben."));
}

TEST_F(JobStoreTest, ReadsOnOrReportsAtEveryDamagedPage) {
    for (int i = 0; i < 50; ++i) store().enqueue(item("job " + std::to_string(i)));
    store_.reset();
    std::string intact;
    {
        std::ifstream in(file(), std::ios::binary);
        intact.assign(std::istreambuf_iterator<char>(in), {});
    }
    for (std::size_t offset = 0; offset < intact.size(); offset += 509) {
        auto damaged = intact;
        damaged.replace(offset, 64, std::string(std::min<std::size_t>(64, damaged.size() - offset), '\xA5'));
        std::ofstream(file(), std::ios::binary) << damaged;
        try {
            SQLiteJobStore other(file());
            other.recoverExpired(noon);
            for (int i = 0; i < 3; ++i) other.claimNext(noon, 1);
            other.restartSession(otherSession_);
            other.completedResults(session_);
        } catch (const MeetingError& error) {
            EXPECT_FALSE(error.message().empty());
        }
        fs::remove(file().string() + "-wal");
        fs::remove(file().string() + "-shm");
    }
}

TEST_F(JobStoreTest, TwoStoresShareOneFile) {
    SQLiteJobStore other(file());
    store().enqueue(item("a"));
    const auto lease = other.claimNext(noon, 60).value();
    EXPECT_EQ(store().claimNext(noon, 60), std::nullopt);
    store().renew(lease, noon.advanced(1), 60);
    other.finish(lease, R"({"ok":true})", noon.advanced(61));
    EXPECT_EQ(store().result("a"), R"({"ok":true})");
}

TEST_F(JobStoreTest, ThreadsOnOneStoreClaimEveryJobOnce) {
    constexpr int jobs = 60;
    for (int i = 0; i < jobs; ++i) store().enqueue(item(std::to_string(i)));
    std::atomic<int> claimed = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            while (const auto lease = store().claimNext(noon, 60)) {
                ++claimed;
                store().finish(*lease, json::encode(lease->item), noon);
                store().jobStats(session_);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(claimed, jobs);
    EXPECT_THAT(store().jobStats(), ElementsAre(Pair("completed", jobs)));
    EXPECT_EQ(valueOf("SELECT SUM(attempts) FROM jobs"), std::to_string(jobs));
}

TEST_F(JobStoreTest, ProcessesOnOneFileLoseAndDoubleNothing) {
    constexpr int processes = 8;
    constexpr int jobsOfEach = 25;
    Signal start;
    const auto work = [&](int number) {
        start.await();
        // Nobody has made the folder or the database yet: the processes race for that as well.
        SQLiteJobStore mine(file());
        for (int i = 0; i < jobsOfEach; ++i) {
            mine.enqueue(item(std::to_string(number) + "/" + std::to_string(i)));
            mine.enqueue(item("shared " + std::to_string(i)));
        }
        while (const auto lease = mine.claimNext(noon, 60)) {
            mine.finish(*lease, json::encode(lease->item), noon);
        }
        return 0;
    };
    std::vector<ForkedProcess> workers;
    for (int number = 0; number < processes; ++number)
        workers.emplace_back([&, number] { return work(number); });
    for (int number = 0; number < processes; ++number) start.send();
    for (auto& worker : workers) EXPECT_EQ(worker.wait(), 0);

    constexpr int jobs = (processes + 1) * jobsOfEach;
    EXPECT_THAT(store().jobStats(), ElementsAre(Pair("completed", jobs)));
    EXPECT_EQ(valueOf("SELECT SUM(attempts) FROM jobs"), std::to_string(jobs));
    EXPECT_EQ(valueOf("SELECT COUNT(*) FROM jobs WHERE json_extract(result,'$.id')=id"), std::to_string(jobs));
}

TEST_F(JobStoreTest, JobsOutliveAProcessThatIsKilled) {
    Signal ready;
    ForkedProcess worker([&] {
        SQLiteJobStore mine(file());
        mine.enqueue(item("a"));
        mine.claimNext(noon, 60);
        ready.send();
        ::pause();
        return 0;
    });
    ready.await();
    worker.kill();
    EXPECT_EQ(column("a", "status||attempts"), "running1");
    EXPECT_EQ(store().recoverExpired(noon.advanced(61)), 1);
    EXPECT_EQ(claim().attempt, 2);
}

}  // namespace
}  // namespace meetingcore
