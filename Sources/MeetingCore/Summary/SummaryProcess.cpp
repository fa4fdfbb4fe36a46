#include "MeetingCore/Summary/SummaryProcess.h"

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Subprocess.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

struct ProgressLine {
    std::string version;
    SummaryProcess::State state = SummaryProcess::State::failed;
    std::optional<std::string> message;
};

}  // namespace

template <>
inline constexpr auto json::fields<ProgressLine> = json::record(json::field("version", &ProgressLine::version),
                                                                json::field("state", &ProgressLine::state),
                                                                json::field("message", &ProgressLine::message));

namespace SummaryProcess {

namespace {

constexpr const char* workerName = "SummaryWorker";
constexpr std::size_t maximumLineBytes = 1'048'576;

/// Nothing for a line that is no progress line or has an unknown state.
std::optional<ProgressLine> readLine(std::string_view line) {
    try {
        auto read = json::decode<ProgressLine>(line, workerName);
        if (read.version == "1") return read;
    } catch (const MeetingError&) {  // not for us
    }
    return std::nullopt;
}

fs::path runningProgram() {
#ifdef __APPLE__
    std::string path(4096, '\0');
    auto size = static_cast<std::uint32_t>(path.size());
    return ::_NSGetExecutablePath(path.data(), &size) == 0 ? fs::path(path.c_str()) : fs::path();
#else
    std::error_code unknown;
    return fs::read_symlink("/proc/self/exe", unknown);
#endif
}

/// `what` is said where there is none: an empty path would mean the working folder.
std::string absolutePath(const fs::path& path, const char* what) {
    if (path.empty()) throw MeetingError::notConfigured(what);
    std::error_code error;
    const auto absolute = fs::absolute(path, error);
    if (error) throw MeetingError::storage(quotedName(path) + ": " + systemErrorText(error.value()));
    return absolute.string();
}

std::string workerOf(const Task& task) {
    if (task.program)
        return absolutePath(*task.program, "Es ist kein Programm für die Zusammenfassung angegeben.");
    std::error_code unknown;
    const auto beside = fs::canonical(runningProgram(), unknown).replace_filename(workerName);
    return fs::is_regular_file(beside, unknown) ? beside.string() : workerName;
}

}  // namespace

bool run(const Task& task, const StopRequest& stop, const std::function<void(State)>& onState) {
    bool finished = false;
    std::optional<std::string> failure;
    SubprocessCommand command{
        .arguments = {workerOf(task), "--protocol", "1", "--session", task.session.string(), "--root",
                      absolutePath(task.root, "Es ist kein Datenordner angegeben."), "--models",
                      absolutePath(task.models, "Es ist kein Ordner für die Modelle angegeben.")},
        .maximumOutputBytes = maximumLineBytes};
    if (task.titleOnly) command.arguments.emplace_back("--title-only");
    command.onLine = [&](std::string_view text) {
        const auto line = readLine(text);
        if (!line) return;
        if (line->state == State::failed) {
            failure = line->message;
            return;
        }
        if (line->state == (task.titleOnly ? State::titleFinished : State::summaryFinished)) finished = true;
        if (onState) onState(line->state);
    };
    const auto result = runSubprocess(command, stop);
    if (finished && result.status == 0) return true;
    if (result.end == SubprocessResult::End::stopped) return false;
    if (failure) throw MeetingError::invalidData(*failure);
    throw MeetingError::invalidData("Die lokale KI-Verarbeitung endete ohne Ergebnis: " + result.description());
}

}  // namespace SummaryProcess
}  // namespace meetingcore
