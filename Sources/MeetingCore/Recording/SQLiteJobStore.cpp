#include "MeetingCore/Recording/SQLiteJobStore.h"

#include <algorithm>
#include <cmath>

#include <sys/stat.h>
#include <unistd.h>

#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/NumberText.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/SQLiteConnection.h"

namespace meetingcore {

namespace {

constexpr const char* schema = R"(CREATE TABLE IF NOT EXISTS chunks (
  id TEXT PRIMARY KEY NOT NULL, payload TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS jobs (
  id TEXT PRIMARY KEY NOT NULL, session_id TEXT NOT NULL,
  kind TEXT NOT NULL, payload TEXT NOT NULL,
  status TEXT NOT NULL DEFAULT 'pending'
    CHECK(status IN ('pending','running','completed','failed')),
  attempts INTEGER NOT NULL DEFAULT 0,
  lease_token TEXT, lease_until REAL, result TEXT, last_error TEXT,
  created_at REAL NOT NULL
);
CREATE INDEX IF NOT EXISTS job_status_idx ON jobs(status, created_at);
CREATE TABLE IF NOT EXISTS result_history (
  revision INTEGER PRIMARY KEY AUTOINCREMENT, job_id TEXT NOT NULL,
  session_id TEXT NOT NULL, result TEXT NOT NULL, created_at REAL NOT NULL
);
CREATE INDEX IF NOT EXISTS history_job_idx ON result_history(job_id,revision);
PRAGMA user_version=2;)";

/// Sorting results must not spill what was said in a meeting into the system's folder for temporary files.
constexpr const char* keepInMemory = "PRAGMA temp_store=MEMORY;";

constexpr std::size_t maximumErrorCharacters = 2000;
/// The last error that retireAudio writes, by which its jobs are known again. It stands in that statement too,
/// which other programs have word for word.
constexpr std::string_view audioRemovedError = "Audio bewusst entfernt";
constexpr double longestLeaseSeconds = 86'400;

std::string seconds(Date date) { return number::plain(date.secondsSince1970()); }

std::string leaseEnd(Date now, double leaseSeconds) {
    return number::plain(now.secondsSince1970() + leaseSeconds);
}

bool isUsableLease(double leaseSeconds) { return std::isfinite(leaseSeconds) && leaseSeconds > 0; }

void requireLeaseHeld(std::int64_t changedRows) {
    if (changedRows == 1) return;
    throw MeetingError::database("Veraltete oder unbekannte Worker-Lease.", MeetingError::Cause::leaseLost);
}

void requireUsableLease(double leaseSeconds) {
    if (!isUsableLease(leaseSeconds)) throw MeetingError::invalidData("Die Lease-Dauer muss positiv sein.");
}

/// Takes the job that the query, which reads a pending job's id, session, kind, payload and attempts, finds
/// first.
std::optional<JobLease> claimFirst(SQLiteConnection& db, const char* query, SQLiteStatement::Values values,
                                   Date now, double leaseSeconds) {
    std::optional<JobLease> lease;
    db.transaction([&] {
        {
            auto row = db.prepare(query, values);
            if (!row.step()) return;
            const auto session = UUID::parse(row.text(1));
            if (!session) throw MeetingError::database("Ungültige Sitzung im Auftrag.");
            lease =
                JobLease{{row.text(0), *session, row.text(2), row.text(3)}, UUID::random(), row.integer(4) + 1};
        }
        const auto changed = db.update(
            "UPDATE jobs SET status='running',attempts=?,lease_token=?,lease_until=? WHERE id=? AND "
            "status='pending'",
            {std::to_string(lease->attempt), lease->token.string(), leaseEnd(now, leaseSeconds),
             lease->item.id});
        if (changed != 1) throw MeetingError::database("Auftrag wurde bereits übernommen.");
    });
    return lease;
}

JobStatus statusNamed(const std::string& word) {
    const auto& words = json::names<JobStatus>;
    const auto found = std::find(words.begin(), words.end(), word);
    if (found == words.end()) throw MeetingError::database("Unbekannter Auftragsstatus.");
    return static_cast<JobStatus>(found - words.begin());
}

/// Whether the store has all of its tables, so that who only reads has nothing to write.
bool isComplete(SQLiteConnection& db) {
    return db.textValue(
               "SELECT COUNT(*) FROM sqlite_master WHERE type='table' AND "
               "name IN ('chunks','jobs','result_history')",
               {}) == "3";
}

}  // namespace

SQLiteJobStore::SQLiteJobStore(const std::filesystem::path& file, FileManager& files)
    : parser_(std::make_unique<json::reading::Parser>()) {
    const auto folder = file.parent_path();
    createDirectories(files, folder);
    // SQLite gives its journal files the permissions that the database has when they appear. A file that exists
    // is not opened here: closing it would drop the locks that another connection of this process holds on it.
    FileDescriptor::open(file, O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    auto db = std::make_unique<SQLiteConnection>(file);
    db->executeRepeatable("PRAGMA journal_mode=WAL;");
    db->execute("PRAGMA synchronous=FULL;");
    db->execute("PRAGMA foreign_keys=ON;");
    db->execute(keepInMemory);
    db->executeRepeatable(schema);
    restrictToOwner(file);
    // SQLite goes on when its own flush of the folder fails, and the new database would be gone after a power
    // cut.
    files.flushDirectory(folder.empty() ? std::filesystem::path(".") : folder);
    db_ = std::move(db);
}

SQLiteJobStore::SQLiteJobStore(std::unique_ptr<SQLiteConnection> db)
    : db_(std::move(db)), parser_(std::make_unique<json::reading::Parser>()) {}

bool SQLiteJobStore::exists(const std::filesystem::path& file) {
    if (!pathExists(file)) return false;
    std::error_code undecided;
    const auto size = std::filesystem::file_size(file, undecided);
    return undecided || size > 0;
}

std::unique_ptr<SQLiteJobStore> SQLiteJobStore::forReading(const std::filesystem::path& file) {
    if (!exists(file)) {
        auto db = std::make_unique<SQLiteConnection>(":memory:");
        db->execute(schema);
        return std::unique_ptr<SQLiteJobStore>(new SQLiteJobStore(std::move(db)));
    }
    // Without a journal all of it is in the file. Otherwise SQLite would have to write to read.
    std::error_code none;
    const auto journalSize = std::filesystem::file_size(file.string() + "-wal", none);
    const bool hasJournal = !none && journalSize > 0;
    if (::access(file.c_str(), W_OK) == 0 && ::access(file.parent_path().c_str(), W_OK) == 0) {
        try {
            auto db = std::make_unique<SQLiteConnection>(file);
            db->execute(keepInMemory);
            if (!isComplete(*db)) return std::make_unique<SQLiteJobStore>(file);
            return std::unique_ptr<SQLiteJobStore>(new SQLiteJobStore(std::move(db)));
        } catch (const MeetingError& error) {  // a full disk, say
            if (hasJournal || error.cause() == MeetingError::Cause::databaseLocked) throw;
        }
    } else if (hasJournal) {
        throw MeetingError::storage(quotedName(file) +
                                    " ist schreibgeschützt und nicht abgeschlossen. Bitte den Ordner "
                                    "beschreibbar machen oder das Programm beenden, das ihn benutzt.");
    }
    return std::unique_ptr<SQLiteJobStore>(new SQLiteJobStore(SQLiteConnection::immutable(file)));
}

SQLiteJobStore::~SQLiteJobStore() = default;

void SQLiteJobStore::close() {
    const std::scoped_lock guard(lock_);
    db_.reset();
}

SQLiteConnection& SQLiteJobStore::open() {
    if (db_ == nullptr) throw MeetingError::database("SQLite ist geschlossen.");
    return *db_;
}

void SQLiteJobStore::registerChunk(const AudioChunk& chunk) {
    const std::scoped_lock guard(lock_);
    auto& db = open();
    db.transaction([&] {
        const auto id = chunk.id.string();
        if (const auto payload = db.textValue("SELECT payload FROM chunks WHERE id=?", {id})) {
            if (json::decode<AudioChunk>(*payload, "Ein registrierter Audioabschnitt") == chunk) return;
            throw MeetingError::database("Abschnitts-ID wurde mit anderen Metadaten wiederverwendet.");
        }
        db.update("INSERT INTO chunks(id,payload) VALUES(?,?)", {id, json::encode(chunk)});
    });
}

void SQLiteJobStore::enqueue(const WorkItem& item) {
    const std::scoped_lock guard(lock_);
    if (item.id.empty() || item.kind.empty() || !json::isValid(item.payloadJSON, *parser_)) {
        throw MeetingError::invalidData("Auftrag benötigt ID, Typ und gültige JSON-Eingabe.");
    }
    const auto session = item.sessionID.string();
    auto& db = open();
    db.transaction([&] {
        const auto payload = db.textValue("SELECT payload FROM jobs WHERE id=?", {item.id});
        if (!payload) {
            db.update("INSERT INTO jobs(id,session_id,kind,payload,created_at) VALUES(?,?,?,?,?)",
                      {item.id, session, item.kind, item.payloadJSON, seconds(Date::now())});
            return;
        }
        const bool same = *payload == item.payloadJSON &&
                          db.textValue("SELECT session_id FROM jobs WHERE id=?", {item.id}) == session &&
                          db.textValue("SELECT kind FROM jobs WHERE id=?", {item.id}) == item.kind;
        if (!same) throw MeetingError::database("Auftrags-ID existiert mit einem anderen Inhalt.");
    });
}

std::optional<JobLease> SQLiteJobStore::claimNext(Date now, double leaseSeconds) {
    const std::scoped_lock guard(lock_);
    requireUsableLease(leaseSeconds);
    return claimFirst(open(),
                      "SELECT id,session_id,kind,payload,attempts FROM jobs WHERE status='pending' "
                      "ORDER BY created_at,id LIMIT 1",
                      {}, now, leaseSeconds);
}

std::optional<JobLease> SQLiteJobStore::claimNext(const UUID& session, Date now, double leaseSeconds) {
    const std::scoped_lock guard(lock_);
    requireUsableLease(leaseSeconds);
    return claimFirst(open(),
                      "SELECT id,session_id,kind,payload,attempts FROM jobs WHERE status='pending' "
                      "AND session_id=? ORDER BY created_at,id LIMIT 1",
                      {session.string()}, now, leaseSeconds);
}

std::optional<JobLease> SQLiteJobStore::claim(const std::string& id, Date now, double leaseSeconds) {
    const std::scoped_lock guard(lock_);
    requireUsableLease(leaseSeconds);
    return claimFirst(open(),
                      "SELECT id,session_id,kind,payload,attempts FROM jobs WHERE status='pending' AND id=?",
                      {id}, now, leaseSeconds);
}

void SQLiteJobStore::finish(const JobLease& lease, const std::string& resultJSON, Date now) {
    const std::scoped_lock guard(lock_);
    if (!json::isValid(resultJSON))
        throw MeetingError::invalidData("Das Arbeitsergebnis ist kein gültiges JSON.");
    requireLeaseHeld(open().update(
        "UPDATE jobs SET status='completed',result=?,lease_token=NULL,lease_until=NULL,last_error=NULL "
        "WHERE id=? AND status='running' AND lease_token=? AND lease_until>=?",
        {resultJSON, lease.item.id, lease.token.string(), seconds(now)}));
}

void SQLiteJobStore::renew(const JobLease& lease, Date now, double leaseSeconds) {
    const std::scoped_lock guard(lock_);
    if (!isUsableLease(leaseSeconds)) throw MeetingError::invalidData("Ungültige Lease-Dauer.");
    requireLeaseHeld(open().update(
        "UPDATE jobs SET lease_until=? WHERE id=? AND status='running' AND lease_token=? AND lease_until>=?",
        {leaseEnd(now, leaseSeconds), lease.item.id, lease.token.string(), seconds(now)}));
}

void SQLiteJobStore::fail(const JobLease& lease, const std::string& message, Date now) {
    const std::scoped_lock guard(lock_);
    requireLeaseHeld(open().update(
        "UPDATE jobs SET status='failed',last_error=?,lease_token=NULL,lease_until=NULL "
        "WHERE id=? AND status='running' AND lease_token=? AND lease_until>=?",
        {text::prefix(message, maximumErrorCharacters), lease.item.id, lease.token.string(), seconds(now)}));
}

void SQLiteJobStore::release(const JobLease& lease, const std::string& reason, Date now) {
    const std::scoped_lock guard(lock_);
    requireLeaseHeld(open().update(
        "UPDATE jobs SET status='pending',last_error=?,lease_token=NULL,lease_until=NULL "
        "WHERE id=? AND status='running' AND lease_token=? AND lease_until>=?",
        {text::prefix(reason, maximumErrorCharacters), lease.item.id, lease.token.string(), seconds(now)}));
}

std::int64_t SQLiteJobStore::recoverExpired(Date now) {
    const std::scoped_lock guard(lock_);
    return open().update(
        "UPDATE jobs SET status='pending',lease_token=NULL,lease_until=NULL,last_error='Worker-Lease "
        "abgelaufen' "
        "WHERE status='running' AND lease_until<?",
        {seconds(now)});
}

void SQLiteJobStore::retryFailed(const std::string& id) {
    const std::scoped_lock guard(lock_);
    const auto changed =
        open().update("UPDATE jobs SET status='pending',last_error=NULL WHERE id=? AND status='failed'", {id});
    if (changed != 1) throw MeetingError::database("Kein fehlgeschlagener Auftrag mit dieser ID.");
}

void SQLiteJobStore::retrySession(const UUID& session) {
    const std::scoped_lock guard(lock_);
    open().update("UPDATE jobs SET status='pending',last_error=NULL WHERE session_id=? AND status='failed'",
                  {session.string()});
}

void SQLiteJobStore::restartSession(const UUID& session) {
    const std::scoped_lock guard(lock_);
    auto& db = open();
    const auto id = session.string();
    db.transaction([&] {
        if (db.textValue("SELECT COUNT(*) FROM jobs WHERE session_id=? AND status='running'", {id}) != "0") {
            throw MeetingError::database(
                "Ein Auftrag ist noch belegt. Bitte nach Ablauf der Sperre erneut versuchen.",
                MeetingError::Cause::jobBusy);
        }
        db.update(
            "INSERT INTO result_history(job_id,session_id,result,created_at) SELECT id,session_id,result,? "
            "FROM jobs "
            "WHERE session_id=? AND status='completed' AND result IS NOT NULL",
            {seconds(Date::now()), id});
        db.update(
            "UPDATE jobs SET status='pending',result=NULL,last_error=NULL,lease_token=NULL,lease_until=NULL "
            "WHERE session_id=?",
            {id});
    });
}

void SQLiteJobStore::restartCompleted(const std::string& id) {
    const std::scoped_lock guard(lock_);
    auto& db = open();
    db.transaction([&] {
        db.update(
            "INSERT INTO result_history(job_id,session_id,result,created_at) SELECT id,session_id,result,? "
            "FROM jobs WHERE id=? AND status='completed' AND result IS NOT NULL",
            {seconds(Date::now()), id});
        db.update("UPDATE jobs SET status='pending',result=NULL WHERE id=? AND status='completed'", {id});
    });
}

void SQLiteJobStore::retireAudio(const UUID& session) {
    const std::scoped_lock guard(lock_);
    auto& db = open();
    const auto id = session.string();
    db.transaction([&] {
        db.update(
            "UPDATE jobs SET status='failed',lease_token=NULL,lease_until=NULL,last_error='Audio bewusst "
            "entfernt' "
            "WHERE session_id=? AND status!='completed'",
            {id});
        db.update("DELETE FROM chunks WHERE json_extract(payload,'$.sessionID')=?", {id});
    });
}

void SQLiteJobStore::reopenAudio(const UUID& session) {
    const std::scoped_lock guard(lock_);
    open().update(
        "UPDATE jobs SET status='pending',last_error=NULL WHERE session_id=? AND status='failed' AND "
        "last_error=?",
        {session.string(), audioRemovedError});
}

std::vector<UUID> SQLiteJobStore::sessionsWithAudioWork() {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare(R"(SELECT json_extract(payload,'$.sessionID') FROM chunks
  UNION SELECT session_id FROM jobs WHERE status!='completed'
  AND NOT (status='failed' AND last_error IS ?))",
                              {audioRemovedError});
    std::vector<UUID> sessions;
    while (row.step()) {
        if (const auto session = UUID::parse(row.text(0))) sessions.push_back(*session);
    }
    return sessions;
}

void SQLiteJobStore::forgetSession(const UUID& session) {
    const std::scoped_lock guard(lock_);
    auto& db = open();
    const auto id = session.string();
    db.transaction([&] {
        db.update("DELETE FROM result_history WHERE session_id=?", {id});
        db.update("DELETE FROM jobs WHERE session_id=?", {id});
        db.update("DELETE FROM chunks WHERE json_extract(payload,'$.sessionID')=?", {id});
    });
}

std::map<std::string, std::int64_t> SQLiteJobStore::jobStats(const std::optional<UUID>& session) {
    const std::scoped_lock guard(lock_);
    auto& db = open();
    auto row = session ? db.prepare("SELECT status,COUNT(*) FROM jobs WHERE session_id=? GROUP BY status",
                                    {session->string()})
                       : db.prepare("SELECT status,COUNT(*) FROM jobs GROUP BY status", {});
    std::map<std::string, std::int64_t> counts;
    while (row.step()) counts[row.text(0)] = row.integer(1);
    return counts;
}

std::vector<JobState> SQLiteJobStore::jobs(const UUID& session) {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare(
        "SELECT id,kind,payload,status,attempts,lease_until,last_error FROM jobs WHERE session_id=? "
        "ORDER BY created_at,id",
        {session.string()});
    std::vector<JobState> states;
    while (row.step()) {
        JobState state{row.text(0), row.text(1), row.text(2), statusNamed(row.text(3)), row.integer(4), {}, {}};
        if (!row.isNull(5)) state.leaseUntil = Date::since1970(row.real(5));
        if (!row.isNull(6)) state.lastError = row.text(6);
        states.push_back(std::move(state));
    }
    return states;
}

std::optional<std::string> SQLiteJobStore::result(const std::string& id) {
    const std::scoped_lock guard(lock_);
    return open().textValue("SELECT result FROM jobs WHERE id=? AND status='completed'", {id});
}

std::vector<std::string> SQLiteJobStore::completedResults(const UUID& session) {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare(R"(SELECT COALESCE(CASE WHEN status='completed' THEN result END,
  (SELECT result FROM result_history h WHERE h.job_id=jobs.id ORDER BY revision DESC LIMIT 1))
  FROM jobs WHERE session_id=? AND kind='transcribe' AND
  (status='completed' OR EXISTS(SELECT 1 FROM result_history h WHERE h.job_id=jobs.id))
  ORDER BY created_at,id)",
                              {session.string()});
    std::vector<std::string> results;
    while (row.step()) {
        if (!row.isNull(0)) results.push_back(row.text(0));
    }
    return results;
}

namespace {

/// Without ORDER BY: SQLite would sort the texts along with the places, which took longer than reading them.
constexpr const char* selectResults = R"(SELECT COALESCE(CASE WHEN status='completed' THEN result END,
  (SELECT result FROM result_history h WHERE h.job_id=jobs.id ORDER BY revision DESC LIMIT 1)),
  created_at, id
  FROM jobs WHERE kind='transcribe' AND
  (status='completed' OR EXISTS(SELECT 1 FROM result_history h WHERE h.job_id=jobs.id)) AND )";

void useRows(SQLiteStatement row, const SQLiteJobStore::UseResult& use) {
    while (row.step()) {
        if (!row.isNull(0)) use(row.view(0), {row.real(1), row.text(2)});
    }
}

}  // namespace

void SQLiteJobStore::forEachCompletedResult(const UUID& session, const UseResult& use) {
    const auto query = std::string(selectResults) + "session_id=?";
    const std::scoped_lock guard(lock_);
    useRows(open().prepare(query.c_str(), {session.string()}), use);
}

void SQLiteJobStore::forEachCompletedResult(std::span<const std::string> ids, const UseResult& use) {
    const auto query = std::string(selectResults) + "id=?";
    const std::scoped_lock guard(lock_);
    for (const auto& id : ids) useRows(open().prepare(query.c_str(), {id}), use);
}

std::unordered_map<UUID, std::vector<std::string>> SQLiteJobStore::jobsWithResults() {
    const std::scoped_lock guard(lock_);
    // Of each job only what stands before its result, which may fill many pages.
    auto row = open().prepare(R"(SELECT session_id, id FROM jobs WHERE kind='transcribe' AND
  (status='completed' OR EXISTS(SELECT 1 FROM result_history h WHERE h.job_id=jobs.id)))",
                              {});
    std::unordered_map<UUID, std::vector<std::string>> ids;
    while (row.step()) {
        if (const auto session = UUID::parse(row.view(0))) ids[*session].push_back(row.text(1));
    }
    return ids;
}

std::unordered_map<UUID, std::map<std::string, std::int64_t>> SQLiteJobStore::jobStatsBySession() {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare("SELECT session_id,status,COUNT(*) FROM jobs GROUP BY session_id,status", {});
    std::unordered_map<UUID, std::map<std::string, std::int64_t>> stats;
    while (row.step()) {
        if (const auto session = UUID::parse(row.text(0))) stats[*session][row.text(1)] = row.integer(2);
    }
    return stats;
}

std::int64_t SQLiteJobStore::strayLeases(Date now) {
    const std::scoped_lock guard(lock_);
    auto row =
        open().prepare("SELECT COUNT(*) FROM jobs WHERE status='running' AND (lease_until<? OR lease_until>?)",
                       {seconds(now), seconds(now.advanced(longestLeaseSeconds))});
    return row.step() ? row.integer(0) : 0;
}

std::int64_t SQLiteJobStore::recoverStray(Date now) {
    const std::scoped_lock guard(lock_);
    return open().update(
        "UPDATE jobs SET status='pending',lease_token=NULL,lease_until=NULL,last_error='Worker-Lease "
        "abgelaufen' "
        "WHERE status='running' AND (lease_until<? OR lease_until>?)",
        {seconds(now), seconds(now.advanced(longestLeaseSeconds))});
}

std::vector<std::string> SQLiteJobStore::integrityProblems() {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare("PRAGMA integrity_check", {});
    std::vector<std::string> problems;
    while (row.step()) {
        if (const auto line = row.text(0); line != "ok") problems.push_back(line);
    }
    return problems;
}

std::int64_t SQLiteJobStore::jobCount() {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare("SELECT COUNT(*) FROM jobs", {});
    return row.step() ? row.integer(0) : 0;
}

std::int64_t SQLiteJobStore::registeredChunkCount() {
    const std::scoped_lock guard(lock_);
    auto row = open().prepare("SELECT COUNT(*) FROM chunks", {});
    return row.step() ? row.integer(0) : 0;
}

std::unordered_map<UUID, std::int64_t> SQLiteJobStore::registeredChunksBySession() {
    const std::scoped_lock guard(lock_);
    auto row =
        open().prepare("SELECT json_extract(payload,'$.sessionID'), COUNT(*) FROM chunks GROUP BY 1", {});
    std::unordered_map<UUID, std::int64_t> counts;
    while (row.step()) {
        if (const auto session = UUID::parse(row.view(0))) counts[*session] = row.integer(1);
    }
    return counts;
}

}  // namespace meetingcore
