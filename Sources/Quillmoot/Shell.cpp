#include "Shell.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include <unistd.h>

#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/DataDirectoryPreference.h"
#include "MeetingCore/Library/MeetingReference.h"
#include "MeetingCore/Library/Trash.h"

namespace meetingcore::quillmoot {

namespace fs = std::filesystem;

namespace {

StopRequest interrupted;

}  // namespace

DataFolder::DataFolder(fs::path root) : root_(std::move(root)) {
    std::error_code unknown;
    if (fs::exists(root_, unknown) && !fs::is_directory(root_, unknown)) {
        throw MeetingError::notConfigured(root_.string() + " ist kein Ordner.");
    }
    if (!fs::is_directory(root_, unknown)) {
        throw MeetingError::notConfigured(
            "Es gibt keinen Datenordner unter " + root_.string() +
            ". „quillmoot import“ legt ihn an, „quillmoot data-folder PFAD“ wählt "
            "einen anderen.");
    }
}

/// Reading leaves a folder that is none of ours as it is.
void DataFolder::requireData() const {
    if (pathExists(root_ / "library.json") || pathExists(root_ / "quillmoot.sqlite") || fs::is_empty(root_))
        return;
    throw MeetingError::notConfigured(root_.string() + " ist kein Datenordner.");
}

const LibrarySnapshot& DataFolder::library() {
    if (!library_) {
        const auto file = root_ / "library.json";
        library_ = pathExists(file) ? MeetingLibrary::read(file) : LibrarySnapshot{};
    }
    return *library_;
}

SQLiteJobStore& DataFolder::jobs() {
    if (jobs_ == nullptr) {
        requireData();
        jobs_ = std::make_unique<SQLiteJobStore>(root_ / "quillmoot.sqlite");
    }
    return *jobs_;
}

const MeetingEntry& DataFolder::meeting(const std::string& reference) {
    return findMeeting(library(), reference);
}

std::optional<SummaryArtifact> DataFolder::summary(const UUID& meeting) const {
    return TranscriptStorage::readOptional<SummaryArtifact>(folderOf(meeting) / "summary.json");
}

OpenLibrary::OpenLibrary(fs::path root, Terminal& notices) : root_(std::move(root)) {
    createDirectories(FileManager::system(), root_);
    takeLock();
    library_.emplace(root_);
    endInterruptedRemovals(notices);
}

/// Whoever has the library open for changes knows that nobody removes audio now.
void OpenLibrary::endInterruptedRemovals(Terminal& notices) {
    const auto interrupted = AudioRemoval::interrupted(root_);
    if (interrupted.empty()) return;
    const auto recovered = AudioRemoval::recover(root_, jobs(), moveToSystemTrash);
    const auto tell = [&](const UUID& id, const char* what) {
        notices.line(std::string(what) + meeting(id.string()).title, Ink::yellow);
    };
    for (const auto& id : recovered.undone) tell(id, "Unterbrochenes Entfernen von Audio zurückgenommen: ");
    for (const auto& id : recovered.finished) {
        enterRemoval(id);
        tell(id, "Unterbrochenes Entfernen von Audio beendet: ");
    }
    for (const auto& problem : recovered.problems) notices.line(problem, Ink::red);
}

void OpenLibrary::enterRemoval(const UUID& meeting) {
    change(meeting, [](MeetingEntry& entry) {
        entry.chunkCount = 0;
        if (entry.state != "completed") entry.state = "interrupted";
    });
    MeetingLibrary::appendEvent({UUID::random(), Date::now(), "audioRemoved", std::nullopt},
                                TranscriptStorage::sessionDirectory(root_, meeting));
}

/// Another command holds the lock for moments, the recorder for hours.
void OpenLibrary::takeLock() {
    constexpr auto pause = std::chrono::milliseconds(50);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (!lock_) {
        try {
            lock_.emplace(root_, WorkerLock::Purpose::application);
        } catch (const MeetingError&) {
            if (std::chrono::steady_clock::now() > end) throw;
            std::this_thread::sleep_for(pause);
        }
    }
}

SQLiteJobStore& OpenLibrary::jobs() {
    if (jobs_ == nullptr) jobs_ = std::make_unique<SQLiteJobStore>(root_ / "quillmoot.sqlite");
    return *jobs_;
}

const MeetingEntry& OpenLibrary::meeting(const std::string& reference) const {
    return findMeeting(library_->snapshot(), reference);
}

void OpenLibrary::change(const UUID& meeting, const std::function<void(MeetingEntry&)>& body) {
    library_->update([&](LibrarySnapshot& library) {
        body(*std::ranges::find(library.meetings, meeting, &MeetingEntry::id));
    });
}

Shell::Shell() : out_(std::cout, Style::of(STDOUT_FILENO)), err_(std::cerr, Style::of(STDERR_FILENO)) {}

fs::path Shell::root() const {
    auto root = rootOption_ ? *rootOption_ : DataDirectoryPreference::selectedRoot(UserDefaults::standard());
    return fs::absolute(root).lexically_normal();
}

const StopRequest& stopOnInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted.request(); };
    for (const auto signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
    return interrupted;
}

}  // namespace meetingcore::quillmoot
