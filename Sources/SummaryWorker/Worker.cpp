#include "SummaryWorker/Worker.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "MeetingCore/Library/AudioArchive.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "SummaryWorker/FatalEnd.h"
#include "SummaryWorker/LanguageModel.h"
#include "SummaryWorker/MeetingRun.h"
#include "SummaryWorker/SummaryTask.h"
#include "SummaryWorker/TitleTask.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

/// The argument behind the first one that equals the name, whatever it looks like.
const std::string& argument(std::span<const std::string> arguments, const std::string& name) {
    const auto found = std::find(arguments.begin(), arguments.end(), name);
    if (found == arguments.end() || std::next(found) == arguments.end()) {
        throw MeetingError::invalidData("Worker-Argument fehlt: " + name);
    }
    return *std::next(found);
}

fs::path fromWorkingDirectory(const fs::path& path) {
    std::error_code error;
    auto result = fs::absolute(path.empty() ? fs::path(".") : path, error);
    return error ? path : result;
}

/// The absolute path without symbolic links as far as it exists, without `.` and `..` and without a slash at
/// its end.
fs::path resolved(const fs::path& path) {
    std::error_code error;
    auto result = fs::weakly_canonical(fromWorkingDirectory(path), error);
    if (error) result = fromWorkingDirectory(path).lexically_normal();
    return result.has_filename() ? result : result.parent_path();
}

UUID requestedSession(std::span<const std::string> arguments) {
    if (argument(arguments, "--protocol") != "1")
        throw MeetingError::invalidData("Ungültiges Summary-Protokoll.");
    const auto session = UUID::parse(argument(arguments, "--session"));
    if (!session) throw MeetingError::invalidData("Ungültiges Summary-Protokoll.");
    return *session;
}

fs::path meetingFolder(const fs::path& root, const UUID& session) {
    const auto folder = resolved(TranscriptStorage::sessionDirectory(root, session));
    if (!folder.native().starts_with(root.native() + "/Meetings/")) {
        throw MeetingError::invalidData("Ungültiger Meetingpfad.");
    }
    return folder;
}

std::int64_t unfinishedJobs(SQLiteJobStore& database, const UUID& session) {
    auto counts = database.jobStats(session);
    return counts["pending"] + counts["running"] + counts["failed"];
}

/// llama.cpp looks for further backends in the working directory, which may be anybody's, and where a variable
/// points.
void leaveWorkingDirectory() {
    ::unsetenv("GGML_BACKEND_PATH");
    if (::chdir("/") != 0) throw MeetingError::storage("Arbeitsordner kann nicht gewechselt werden.");
}

void run(std::span<const std::string> arguments, const ModelCatalog& catalog) {
    const auto session = requestedSession(arguments);
    const auto root = resolved(argument(arguments, "--root"));
    const auto models = fromWorkingDirectory(argument(arguments, "--models"));
    const auto folder = meetingFolder(root, session);
    const WorkerLock lock(root, WorkerLock::Purpose::inference);
    SQLiteJobStore database(root / "quillmoot.sqlite");
    const auto unfinished = unfinishedJobs(database, session);
    const bool audioRemoved = AudioArchive::removed(session, root);
    if (!audioRemoved && unfinished > 0) {
        throw MeetingError::invalidData("Sprachverarbeitung muss zuerst vollständig abgeschlossen sein.");
    }
    const auto document = TranscriptStorage::load(session, root, database);
    if (document.segments.empty()) throw MeetingError::invalidData("Noch kein Transkript zum Zusammenfassen.");
    if (!audioRemoved && document.diarizationPending()) {
        throw MeetingError::invalidData("Die Sprecherzuordnung muss zuerst abgeschlossen sein.");
    }
    const auto fingerprint = SummaryArtifact::fingerprint(document);
    progress("loadingSummary");
    leaveWorkingDirectory();
    const auto file = catalog.verify("summary", models);
    LanguageModel model(file.path().string());
    file.requireUnchanged();
    const MeetingRun task{.session = session,
                          .root = root,
                          .meetingFolder = folder,
                          .database = database,
                          .document = document,
                          .fingerprint = fingerprint,
                          .unfinishedJobs = unfinished,
                          .model = model,
                          .progress = [](std::string_view state) { progress(state); }};
    const bool titleOnly = std::find(arguments.begin(), arguments.end(), "--title-only") != arguments.end();
    if (titleOnly) {
        runTitleTask(task);
    } else {
        SummaryTask(task).run();
    }
}

/// Opens /dev/null under a standard descriptor that the starter closed. Otherwise the next file opened, the
/// database say, would get that number, and progress lines would be written into it.
void occupyStandardDescriptors() {
    int descriptor = STDIN_FILENO;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor >= 0) ::close(descriptor);
}

int fail(const std::string& message) {
    progress("failed", message);
    return 1;
}

}  // namespace

int runSummaryWorker(std::span<const std::string> arguments, const ModelCatalog& catalog) {
    occupyStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit then fails with an error that has a message
    const FatalEnd fatalEnd;
    try {
        run(arguments, catalog);
        return 0;
    } catch (const MeetingError& error) {
        return fail(error.message());
    } catch (const std::bad_alloc&) {
        return fail("Der Arbeitsspeicher reicht nicht aus. Bitte andere Programme beenden und erneut starten.");
    } catch (const std::exception& error) {
        return fail(std::string("Unerwarteter Fehler: ") + error.what());
    }
}

}  // namespace meetingcore
