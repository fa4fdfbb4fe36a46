#include "MeetingCore/Library/TranscriptionRun.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <map>
#include <mutex>
#include <tuple>

#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::TranscriptionRun {

namespace {

class Work {
public:
    Work(const UUID& session, SQLiteJobStore& database, Transcribing& engine, const Options& options,
         const StopRequest& stop, const std::function<void(const Progress&)>& onProgress)
        : session_(session),
          database_(database),
          engine_(engine),
          options_(options),
          ending_(StopRequest::within(stop)),
          onProgress_(onProgress) {}

    Report run() {
        database_.recoverExpired(Date::now());
        reportProgress();
        std::vector<std::future<void>> threads;
        try {
            for (int i = 0; i < std::max(1, options_.jobs); ++i)
                threads.push_back(std::async(std::launch::async, [&] { workOff(); }));
        } catch (...) {
            ending_.request();  // or the threads that did start would be waited for to the end of all work
            throw;
        }
        for (auto& thread : threads) thread.wait();
        for (auto& thread : threads) thread.get();
        return finalReport();
    }

private:
    /// An error in one thread ends all of them.
    void workOff() {
        try {
            while (const auto lease = claim()) {
                work(*lease);
                reportProgress();
            }
        } catch (...) {
            ending_.request();
            throw;
        }
    }

    std::optional<JobLease> claim() {
        if (ending_.requested()) return std::nullopt;
        auto lease = database_.claimNext(session_, Date::now(), options_.leaseSeconds);
        // A lease may have expired since the start: of another process, or of our own while the computer slept.
        if (!lease && database_.recoverExpired(Date::now()) > 0)
            lease = database_.claimNext(session_, Date::now(), options_.leaseSeconds);
        return lease;
    }

    void work(const JobLease& lease) {
        TranscriptionWindow window;
        try {
            window = WorkScheduler::windowOf(lease.item);
        } catch (const MeetingError& error) {
            whileHeld([&] { setAside(lease, {{}, 0, 0, error.message()}); });
            return;
        }
        try {
            auto stop = StopRequest::within(ending_);
            auto future = engine_.transcribe(window, stop);
            if (awaitResult(future, lease, stop)) settle(future, lease, window);
        } catch (...) {
            giveBack(lease);
            throw;
        }
    }

    /// Renews the lease while the engine works. False where it was lost: somebody else may have the window by
    /// now, and what the engine still finds out is not wanted.
    bool awaitResult(std::future<SpeechResult>& future, const JobLease& lease, StopRequest& stop) {
        const std::chrono::duration<double> renewal(options_.leaseSeconds / 3);
        while (future.wait_for(renewal) == std::future_status::timeout) {
            if (renewed(lease)) continue;
            stop.request();
            future.wait();
            return false;
        }
        return true;
    }

    bool renewed(const JobLease& lease) noexcept {
        try {
            return whileHeld([&] { database_.renew(lease, Date::now(), options_.leaseSeconds); });
        } catch (const std::exception&) {
            return true;  // a database that is busy: the next renewal still comes in time
        }
    }

    void settle(std::future<SpeechResult>& future, const JobLease& lease, const TranscriptionWindow& window) {
        std::optional<std::string> result;
        SetAside failure{window.source, window.startSeconds(), window.endSeconds(), {}};
        try {
            const auto recognized = future.get();
            recognized.validate(window);
            result = json::encode(recognized);
        } catch (const MeetingError& error) {
            if (error.kind() == MeetingError::Kind::notConfigured) throw;
            failure.message = error.message();
        } catch (const std::exception& error) {
            failure.message = std::string("Unerwarteter Fehler: ") + error.what();
        }
        whileHeld([&] {
            if (result) {
                database_.finish(lease, *result, Date::now());
                const std::scoped_lock guard(lock_);
                ++report_.transcribed;
            } else if (ending_.requested()) {
                giveBack(lease);
            } else if (failedAgain(lease.item.id)) {
                setAside(lease, std::move(failure));
            } else {
                database_.release(lease, failure.message, Date::now());
            }
        });
    }

    /// Whether the window has had its last attempt.
    bool failedAgain(const std::string& id) {
        const std::scoped_lock guard(lock_);
        return ++failures_[id] >= options_.attempts;
    }

    void setAside(const JobLease& lease, SetAside window) {
        database_.fail(lease, window.message, Date::now());
        const std::scoped_lock guard(lock_);
        report_.setAside.push_back(std::move(window));
    }

    void giveBack(const JobLease& lease) noexcept {
        try {
            database_.release(lease, "Die Transkription wurde unterbrochen.", Date::now());
        } catch (const std::exception&) {  // then the window is open when the lease has expired
        }
    }

    /// Does what needs the lease; false, and nothing done, where that is lost.
    template <class Action>
    static bool whileHeld(const Action& action) {
        try {
            action();
            return true;
        } catch (const MeetingError& error) {
            if (error.cause() == MeetingError::Cause::leaseLost) return false;
            throw;
        }
    }

    Progress progress(std::map<std::string, std::int64_t>& counts) const {
        Progress progress{0, counts["completed"], counts["failed"]};
        for (const auto& [status, count] : counts) progress.total += count;
        return progress;
    }

    void reportProgress() {
        if (!onProgress_) return;
        const std::scoped_lock guard(lock_);
        auto counts = database_.jobStats(session_);
        onProgress_(progress(counts));
    }

    Report finalReport() {
        auto counts = database_.jobStats(session_);
        report_.progress = progress(counts);
        report_.pending = counts["pending"];
        report_.elsewhere = counts["running"];
        std::sort(report_.setAside.begin(), report_.setAside.end(), [](const SetAside& a, const SetAside& b) {
            return std::tie(a.source, a.startSeconds) < std::tie(b.source, b.startSeconds);
        });
        return std::move(report_);
    }

    const UUID& session_;
    SQLiteJobStore& database_;
    Transcribing& engine_;
    const Options& options_;
    StopRequest ending_;
    const std::function<void(const Progress&)>& onProgress_;
    std::mutex lock_;  // of all below, and of the progress reports
    std::map<std::string, int> failures_;
    Report report_;
};

}  // namespace

Report run(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
           Transcribing& engine, const Options& options, const StopRequest& stop,
           const std::function<void(const Progress&)>& onProgress) {
    if (AudioArchive::removed(session, root)) {
        throw MeetingError::invalidData("Das Audio dieses Meetings wurde bewusst entfernt.");
    }
    return Work(session, database, engine, options, stop, onProgress).run();
}

}  // namespace meetingcore::TranscriptionRun
