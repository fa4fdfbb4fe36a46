#include "MeetingCore/Summary/WorkerLock.h"

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
    if (::flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0) {
        throw MeetingError::storage(wording(purpose).messageWhenTaken, MeetingError::Cause::lockTaken);
    }
}

bool WorkerLock::isTaken(const std::filesystem::path& root, Purpose purpose) {
    // Closing the file gives up the lock that this may take for a moment.
    const auto file = FileDescriptor::open(root / wording(purpose).fileName, O_RDONLY);
    return file && ::flock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

WorkerLock::~WorkerLock() { ::flock(descriptor_.get(), LOCK_UN); }

}  // namespace meetingcore
