#include <atomic>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <tuple>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/Subprocess.h"
#include "MeetingCore/Summary/SummaryProcess.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using End = SubprocessResult::End;
using namespace std::chrono_literals;

SubprocessCommand shell(const std::string& script) { return {.arguments = {"sh", "-c", script}}; }

SubprocessResult run(const SubprocessCommand& command) {
    const StopRequest never;
    return runSubprocess(command, never);
}

/// A named pipe that tells whether a process which opened it for writing is still there.
class LifeSign {
public:
    LifeSign() {
        ::mkfifo(path().c_str(), S_IRUSR | S_IWUSR);
        reading_ = FileDescriptor::open(path(), O_RDONLY | O_NONBLOCK);
    }
    std::string path() const { return folder_.path() / "fifo"; }

    /// What a shell says to be watched with its children from now on.
    std::string give() const { return "exec 3>" + path() + "; echo x >&3; "; }

    /// Waits until all have gone; false where one stays, or none ever came.
    bool ended() const {
        pollfd state{reading_.get(), POLLIN, 0};
        constexpr int limit = 10'000;
        char sign = 0;
        if (::poll(&state, 1, limit) != 1 || ::read(reading_.get(), &sign, 1) != 1) return false;
        state.events = 0;
        return ::poll(&state, 1, limit) == 1 && (state.revents & POLLHUP) != 0;
    }

private:
    TemporaryFolder folder_;
    FileDescriptor reading_;
};

TEST(Subprocess, ReportsOutputErrorsAndStatus) {
    using Case = std::tuple<const char*, int, const char*, const char*>;
    for (const auto& [script, status, output, description] : {
             Case{"echo a; printf b; printf 'x\\n  Modell fehlt \\n' >&2; exit 3", 3, "a\nb",
                  "Status 3: Modell fehlt"},
             Case{"kill -9 $$", -9, "", "Signal 9."},
             Case{"cat; exec 1>&- 2>&-; sleep 0.1; exit 7", 7, "", "Status 7."},
             Case{"printf 'a\\377\\033b' >&2; exit 1", 1, "", "Status 1: a\xEF\xBF\xBD b"},
         }) {
        const auto result = run(shell(script));
        EXPECT_EQ(result.end, End::byItself) << script;
        EXPECT_EQ(result.status, status) << script;
        EXPECT_EQ(result.output, output) << script;
        EXPECT_EQ(result.description(), description) << script;
    }
    EXPECT_EQ(run({.arguments = {"printf", "%s|", "a b", "", "$HOME;", "ä"}}).output, "a b||$HOME;|ä|");
    const auto failure = [](const char* program) {
        return failureOf([&] { run({.arguments = {program}}); }, Kind::notConfigured);
    };
    EXPECT_EQ(failure("gibt-es-nicht"), "Das Programm „gibt-es-nicht“ wurde nicht gefunden.");
    EXPECT_EQ(failure("/usr/bin"), "„/usr/bin“ ist kein ausführbares Programm.");
}

TEST(Subprocess, GivesTheChildNothingOfOurs) {
    const auto leaked = ::fcntl(STDIN_FILENO, F_DUPFD, 40);
    auto* const before = std::signal(SIGTERM, SIG_IGN);
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &term, nullptr);
    const auto result = run(
        shell("test -e /dev/fd/" + std::to_string(leaked) + " && echo leaked; kill -TERM $$; echo survived"));
    ::pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
    static_cast<void>(std::signal(SIGTERM, before));
    ::close(leaked);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, -SIGTERM);
}

TEST(Subprocess, ReadsMoreThanPipesHold) {
    const std::string lines = "echo eins; echo; head -c 1000000 /dev/zero | tr '\\0' x; echo; printf drei; ";
    const std::string errors = "head -c 300000 /dev/zero >&2; ";
    auto command = shell(errors + lines + errors);
    const auto result = run(command);
    EXPECT_EQ(result.output, "eins\n\n" + std::string(1'000'000, 'x') + "\ndrei");
    EXPECT_EQ(result.lastErrors, std::string(4096, '\0'));
    std::vector<std::string> passed;
    command.onLine = [&](std::string_view line) { passed.emplace_back(line); };
    EXPECT_EQ(run(command).output, "");
    EXPECT_THAT(passed, ElementsAre("eins", "", std::string(1'000'000, 'x'), "drei"));
}

TEST(Subprocess, EndsWhatExceedsItsLimits) {
    const LifeSign grandchild;
    const auto stubborn = "(trap '' TERM; " + grandchild.give() + "while :; do sleep 1; done) & ";
    using Case = std::tuple<std::string, End, int>;
    for (const auto& [script, end, status] : {
             Case{"sleep 60", End::timeLimit, -SIGTERM},
             Case{"trap 'exit 5' TERM; while :; do sleep 0.01; done", End::timeLimit, 5},
             Case{"exec 1>&- 2>&-; " + stubborn + "trap '' TERM; while :; do sleep 1; done", End::timeLimit,
                  -SIGKILL},
             Case{"yes", End::outputLimit, -SIGTERM},
         }) {
        auto command = shell(script);
        if (end == End::timeLimit) command.timeLimit = 300ms;
        if (end == End::outputLimit) command.maximumOutputBytes = 100'000;
        if (status == -SIGKILL) command.patience = 200ms;
        const auto result = run(command);
        EXPECT_EQ(result.end, end) << script;
        EXPECT_EQ(result.status, status) << script;
    }
    EXPECT_TRUE(grandchild.ended());
}

TEST(Subprocess, LeavesNothingInTheBackground) {
    const LifeSign background;
    const auto ready = background.path() + ".ready";
    const auto result = run(shell("(" + background.give() + "echo bereit; mkdir " + ready +
                                  "; sleep 60) & until test -d " + ready + "; do sleep 0.01; done; exit 4"));
    EXPECT_EQ(result.output, "bereit\n");
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(background.ended());

    const LifeSign abandoned;
    auto command = shell(abandoned.give() + "echo bereit; sleep 60");
    command.onLine = [](std::string_view) { throw std::runtime_error("no more"); };
    EXPECT_THROW(run(command), std::runtime_error);
    EXPECT_TRUE(abandoned.ended());
}

TEST(Subprocess, EndsOnARequestFromAnotherThread) {
    StopRequest all;
    std::atomic<int> started = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 5; ++n) EXPECT_EQ(run(shell("printf 1")).output, "1");
            auto command = shell("echo bereit; sleep 60");
            command.onLine = [&](std::string_view) { ++started; };
            const auto part = StopRequest::within(all);
            const auto result = runSubprocess(command, part);
            EXPECT_EQ(result.end, End::stopped);
            EXPECT_EQ(result.status, -SIGTERM);
        });
    }
    while (started < 4) std::this_thread::yield();
    all.request();
    for (auto& thread : threads) thread.join();
}

/// Runs a script as the worker: "finished", "stopped" (once it has said "titling") or the failure's message.
std::string runWorker(const std::string& script, bool titleOnly = false, std::string* states = nullptr) {
    const TemporaryFolder folder;
    const auto program = folder.path() / "Worker";
    std::ofstream(program) << "#!/bin/sh\n" << script << "\n";
    fs::permissions(program, fs::perms::owner_all);
    StopRequest stop;
    bool finished = false;
    const auto failure = failureOf([&] {
        finished = SummaryProcess::run({UUID(), "Daten", "Modelle", titleOnly, program}, stop, [&](auto state) {
            if (states != nullptr) *states += std::string(json::nameOf(state)) + " ";
            if (state == SummaryProcess::State::titling) stop.request();
        });
    });
    return failure != noFailure ? failure : finished ? "finished" : "stopped";
}

std::string line(const std::string& state, const std::string& more = "") {
    return R"(echo '{"state":")" + state + R"(","version":"1")" + more + "}'; ";
}

TEST(SummaryProcess, FollowsTheWorkerToItsResult) {
    const auto words = "--protocol 1 --session " + UUID().string() + " --root " +
                       fs::absolute("Daten").string() + " --models " + fs::absolute("Modelle").string();
    const auto expected = [](const std::string& all) { return "[ \"$*\" = '" + all + "' ] || exit 9; "; };
    const auto lines = line("loadingSummary") + line("summarizing") + "echo Unsinn; " + line("dreaming") +
                       R"(echo '{"state":"titling","version":"2"}'; )" + line("summaryFinished");
    std::string states;
    EXPECT_EQ(runWorker(expected(words) + lines, false, &states), "finished");
    EXPECT_EQ(states, "loadingSummary summarizing summaryFinished ");
    EXPECT_EQ(runWorker(expected(words + " --title-only") + line("titleFinished"), true), "finished");
}

TEST(SummaryProcess, SaysWhyThereIsNoResult) {
    const std::string withoutResult = "Die lokale KI-Verarbeitung endete ohne Ergebnis: ";
    EXPECT_EQ(runWorker(line("failed", R"(,"message":"Noch kein Transkript.")") + "exit 1"),
              "Noch kein Transkript.");
    EXPECT_EQ(runWorker(line("summarizing") + "echo kaputt >&2; exit 1"), withoutResult + "Status 1: kaputt");
    EXPECT_EQ(runWorker(line("summaryFinished") + "kill -9 $$"), withoutResult + "Signal 9.");
    EXPECT_EQ(runWorker(line("titleFinished")), withoutResult + "Status 0.");
    EXPECT_EQ(runWorker(line("titling") + "sleep 60", true), "stopped");
}

}  // namespace
}  // namespace meetingcore::testing
