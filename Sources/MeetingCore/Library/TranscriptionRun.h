#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Transcript/WorkerContracts.h"

namespace meetingcore {

/// Lets an engine recognise the windows of one meeting that are still open.
///
/// Several runs, also in other processes, share a meeting's windows: each claims what is pending, under leases
/// that it renews while the engine works. A run that was killed loses nothing but the windows it was at, which
/// count as open again when their leases have expired.
namespace TranscriptionRun {

struct Options {
    int jobs = 1;               ///< windows at a time
    int attempts = 3;           ///< failures in this run after which a window is set aside
    double leaseSeconds = 120;  ///< renewed every third of it
};

/// The meeting's windows, whoever worked on them.
struct Progress {
    std::int64_t total = 0;
    std::int64_t done = 0;
    std::int64_t failed = 0;
};

/// A window that this run has given up; its job is failed.
struct SetAside {
    AudioSource source = AudioSource::microphone;
    double startSeconds = 0;  ///< of the recording
    double endSeconds = 0;
    std::string message;
};

struct Report {
    std::int64_t transcribed = 0;    ///< by this run
    std::vector<SetAside> setAside;  ///< by track and start
    Progress progress;               ///< at the end; more failed than set aside failed earlier
    std::int64_t pending = 0;        ///< left open, because of a stop request
    std::int64_t elsewhere = 0;      ///< claimed by others at the end
};

/// Works until no window is open, or until the stop request: windows being recognised are then given back, so
/// that the next run can take them at once. A result whose lease was lost is dropped. A window that is no
/// window, since its job is damaged, is set aside at once, with the times that are known.
///
/// `onProgress` is called at the start and after every change, by several threads, one at a time.
///
/// Throws MeetingError where the meeting's audio was removed on purpose, where the engine says that it can
/// recognise nothing (notConfigured), where the database fails, and what `onProgress` throws; windows being
/// recognised are given back before.
Report run(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
           Transcribing& engine, const Options& options, const StopRequest& stop,
           const std::function<void(const Progress&)>& onProgress = {});

}  // namespace TranscriptionRun
}  // namespace meetingcore
