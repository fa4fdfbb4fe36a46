#include "SummaryWorker/FatalEnd.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "SummaryWorker/LanguageModel.h"
#include "SummaryWorker/Progress.h"

namespace meetingcore {

namespace {

std::atomic<bool> armed = false;

// Rendered before they are needed: a signal handler may not allocate.
const std::string& lostFileLine() {
    static const std::string line = progressLine("failed",
                                                 "Eine Datei wurde während der Verarbeitung verändert oder ist "
                                                 "nicht mehr lesbar. Bitte erneut starten.");
    return line;
}

const std::string& endedLine() {
    static const std::string line = progressLine(
        "failed",
        "Das System hat die Verarbeitung beendet. Bitte andere Programme beenden und erneut starten.");
    return line;
}

void writeLine(const std::string& line) {
    if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) {
        // Nobody reads it; there is nobody else to tell.
    }
}

extern "C" void meetingFileLost(int) {
    // Several threads may lose the same file at once; the first one reports it and ends them all.
    static std::atomic_flag reported;
    while (reported.test_and_set()) ::pause();
    writeLine(lostFileLine());
    ::_exit(EXIT_FAILURE);
}

void meetingEnded() {
    if (armed.exchange(false)) writeLine(endedLine());
}

}  // namespace

FatalEnd::FatalEnd() {
    lostFileLine();
    endedLine();
    [[maybe_unused]] static const bool registered = std::atexit(meetingEnded) == 0;
    armed = true;
    struct sigaction action {};
    action.sa_handler = meetingFileLost;
    ::sigaction(SIGBUS, &action, nullptr);
    LanguageModel::onFatalFailure([](const std::string& message) { progress("failed", message); });
}

FatalEnd::~FatalEnd() { armed = false; }

}  // namespace meetingcore
