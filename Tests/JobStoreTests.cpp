#include <cmath>
#include <thread>

#include <sys/stat.h>

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Recording/SQLiteConnection.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "Support/ForkedProcess.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

const std::string staleLease = "Veraltete oder unbekannte Worker-Lease.";
const std::string busy = "Ein Auftrag ist noch belegt. Bitte nach Ablauf der Sperre erneut versuchen.";
const Date noon = Date::since1970(1'700'000'000.5);

std::string refusalOf(const std::function<void()>& call) { return failureOf(call, Kind::database); }

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
    void enqueue(const std::string& ids) {
        for (const auto& id : split(ids)) store().enqueue(item(id));
    }
    JobLease claim() { return store().claimNext(noon, 60).value(); }
    void finishNext(const std::string& result) { store().finish(claim(), result, noon); }

    /// The row's column as text, "NULL" for NULL, through a connection of its own.
    std::string column(const std::string& id, const std::string& name) const {
        return valueOf("SELECT coalesce(" + name + ",'NULL') FROM jobs WHERE id='" + id + "'");
    }
    std::string valueOf(const std::string& sql) const {
        return SQLiteConnection(file()).textValue(sql.c_str(), {}).value_or("no row");
    }
    void execute(const std::string& sql) const { SQLiteConnection(file()).execute(sql.c_str()); }

    /// Every one of so many jobs was claimed once, and finished with a result of its own.
    void expectEachDoneOnce(int jobs) {
        EXPECT_THAT(store().jobStats(), ElementsAre(Pair("completed", jobs)));
        EXPECT_EQ(valueOf("SELECT SUM(attempts) FROM jobs WHERE json_extract(result,'$.id')=id"),
                  std::to_string(jobs));
    }

    TemporaryFolder folder_;
    UUID session_ = UUID::random(), otherSession_ = UUID::random();
    std::unique_ptr<SQLiteJobStore> store_;
};

TEST_F(JobStoreTest, CreatesItsTablesAsTheyAreDocumented) {
    store();
    const auto tables = valueOf(
        "SELECT group_concat(sql,'|') FROM sqlite_master WHERE sql IS NOT NULL AND name<>"
        "'sqlite_sequence'");
    EXPECT_EQ(SHA256::hex(tables), "84f58dd164bff6a2b464f8b00f6bfbb6e9026de767d557df14056c0af824a37f")
        << tables;
    EXPECT_EQ(valueOf("PRAGMA user_version") + valueOf("PRAGMA journal_mode"), "2wal");
}

TEST_F(JobStoreTest, KeepsItsFilesToTheOwner) {
    const auto before = ::umask(0);
    enqueue("a");
    ::umask(before);
    const auto permissions = [&](const char* suffix) {
        return fs::status(file().string() + suffix).permissions();
    };
    for (const auto* suffix : {"", "-wal", "-shm"}) EXPECT_EQ(permissions(suffix), fs::perms(0600)) << suffix;
    EXPECT_EQ(fs::status(file().parent_path()).permissions(), fs::perms(0700));
    store_.reset();
    fs::permissions(file(), fs::perms(0644));
    store();
    EXPECT_EQ(permissions(""), fs::perms(0600));
}

TEST_F(JobStoreTest, IsReadBesideAWriterAndWithoutAChange) {
    enqueue("job");
    store().close();
    const auto before = contentOf(file());
    EXPECT_EQ(SQLiteJobStore::forReading(file())->jobCount(), 1);
    EXPECT_EQ(contentOf(file()), before);
    SQLiteConnection writer(file());
    writer.execute("BEGIN IMMEDIATE; DELETE FROM jobs");
    EXPECT_EQ(SQLiteJobStore::forReading(file())->jobCount(), 1) << "without waiting for the end";
    writer.execute("ROLLBACK; DROP TABLE chunks");
    EXPECT_EQ(SQLiteJobStore::forReading(file())->registeredChunkCount(), 0) << "as in a new store";
    EXPECT_EQ(SQLiteJobStore::forReading(folder_.path() / "keine.sqlite")->jobCount(), 0);
    EXPECT_FALSE(fs::exists(folder_.path() / "keine.sqlite"));
}

TEST_F(JobStoreTest, StoresAnIdenticalJobOnceWithItsNumbersAsNumbers) {
    enqueue("a");
    const auto lease = claim();
    EXPECT_EQ(lease.item, item("a"));
    EXPECT_EQ(column("a", "typeof(lease_until)||typeof(created_at)||typeof(attempts)"), "realrealinteger");
    EXPECT_EQ(column("a", "session_id||lease_token||lease_until||attempts"),
              session_.string() + lease.token.string() + "1700000060.51");
    EXPECT_EQ(column("a", "abs(created_at-strftime('%s','now'))<100"), "1");
    enqueue("a");
    EXPECT_EQ(column("a", "status"), "running");
    auto payload = item("a"), session = item("a");
    payload.payloadJSON = R"({"window": 1})";
    session.sessionID = otherSession_;
    for (const auto& other : {payload, session, item("a", "diarize")})
        EXPECT_EQ(refusalOf([&] { store().enqueue(other); }),
                  "Auftrags-ID existiert mit einem anderen Inhalt.");
    EXPECT_EQ(store().jobCount(), 1);
}

TEST_F(JobStoreTest, RefusesWhatItCannotStore) {
    auto noJSON = item("a"), empty = item("a"), fragment = item("a");
    noJSON.payloadJSON = "{]";
    empty.payloadJSON = "";
    fragment.payloadJSON = " null ";
    const std::string message = "Auftrag benötigt ID, Typ und gültige JSON-Eingabe.";
    const std::string tooShort = "Die Lease-Dauer muss positiv sein.";
    for (const auto& bad : {item(""), item("a", ""), noJSON, empty})
        EXPECT_EQ(failureOf([&] { store().enqueue(bad); }), message);
    store().enqueue(fragment);
    const JobLease unknown{fragment, UUID::random(), 1};
    for (const double seconds : {0.0, -1.0, HUGE_VAL, std::nan("")}) {
        EXPECT_EQ(failureOf([&] { store().claimNext(noon, seconds); }), tooShort);
        EXPECT_EQ(failureOf([&] { store().claimNext(session_, noon, seconds); }), tooShort);
        EXPECT_EQ(failureOf([&] { store().claim("a", noon, seconds); }), tooShort);
        EXPECT_EQ(failureOf([&] { store().renew(unknown, noon, seconds); }), "Ungültige Lease-Dauer.");
    }
    EXPECT_EQ(failureOf([&] { finishNext(R"({"a":})"); }), "Das Arbeitsergebnis ist kein gültiges JSON.");
    EXPECT_EQ(column("a", "status"), "running");
}

TEST_F(JobStoreTest, ClaimsTheOldestJobBreaksTiesByIdAndLeavesAJobOfNoSession) {
    enqueue("b|d|c|a|old");
    store().enqueue({"0-foreign", otherSession_, "transcribe", "{}"});
    execute("UPDATE jobs SET created_at=CASE id WHEN 'old' THEN 9.5 ELSE 10 END");
    EXPECT_EQ(store().claimNext(noon, 1)->item.id, "old");
    EXPECT_EQ(store().claimNext(session_, noon, 1)->item.id, "a");
    const auto lease = store().claim("c", noon, 1).value();
    EXPECT_EQ(lease.item, item("c"));
    EXPECT_EQ(column("c", "status||attempts||lease_until||lease_token"),
              "running11700000001.5" + lease.token.string());
    EXPECT_EQ(store().claim("c", noon.advanced(9), 1), std::nullopt);  // expired, but not recovered
    EXPECT_EQ(store().claim("unknown", noon, 1), std::nullopt);
    EXPECT_EQ(store().claimNext(session_, noon, 1)->item.id, "b");
    for (const auto* const id : {"0-foreign", "d"}) EXPECT_EQ(claim().item.id, id);
    EXPECT_EQ(store().claimNext(session_, noon, 1), std::nullopt);
    enqueue("e");
    execute("UPDATE jobs SET session_id='keine'");
    EXPECT_EQ(refusalOf([&] { claim(); }), "Ungültige Sitzung im Auftrag.");
    EXPECT_EQ(column("e", "status||attempts"), "pending0");
    enqueue("f");  // the failed transaction is over
}

TEST_F(JobStoreTest, TellsWhereJobsStandAndRestartsOnlyWhatIsCompleted) {
    enqueue("a|b|c|d");
    store().finish(*store().claim("a", noon, 60), "{}", noon);
    store().claim("b", noon, 60);
    store().fail(*store().claim("c", noon, 60), "kaputt", noon);
    for (const auto& id : split("a|b|c|d")) store().restartCompleted(id);
    const auto state = [](const std::string& id, JobStatus status, std::int64_t attempts) {
        return JobState{id, "transcribe", R"({"window":1})", status, attempts, {}, {}};
    };
    auto running = state("b", JobStatus::running, 1), failed = state("c", JobStatus::failed, 1);
    running.leaseUntil = noon.advanced(60);
    failed.lastError = "kaputt";
    EXPECT_THAT(store().jobs(session_), ElementsAre(state("a", JobStatus::pending, 1), running, failed,
                                                    state("d", JobStatus::pending, 0)));
    EXPECT_EQ(store().result("a"), std::nullopt);
    EXPECT_THAT(store().completedResults(session_), ElementsAre("{}"));  // shown until the new one arrives
    EXPECT_THAT(store().jobs(otherSession_), IsEmpty());
}

TEST_F(JobStoreTest, LeaseEndsJustAfterItsLastInstant) {
    const auto end = noon.advanced(60);
    const auto after = Date::since1970(std::nextafter(end.secondsSince1970(), 1e300));
    enqueue("fail|finish|renew");
    std::map<std::string, JobLease> leases;
    while (const auto lease = store().claimNext(noon, 60)) leases.emplace(lease->item.id, *lease);
    const auto expectStale = [&](const JobLease& lease, Date at) {
        EXPECT_EQ(refusalOf([&] { store().finish(lease, "{}", at); }), staleLease);
        EXPECT_EQ(refusalOf([&] { store().fail(lease, "x", at); }), staleLease);
        EXPECT_EQ(refusalOf([&] { store().renew(lease, at, 60); }), staleLease);
        EXPECT_EQ(refusalOf([&] { store().release(lease, "x", at); }), staleLease);
    };
    expectStale(leases.at("renew"), after);
    expectStale({item("renew"), UUID::random(), 1}, noon);
    EXPECT_EQ(store().recoverExpired(end), 0);
    store().finish(leases.at("finish"), "{}", end);
    store().fail(leases.at("fail"), "kaputt", end);
    store().renew(leases.at("renew"), end, 60);
    EXPECT_EQ(column("renew", "lease_until"), "1700000120.5");
    EXPECT_EQ(store().recoverExpired(after), 0);
    EXPECT_EQ(store().recoverExpired(end.advanced(60.25)), 1);
    EXPECT_EQ(column("renew", "status||attempts||last_error"), "pending1Worker-Lease abgelaufen");
    EXPECT_EQ(claim().attempt, 2);
    expectStale(leases.at("renew"), noon);
    // The clock was ahead by two days when that was claimed.
    EXPECT_EQ(store().strayLeases(noon), 0);
    const auto corrected = noon.advanced(-172'800);
    EXPECT_EQ(store().strayLeases(corrected), 1);
    EXPECT_EQ(store().recoverExpired(corrected), 0);
    EXPECT_EQ(store().recoverStray(corrected), 1);
    EXPECT_EQ(store().strayLeases(corrected), 0);
}

TEST_F(JobStoreTest, EveryEventMovesAJobOnlyWhereItMay) {
    struct Event {
        std::string name;
        std::function<void(const JobLease&)> apply;
        std::string after;    ///< the state's first letter, by the state before; - where the row is gone
        std::string failure;  ///< where the state stays as it is
    };
    const std::string none = "Kein fehlgeschlagener Auftrag mit dieser ID.";
    // clang-format off
    const Event events[] = {  // of a job that is pending, running, completed, failed
        {"finish",    [&](auto& l) { store().finish(l, "1", noon); },             "pccf", staleLease},
        {"fail",      [&](auto& l) { store().fail(l, "x", noon); },               "pfcf", staleLease},
        {"release",   [&](auto& l) { store().release(l, "x", noon); },            "ppcf", staleLease},
        {"renew",     [&](auto& l) { store().renew(l, noon, 9); },                "prcf", staleLease},
        {"recover",   [&](auto&) { store().recoverExpired(noon.advanced(999)); }, "ppcf", noFailure},
        {"retry",     [&](auto& l) { store().retryFailed(l.item.id); },           "prcp", none},
        {"retry all", [&](auto&) { store().retrySession(session_); },             "prcp", noFailure},
        {"restart",   [&](auto&) { store().restartSession(session_); },           "prpp", busy},
        {"retire",    [&](auto&) { store().retireAudio(session_); },              "ffcf", noFailure},
        {"forget",    [&](auto&) { store().forgetSession(session_); },            "----", noFailure}};
    // clang-format on
    const std::string row = "status||attempts||ifnull(lease_token,'')||ifnull(result,'')";
    const std::string states = "prcf";
    for (const auto& [name, apply, after, expectedFailure] : events) {
        for (std::size_t i = 0; i < states.size(); ++i) {
            const auto id = name + " while " + states[i];
            enqueue(id);
            auto lease = i == 0 ? JobLease{item(id), UUID::random(), 0} : claim();
            if (i == 2) store().finish(lease, "{}", noon);
            if (i == 3) store().fail(lease, "kaputt", noon);
            const auto before = column(id, row);
            const auto failure = refusalOf([&, &event = apply] { event(lease); });
            EXPECT_EQ(column(id, "status").substr(0, 1), after[i] == '-' ? "n" : after.substr(i, 1)) << id;
            if (failure != noFailure) {
                EXPECT_EQ(failure, expectedFailure) << id;
                EXPECT_EQ(column(id, row), before) << id;
            }
            const auto leftOver = "status<>'running' AND coalesce(lease_token,lease_until) IS NOT NULL";
            EXPECT_NE(column(id, leftOver), "1") << id;
            EXPECT_NE(column(id, "status='pending' AND result IS NOT NULL"), "1") << id;
            if (name == "release" && i == 1) {
                EXPECT_EQ(column(id, "last_error||attempts"), "x1");
            }
            if (name == "retire" && i != 2) {
                EXPECT_EQ(column(id, "last_error"), "Audio bewusst entfernt");
            }
            store().forgetSession(session_);
        }
    }
    EXPECT_EQ(refusalOf([&] { store().retryFailed("unbekannt"); }), none);
}

TEST_F(JobStoreTest, KeepsOldResultsReadableAfterARestart) {
    enqueue("a|b|c");
    store().enqueue(item("d", "diarize"));
    execute("UPDATE jobs SET created_at=unicode(id)");
    for (const auto* result : {R"("a1")", R"("b1")"}) finishNext(result);
    const auto message = repeated("e\u0301", 5000);
    store().fail(claim(), message, noon);
    EXPECT_EQ(column("c", "last_error"), message.substr(0, message.size() / 5 * 2)) << "2000 characters";
    finishNext(R"("d1")");
    EXPECT_THAT(store().completedResults(otherSession_), IsEmpty());
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(store().completedResults(session_), ElementsAre(R"("a1")", R"("b1")"));
        if (i == 0) store().restartSession(session_);
    }
    EXPECT_THAT(store().jobStats(), ElementsAre(Pair("pending", 4)));
    EXPECT_EQ(store().result("a"), std::nullopt);
    const auto again = claim();
    EXPECT_EQ(refusalOf([&] { store().restartSession(session_); }), busy);
    store().restartSession(otherSession_);
    EXPECT_EQ(valueOf("SELECT COUNT(*) FROM result_history"), "3");
    store().finish(again, R"("a2")", noon);
    EXPECT_EQ(store().result("a"), R"("a2")");
    store().restartSession(session_);
    EXPECT_THAT(store().completedResults(session_), ElementsAre(R"("a2")", R"("b1")"));
}

TEST_F(JobStoreTest, RegistersAChunkOnceAndRefusesOtherMetadata) {
    const auto chunk = testChunk(session_, 0, 0.1, 960'000);
    for (int i = 0; i < 2; ++i) store().registerChunk(chunk);
    EXPECT_EQ(valueOf("SELECT payload FROM chunks WHERE id='" + chunk.id.string() + "'"), json::encode(chunk));
    AudioChunk others[] = {chunk, chunk, chunk, chunk};
    others[0].sessionID = otherSession_;
    others[1].startSeconds = 0.2;
    others[2].sampleCount = 1;
    others[3].source = AudioSource::meeting;
    for (const auto& other : others)
        EXPECT_EQ(refusalOf([&] { store().registerChunk(other); }),
                  "Abschnitts-ID wurde mit anderen Metadaten wiederverwendet.");
    EXPECT_EQ(store().registeredChunkCount(), 1);
}

TEST_F(JobStoreTest, RetiresAndForgetsOneSessionOnly) {
    for (const auto& id : {session_, session_, otherSession_}) store().registerChunk(testChunk(id, 0, 0, 9));
    enqueue("done");
    finishNext("1");
    store().restartSession(session_);
    finishNext("2");
    enqueue("waiting");
    store().enqueue({"foreign", otherSession_, "transcribe", "{}"});
    store().retireAudio(session_);
    EXPECT_EQ(store().registeredChunkCount(), 1);
    EXPECT_THAT(store().jobStats(session_), UnorderedElementsAre(Pair("completed", 1), Pair("failed", 1)));
    store().forgetSession(session_);
    EXPECT_THAT(store().jobStats(), ElementsAre(Pair("pending", 1)));
    EXPECT_EQ(valueOf("SELECT COUNT(*) FROM result_history"), "0");
    store().forgetSession(otherSession_);
    EXPECT_EQ(store().registeredChunkCount(), 0);
}

TEST_F(JobStoreTest, ReportsAClosedStoreAfterBadArguments) {
    store().close();
    const JobLease lease{item("a"), UUID::random(), 1};
    const std::function<void()> operations[] = {[&] { store().registerChunk({}); },
                                                [&] { store().finish(lease, "{}", noon); },
                                                [&] { store().completedResults(session_); }};
    for (const auto& operation : operations) EXPECT_EQ(refusalOf(operation), "SQLite ist geschlossen.");
    EXPECT_THAT(failureOf([&] { store().enqueue(item("")); }), StartsWith("Auftrag "));
    EXPECT_THAT(failureOf([&] { store().finish(lease, "", noon); }), StartsWith("Das Arbeitsergebnis"));
}

TEST_F(JobStoreTest, ReadsOnOrReportsAtEveryDamagedPage) {
    for (int i = 0; i < 50; ++i) enqueue("job " + std::to_string(i));
    store_.reset();
    const auto intact = contentOf(file());
    for (std::size_t offset = 0; offset + 64 <= intact.size(); offset += 509) {
        writeFile(file(), std::string(intact).replace(offset, 64, 64, '\xA5'));
        messageOf([&] {  // nothing worse than a MeetingError
            SQLiteJobStore other(file());
            other.recoverExpired(noon);
            for (int i = 0; i < 3; ++i) other.claimNext(noon, 1);
            other.restartSession(otherSession_);
            other.completedResults(session_);
        });
        for (const auto* suffix : {"-wal", "-shm"}) fs::remove(file().string() + suffix);
    }
}

TEST_F(JobStoreTest, ThreadsOnTwoStoresClaimEveryJobOnce) {
    constexpr int jobs = 60;
    SQLiteJobStore second(file());
    for (int i = 0; i < jobs; ++i) enqueue(std::to_string(i));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, &mine = t == 0 ? second : store()] {
            while (const auto lease = mine.claimNext(noon, 60)) {
                mine.finish(*lease, json::encode(lease->item), noon);
                mine.jobStats(session_);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    expectEachDoneOnce(jobs);
}

TEST_F(JobStoreTest, ProcessesOnOneFileLoseAndDoubleNothing) {
    constexpr int processes = 8;
    constexpr int jobsOfEach = 25;
    Signal start;
    std::vector<ForkedProcess> workers;
    for (int number = 0; number < processes; ++number) {
        workers.emplace_back([&, number] {
            start.await();
            // Nobody has made the folder or the database yet: the processes race for that as well.
            for (int i = 0; i < jobsOfEach; ++i)
                enqueue(std::to_string(number) + "/" + std::to_string(i) + "|shared " + std::to_string(i));
            while (const auto lease = store().claimNext(noon, 60))
                store().finish(*lease, json::encode(lease->item), noon);
            return 0;
        });
    }
    for (int number = 0; number < processes; ++number) start.send();
    for (auto& worker : workers) EXPECT_EQ(worker.wait(), 0);
    expectEachDoneOnce((processes + 1) * jobsOfEach);
}

}  // namespace
}  // namespace meetingcore::testing
