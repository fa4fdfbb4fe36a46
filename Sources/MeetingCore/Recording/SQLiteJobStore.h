#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

class SQLiteConnection;
namespace json::reading {
class Parser;
}

/// A job as its creator describes it.
struct WorkItem {
    std::string id;
    UUID sessionID;
    std::string kind;  ///< the store itself knows only "transcribe"
    std::string payloadJSON;

    bool operator==(const WorkItem&) const = default;
};

template <>
inline constexpr auto json::fields<WorkItem> = json::record(json::field("id", &WorkItem::id),
                                                            json::field("sessionID", &WorkItem::sessionID),
                                                            json::field("kind", &WorkItem::kind),
                                                            json::field("payloadJSON", &WorkItem::payloadJSON));

enum class JobStatus { pending, running, completed, failed };

template <>
inline constexpr auto json::names<JobStatus> = std::to_array<std::string_view>({"pending", "running",
                                                                                "completed", "failed"});

/// Where a job stands.
struct JobState {
    std::string id;
    std::string kind;
    std::string payloadJSON;
    JobStatus status = JobStatus::pending;
    std::int64_t attempts = 0;             ///< claims so far
    std::optional<Date> leaseUntil;        ///< while it is running
    std::optional<std::string> lastError;  ///< why it failed, or was taken from its worker

    bool operator==(const JobState&) const = default;
};

/// A worker's right to one job until the lease ends.
struct JobLease {
    WorkItem item;
    UUID token;                ///< fresh for every claim
    std::int64_t attempt = 0;  ///< counts from 1, this claim included
};

/// The durable work queue of a meeting library, one SQLite file: registered chunks, jobs under leases, and
/// earlier results.
///
/// Every operation is synchronous and atomic; when it returns, its effect is on stable storage (WAL journal,
/// synchronous=FULL). One lock serialises the operations of an object, immediate transactions and a busy
/// timeout of 5 s those of several processes on one file. Failures are MeetingError: `invalidData` for bad
/// arguments, `storage` where the file system keeps a store from being opened, else `database`, with SQLite's
/// own message where the store has none. Times come from the caller, but for the moment at which a job is added
/// or a result is archived.
class SQLiteJobStore {
public:
    /// Opens or creates the database with its folder, readable by the owner alone. Its name is durable on
    /// return.
    explicit SQLiteJobStore(const std::filesystem::path& file, FileManager& files = FileManager::system());

    /// Whether there is a database: a file with content, as an empty one is what is left of one. Where that
    /// cannot be told it is taken for there, so that opening it reports the error.
    static bool exists(const std::filesystem::path& file);

    /// For reading alone, which creates nothing and leaves the file as it is: a missing database is an empty
    /// one in memory, and one that may not be written is read as it stands. Only one without its tables gets
    /// them.
    static std::unique_ptr<SQLiteJobStore> forReading(const std::filesystem::path& file);

    ~SQLiteJobStore();
    SQLiteJobStore(const SQLiteJobStore&) = delete;
    SQLiteJobStore& operator=(const SQLiteJobStore&) = delete;

    /// Registers a committed chunk. The same chunk again is no error, the same id with other metadata is.
    void registerChunk(const AudioChunk& chunk);

    /// Adds a pending job. The same job again is no error, the same id with another content is.
    void enqueue(const WorkItem& item);

    /// Takes the oldest pending job, ties broken by id; nothing where none is pending. Expired leases are left
    /// alone.
    std::optional<JobLease> claimNext(Date now, double leaseSeconds);

    /// The same among the jobs of one session.
    std::optional<JobLease> claimNext(const UUID& session, Date now, double leaseSeconds);

    /// The same for one job: nothing where it is not pending.
    std::optional<JobLease> claim(const std::string& id, Date now, double leaseSeconds);

    /// Completes a leased job with its result, which must be JSON: of a "transcribe" job a SpeechResult that
    /// SpeechResult::validate has accepted, or the meeting's transcript becomes unreadable. This and the three
    /// below throw with the cause `leaseLost` where the lease has expired or is not the job's own.
    void finish(const JobLease& lease, const std::string& resultJSON, Date now);

    /// Lets the lease end `leaseSeconds` after now. A lease that has expired cannot be renewed.
    void renew(const JobLease& lease, Date now, double leaseSeconds);

    /// Ends a leased job as failed with the first 2000 characters of the message.
    void fail(const JobLease& lease, const std::string& message, Date now);

    /// Gives a leased job back unfinished: pending again at once, its attempt counted, with the first 2000
    /// characters of the reason as its last error.
    void release(const JobLease& lease, const std::string& reason, Date now);

    /// Makes jobs whose lease ended before now pending again; returns their number.
    std::int64_t recoverExpired(Date now);

    void retryFailed(const std::string& id);
    void retrySession(const UUID& session);

    /// Archives the session's results and makes all its jobs pending. Refused (jobBusy) while one of them is
    /// running.
    void restartSession(const UUID& session);

    /// Archives the result of one completed job and makes it pending; a job in another state stays as it is.
    void restartCompleted(const std::string& id);

    /// Fails the session's unfinished jobs and forgets its chunks, since their audio was removed on purpose.
    void retireAudio(const UUID& session);

    /// Makes pending again what retireAudio has failed, since the audio is back.
    void reopenAudio(const UUID& session);

    /// The sessions for which retireAudio would change something: those with registered chunks, and those with
    /// unfinished jobs that it has not failed.
    std::vector<UUID> sessionsWithAudioWork();

    /// Deletes the session's jobs, results and chunks.
    void forgetSession(const UUID& session);

    /// Number of jobs by status word ("pending", "running", "completed", "failed"), for one session or all.
    std::map<std::string, std::int64_t> jobStats(const std::optional<UUID>& session = std::nullopt);

    /// The same for every session that has jobs.
    std::unordered_map<UUID, std::map<std::string, std::int64_t>> jobStatsBySession();

    /// The session's jobs, oldest first.
    std::vector<JobState> jobs(const UUID& session);

    /// The result of a completed job.
    std::optional<std::string> result(const std::string& id);

    /// For each transcription job of the session, oldest first: its result, else the last archived one.
    std::vector<std::string> completedResults(const UUID& session);

    /// Where a job stands among those of its session: oldest first, and by id where they are as old.
    struct Place {
        double createdAt;  ///< seconds since 1970
        std::string id;

        auto operator<=>(const Place&) const = default;  // NOLINT(modernize-use-nullptr): misled by "< 0"
    };

    /// Hands the same results to `use` one by one, in no certain order and without a copy: each lies where it
    /// is only until `use` returns. The store is locked meanwhile, so that `use` must not call it; what `use`
    /// throws ends the reading.
    using UseResult = std::function<void(std::string_view, Place)>;
    void forEachCompletedResult(const UUID& session, const UseResult& use);

    /// The same for jobs known by their ids, whatever their session; those without a result are passed over.
    void forEachCompletedResult(std::span<const std::string> ids, const UseResult& use);

    /// The ids of the jobs whose results that would be, for all sessions in one pass over the queue, which has
    /// no index by session. In no certain order.
    std::unordered_map<UUID, std::vector<std::string>> jobsWithResults();

    /// How many jobs are running under a lease that nobody will end: it ended before now, or ends more than a
    /// day from now, which no worker asks for, so that its clock was ahead.
    std::int64_t strayLeases(Date now);

    /// Makes these jobs pending again. Returns their number.
    std::int64_t recoverStray(Date now);

    /// What SQLite's own check of the whole file finds; empty where it is sound. Reads all of it.
    std::vector<std::string> integrityProblems();

    std::int64_t jobCount();
    std::int64_t registeredChunkCount();

    /// How many chunks were registered for each session that has some.
    std::unordered_map<UUID, std::int64_t> registeredChunksBySession();

    /// Closes the database early; every later operation fails.
    void close();

private:
    explicit SQLiteJobStore(std::unique_ptr<SQLiteConnection> db);
    SQLiteConnection& open();

    std::mutex lock_;
    std::unique_ptr<SQLiteConnection> db_;
    std::unique_ptr<json::reading::Parser> parser_;  ///< checks the jobs' inputs, most of them known ones
};

}  // namespace meetingcore
