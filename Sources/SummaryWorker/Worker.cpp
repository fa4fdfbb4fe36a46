#include "SummaryWorker/Worker.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>

#include <unistd.h>

#include "MeetingCore/Summary/SummaryRun.h"
#include "SummaryWorker/FatalEnd.h"
#include "SummaryWorker/LanguageModel.h"
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

UUID requestedSession(std::span<const std::string> arguments) {
    if (argument(arguments, "--protocol") != "1")
        throw MeetingError::invalidData("Ungültiges Summary-Protokoll.");
    const auto session = UUID::parse(argument(arguments, "--session"));
    if (!session) throw MeetingError::invalidData("Ungültiges Summary-Protokoll.");
    return *session;
}

/// llama.cpp looks for further backends in the working directory, which may be anybody's, and where a variable
/// points.
void leaveWorkingDirectory() {
    ::unsetenv("GGML_BACKEND_PATH");
    if (::chdir("/") != 0) throw MeetingError::storage("Arbeitsordner kann nicht gewechselt werden.");
}

void run(std::span<const std::string> arguments, const ModelCatalog& catalog) {
    const auto session = requestedSession(arguments);
    const auto root = fs::path(argument(arguments, "--root"));
    const auto models = fromWorkingDirectory(argument(arguments, "--models"));
    const SummaryRun meeting(session, root);
    progress("loadingSummary");
    leaveWorkingDirectory();
    const auto file = catalog.verify("summary", models);
    LanguageModel model(file.path().string());
    file.requireUnchanged();
    const MeetingRun task{
        .meeting = meeting, .model = model, .progress = [](std::string_view state) { progress(state); }};
    const bool titleOnly = std::find(arguments.begin(), arguments.end(), "--title-only") != arguments.end();
    if (titleOnly) {
        runTitleTask(task);
    } else {
        SummaryTask(task).run();
    }
}

int fail(const std::string& message) {
    progress("failed", message);
    return 1;
}

}  // namespace

int runSummaryWorker(std::span<const std::string> arguments, const ModelCatalog& catalog) {
    occupyStandardDescriptors();
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(
        std::signal(SIGXFSZ, SIG_IGN));  // a write beyond the limit then fails with an error that has a message
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
