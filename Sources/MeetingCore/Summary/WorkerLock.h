#pragma once

#include <filesystem>

#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

/// An advisory lock on a file in the data folder that keeps two processes from the same kind of work on one
/// library. It belongs to the operating system's open file (flock), so it ends with its holder, also by a
/// crash; the file itself stays in place.
class WorkerLock {
public:
    enum class Purpose {
        inference,    ///< one run of a local model at a time, "inference.lock"
        application,  ///< one application per library, "application.lock"
    };

    /// Takes the lock without waiting. Throws MeetingError (storage) where another open file holds it
    /// (`lockTaken`), or where the lock file cannot be opened (`lockFileUnavailable`). `root` is the data
    /// folder and must exist.
    WorkerLock(const std::filesystem::path& root, Purpose purpose);
    ~WorkerLock();

    /// Whether an open file holds the lock at this moment. Creates nothing; false where that cannot be told.
    static bool isTaken(const std::filesystem::path& root, Purpose purpose);

    WorkerLock(const WorkerLock&) = delete;
    WorkerLock& operator=(const WorkerLock&) = delete;

private:
    FileDescriptor descriptor_;
};

}  // namespace meetingcore
