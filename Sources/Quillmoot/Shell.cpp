#include "Shell.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <thread>

#include <unistd.h>

#include "GermanWords.h"
#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/DataDirectoryPreference.h"
#include "MeetingCore/Library/MeetingReference.h"
#include "MeetingCore/Library/Trash.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore::quillmoot {

namespace fs = std::filesystem;

namespace {

StopRequest interrupted;

void requireAccess(const fs::path& root, int mode) {
    if (::access(root.c_str(), mode) != 0)
        throw MeetingError::storage(root.string() + ": " + systemErrorText(errno));
}

void requireFolder(const fs::path& root) {
    std::error_code error;
    const auto kind = fs::status(root, error).type();
    if (kind == fs::file_type::directory) return requireAccess(root, R_OK | X_OK);
    if (kind == fs::file_type::none)
        throw MeetingError::storage(root.string() + ": " + systemErrorText(error.value()));
    if (kind != fs::file_type::not_found)
        throw MeetingError::notConfigured(root.string() + " ist kein Ordner.");
    throw MeetingError::notConfigured("Es gibt keinen Datenordner unter " + root.string() +
                                      ". „quillmoot import“ legt ihn an, „quillmoot data-folder PFAD“ wählt "
                                      "einen anderen.");
}

bool isOurs(const std::string& name) {
    constexpr auto names =
        std::to_array<std::string_view>({layout::meetings, layout::models, layout::applicationLock,
                                         layout::audioRetention, layout::inferenceLock, layout::library});
    return std::ranges::find(names, name) != names.end() || name.starts_with(layout::queue) ||
           name == ".DS_Store" || isInterruptedWrite(name);
}

/// Also a folder that is empty, or that a crash left without what shows it to be one of ours.
bool holdsOnlyOurs(const fs::path& root) {
    return std::ranges::all_of(FileManager::system().list(root), isOurs);
}

/// Leaves a folder that is none of ours as it is.
void requireOurs(const fs::path& root) {
    if (pathExists(root / layout::library) || pathExists(root / layout::queue) || holdsOnlyOurs(root)) return;
    throw MeetingError::notConfigured(root.string() +
                                      " ist kein Datenordner. Bitte einen leeren Ordner oder einen vorhandenen "
                                      "Quillmoot-Datenordner wählen.");
}

std::unique_ptr<SQLiteJobStore> openJobs(const fs::path& root) {
    return std::make_unique<SQLiteJobStore>(root / layout::queue);
}

/// Makes what a chosen folder is known by.
void complete(const fs::path& root) {
    createDirectories(FileManager::system(), root / layout::meetings);
    if (!SQLiteJobStore::exists(root / layout::queue)) openJobs(root);
}

/// A database that is missing beside meetings is lost, which is not to be covered up.
void refuseLostDatabase(const fs::path& root) {
    const auto library = root / layout::library;
    if (SQLiteJobStore::exists(root / layout::queue) || !pathExists(library)) return;
    if (MeetingLibrary::read(library).meetings.empty()) return;
    throw MeetingError::storage(
        "In " + root.string() +
        " fehlt „quillmoot.sqlite“ mit den Transkripten. Bitte die Datei zurückholen; „quillmoot doctor "
        "--repair --root " +
        root.string() + "“ legt eine neue an.");
}

}  // namespace

DataFolder::DataFolder(fs::path root) : root_(std::move(root)) {
    requireFolder(root_);
    requireOurs(root_);
}

const LibrarySnapshot& DataFolder::library() {
    if (!library_) library_ = MeetingLibrary::view(root_);
    return *library_;
}

SQLiteJobStore& DataFolder::jobs() {
    if (queue_ != nullptr) return *queue_;
    refuseLostDatabase(root_);
    if (jobs_ == nullptr) jobs_ = SQLiteJobStore::forReading(root_ / layout::queue);
    return *jobs_;
}

SQLiteJobStore& DataFolder::queue() {
    if (queue_ != nullptr) return *queue_;
    refuseLostDatabase(root_);
    queue_ = openJobs(root_);
    return *queue_;
}

const MeetingEntry& DataFolder::meeting(const std::string& reference) {
    return findMeeting(library(), reference);
}

std::optional<SummaryArtifact> DataFolder::summary(const UUID& meeting) const {
    return TranscriptStorage::readOptional<SummaryArtifact>(folderOf(meeting) / layout::summary);
}

OpenLibrary::OpenLibrary(fs::path root, Terminal& notices) : root_(std::move(root)) {
    createDirectories(FileManager::system(), root_);
    requireAccess(root_, R_OK | W_OK | X_OK);
    requireOurs(root_);
    takeLock(lock_, root_, WorkerLock::Purpose::application);
    library_.emplace(root_);
    // Without meetings the database is not missed.
    if (library_->snapshot().meetings.empty()) complete(root_);
    endInterruptedRemovals(notices);
}

/// Whoever has the library open for changes knows that nobody removes audio now. Where the trash has it, only
/// the queue knows whether the removal came to its end.
void OpenLibrary::endInterruptedRemovals(Terminal& notices) {
    const auto& meetings = library_->snapshot().meetings;
    const bool removed = std::ranges::any_of(
        meetings, [&](const auto& meeting) { return AudioArchive::removed(meeting.id, root_); });
    if (!removed && AudioRemoval::interrupted(root_).empty()) return;
    if (!SQLiteJobStore::exists(root_ / layout::queue))
        return;  // lost, and not to be covered up by an empty one
    const auto tell = [&](const UUID& id, const char* what) {
        const auto known = std::ranges::find(meetings, id, &MeetingEntry::id);
        notices.line(what + (known == meetings.end() ? id.string() : known->title), Ink::yellow);
    };
    try {
        const auto recovered = AudioRemoval::recover(root_, jobs(), *library_, moveToSystemTrash);
        for (const auto& id : recovered.undone) tell(id, "Entfernen von Audio zurückgenommen: ");
        for (const auto& id : recovered.finished) tell(id, "Unterbrochenes Entfernen von Audio beendet: ");
        for (const auto& problem : recovered.problems) notices.line(problem, Ink::red);
    } catch (const MeetingError& error) {  // what was asked for may do without
        notices.line(error.message(), Ink::red);
    }
}

void takeLock(std::optional<WorkerLock>& lock, const fs::path& root, WorkerLock::Purpose purpose) {
    constexpr auto pause = std::chrono::milliseconds(50);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (!lock) {
        try {
            lock.emplace(root, purpose);
        } catch (const MeetingError& error) {
            if (error.cause() != MeetingError::Cause::lockTaken || std::chrono::steady_clock::now() > end)
                throw;
            std::this_thread::sleep_for(pause);
        }
    }
}

void rethrowWithLease(const MeetingError& error, SQLiteJobStore& jobs, const UUID& meeting) {
    if (error.cause() != MeetingError::Cause::jobBusy) throw;
    double seconds = 0;
    const auto now = Date::now().secondsSinceReferenceDate();
    for (const auto& job : jobs.jobs(meeting)) {
        if (job.status == JobStatus::running && job.leaseUntil)
            seconds = std::max(seconds, std::ceil(job.leaseUntil->secondsSinceReferenceDate() - now));
    }
    if (seconds < 1) throw;
    throw MeetingError::database(error.message() + " Sie endet in " +
                                 countOf(static_cast<std::size_t>(seconds), "Sekunde", "Sekunden") +
                                 ", wenn niemand sie verlängert.");
}

SQLiteJobStore& OpenLibrary::jobs() {
    if (jobs_ != nullptr) return *jobs_;
    refuseLostDatabase(root_);
    jobs_ = openJobs(root_);
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
    if (rootOption_ && rootOption_->empty()) throw UsageError("--root braucht einen Ordner.");
    auto root = rootOption_ ? *rootOption_ : DataDirectoryPreference::selectedRoot(UserDefaults::standard());
    return fs::absolute(root).lexically_normal();
}

/// The drive of the remembered folder may be missing; nothing is to be begun in its place.
fs::path Shell::reachableRoot() const {
    auto folder = root();
    const bool remembered =
        !rootOption_ && UserDefaults::standard().string(DataDirectoryPreference::key).has_value();
    std::error_code unreachable;
    if (remembered && !fs::is_directory(folder, unreachable)) DataDirectoryPreference::validate(folder);
    return folder;
}

OpenLibrary Shell::openLibrary(Creation creation) {
    const auto folder = reachableRoot();
    if (rootOption_ && creation == Creation::ofDefault) requireFolder(folder);
    return {folder, err_};
}

void Shell::chooseFolder(const fs::path& folder) {
    createDirectories(FileManager::system(), folder);
    const bool used =
        std::ranges::any_of(std::to_array({layout::applicationLock, layout::library, layout::queue}),
                            [&](std::string_view name) { return pathExists(folder / name); });
    if (used && holdsOnlyOurs(folder)) {
        refuseLostDatabase(folder);
        complete(folder);
    }
    auto defaults = UserDefaults::standard();
    DataDirectoryPreference::select(folder, defaults);
}

const StopRequest& stopOnInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted.request(); };
    for (const auto signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
    return interrupted;
}

}  // namespace meetingcore::quillmoot
