#include "MeetingCore/Summary/WorkerLock.h"

#include <chrono>
#include <thread>

#include <sys/file.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore {

namespace {

struct Wording {
    std::string_view fileName;
    const char* messageWhenTaken;
};

Wording wording(WorkerLock::Purpose purpose) {
    if (purpose == WorkerLock::Purpose::inference) {
        return {layout::inferenceLock, "Eine lokale KI-Verarbeitung läuft bereits für diese Bibliothek."};
    }
    return {layout::applicationLock,
            "Die Meeting-Bibliothek ist bereits in einer anderen App-Ausgabe geöffnet. Bitte diese zuerst "
            "beenden."};
}

}  // namespace

WorkerLock::WorkerLock(const std::filesystem::path& root, Purpose purpose)
    : descriptor_(FileDescriptor::open(root / wording(purpose).fileName, O_RDWR | O_CREAT, S_IRUSR | S_IWUSR)) {
    if (!descriptor_) {
        throw MeetingError::storage("KI-Sperrdatei nicht verfügbar.", MeetingError::Cause::lockFileUnavailable);
    }
    // Whoever only looks whether it is taken holds it for a moment.
    for (int attempt = 1; ::flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
        if (attempt == 3) throw MeetingError::storage(wording(purpose).messageWhenTaken);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool WorkerLock::isTaken(const std::filesystem::path& root, Purpose purpose) {
    // Closing the file gives up the lock that this may take for a moment.
    const auto file = FileDescriptor::open(root / wording(purpose).fileName, O_RDONLY);
    return file && ::flock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

WorkerLock::~WorkerLock() { ::flock(descriptor_.get(), LOCK_UN); }

}  // namespace meetingcore
