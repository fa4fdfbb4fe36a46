#pragma once

#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Platform/StopRequest.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Terminal.h"

namespace meetingcore::quillmoot {

/// The command line asks for what there is not. Exit status 2.
class UsageError : public std::runtime_error {
    using runtime_error::runtime_error;
};

/// Takes the lock as soon as it is free, within two seconds: another command holds it for moments, the recorder
/// for hours. Throws MeetingError (storage) after that.
void takeLock(std::optional<WorkerLock>& lock, const std::filesystem::path& root, WorkerLock::Purpose purpose);

/// In the handler of the error: throws it again; that a job is under a lease, with the time that it still has.
[[noreturn]] void rethrowWithLease(const MeetingError& error, SQLiteJobStore& jobs, const UUID& meeting);

/// A data folder opened for reading. Its parts are read when they are first asked for.
class DataFolder {
public:
    /// Throws MeetingError (notConfigured) where the folder does not exist or is none of ours.
    explicit DataFolder(std::filesystem::path root);

    const std::filesystem::path& root() const { return root_; }

    /// As `MeetingLibrary::view` gives it.
    const LibrarySnapshot& library();

    /// The jobs to read. Creates nothing: a missing database counts as empty. Once `queue` was called, it is
    /// that.
    SQLiteJobStore& jobs();

    /// The jobs to work on, in a database that is created where it is missing. What `jobs` gave before stays
    /// usable.
    SQLiteJobStore& queue();

    /// Throws MeetingError (invalidData) unless exactly one meeting fits.
    const MeetingEntry& meeting(const std::string& reference);

    TranscriptDocument transcript(const UUID& meeting) {
        return TranscriptStorage::load(meeting, root_, jobs());
    }
    std::optional<SummaryArtifact> summary(const UUID& meeting) const;
    std::filesystem::path folderOf(const UUID& meeting) const { return layout::meetingFolder(root_, meeting); }

private:
    std::filesystem::path root_;
    std::optional<LibrarySnapshot> library_;
    std::unique_ptr<SQLiteJobStore> jobs_;   ///< perhaps in memory, or of a file that may not be written
    std::unique_ptr<SQLiteJobStore> queue_;  ///< once there is something to change
};

/// A library opened for changes: no other program may change it meanwhile.
class OpenLibrary {
public:
    /// Creates the folder where it is missing with what it is known by, and brings audio removals to an end
    /// that a crash interrupted, telling so in `notices`. Throws MeetingError: notConfigured where the folder
    /// is none of ours, storage where another program has the library.
    OpenLibrary(std::filesystem::path root, Terminal& notices);

    const std::filesystem::path& root() const { return root_; }
    MeetingLibrary& library() { return *library_; }
    SQLiteJobStore& jobs();
    const MeetingEntry& meeting(const std::string& reference) const;

    /// Changes one meeting's entry.
    void change(const UUID& meeting, const std::function<void(MeetingEntry&)>& body);

private:
    void endInterruptedRemovals(Terminal& notices);

    std::filesystem::path root_;
    std::optional<WorkerLock> lock_;
    std::optional<MeetingLibrary> library_;
    std::unique_ptr<SQLiteJobStore> jobs_;
};

/// What the commands share: the chosen data folder, the two output streams, and the command to run.
class Shell {
public:
    Shell();

    Terminal& out() { return out_; }
    Terminal& err() { return err_; }
    ProgressLine progress() { return {std::cerr, err_.style()}; }

    /// The data folder: the one of `--root`, else the remembered one.
    std::filesystem::path root() const;
    std::optional<std::filesystem::path>& rootOption() { return rootOption_; }
    DataFolder folder() const { return DataFolder(reachableRoot()); }

    /// Whether the folder of `--root` is created, which may be a mistyped one. The default one always is, the
    /// remembered one never.
    enum class Creation { ofDefault, ofAny };
    OpenLibrary openLibrary(Creation creation = Creation::ofDefault);

    /// Remembers a folder, which is created where it is missing. Throws MeetingError where it is none of ours.
    static void chooseFolder(const std::filesystem::path& folder);

    /// Chooses what runs once the command line is understood; returns the exit status.
    void select(std::function<int()> command) { selected_ = std::move(command); }
    const std::function<int()>& selected() const { return selected_; }

    /// One JSON value on one line.
    template <class T>
    void writeJSON(const T& value) {
        out_.raw(json::encode(value) + "\n");
    }

private:
    std::filesystem::path reachableRoot() const;

    std::optional<std::filesystem::path> rootOption_;
    Terminal out_;
    Terminal err_;
    std::function<int()> selected_;
};

/// Turns Ctrl-C and the other polite ends (SIGINT, SIGTERM, SIGHUP) into a stop request from now on, so that a
/// command ends between two steps. The request is the process's only one.
const StopRequest& stopOnInterrupt();

/// Exit statuses.
inline constexpr int done = 0;
inline constexpr int failed = 1;
inline constexpr int wrongUse = 2;

}  // namespace meetingcore::quillmoot
