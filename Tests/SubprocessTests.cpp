#include <atomic>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/Subprocess.h"
#include "MeetingCore/Summary/SummaryProcess.h"
#include "Support/Failure.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using End = SubprocessResult::End;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::failureOf;
using testing::TemporaryFolder;

constexpr auto longTime = 60s;  // what a test that fails would wait for

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
    struct Case {
        const char* script;
        int status;
        const char* output;
        const char* description;
    };
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
    const auto literal = run({.arguments = {"printf", "%s|", "a b", "", "$HOME;", "ä"}});
    EXPECT_EQ(literal.output, "a b||$HOME;|ä|");
}

TEST(Subprocess, SaysWhatCannotBeStarted) {
    const TemporaryFolder folder;
    const auto missing = MeetingError::Kind::notConfigured;
    EXPECT_EQ(failureOf([] { run({.arguments = {"gibt-es-nicht"}}); }, missing),
              "Das Programm „gibt-es-nicht“ wurde nicht gefunden.");
    EXPECT_EQ(failureOf([&] { run({.arguments = {folder.path().string()}}); }, missing),
              quotedName(folder.path()) + " ist kein ausführbares Programm.");
}

TEST(Subprocess, GivesTheChildNothingOfOurs) {
    const auto leaked = ::fcntl(STDIN_FILENO, F_DUPFD, 40);
    struct sigaction ignored {};
    struct sigaction before {};
    ignored.sa_handler = SIG_IGN;
    ::sigaction(SIGTERM, &ignored, &before);
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &term, nullptr);
    const auto result = run(
        shell("test -e /dev/fd/" + std::to_string(leaked) + " && echo leaked; kill -TERM $$; echo survived"));
    ::pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
    ::sigaction(SIGTERM, &before, nullptr);
    ::close(leaked);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, -SIGTERM);
}

TEST(Subprocess, ReadsMoreThanPipesHold) {
    const auto result =
        run(shell("head -c 300000 /dev/zero >&2; head -c 3000000 /dev/zero; head -c 300000 /dev/zero >&2"));
    EXPECT_EQ(result.output, std::string(3'000'000, '\0'));
    EXPECT_EQ(result.lastErrors, std::string(4096, '\0'));
}

TEST(Subprocess, PassesLinesAsTheyCome) {
    std::vector<std::string> lines;
    auto command = shell("echo eins; echo; head -c 100000 /dev/zero | tr '\\0' x; echo; printf drei");
    command.onLine = [&](std::string_view line) { lines.emplace_back(line); };
    EXPECT_EQ(run(command).output, "");
    EXPECT_THAT(lines, ElementsAre("eins", "", std::string(100'000, 'x'), "drei"));
}

TEST(Subprocess, EndsWhatExceedsItsLimits) {
    const LifeSign grandchild;
    struct Case {
        SubprocessCommand command;
        End end;
        int status;
    };
    const auto stubborn = "(trap '' TERM; " + grandchild.give() + "while :; do sleep 1; done) & ";
    Case cases[] = {
        {shell("sleep 60"), End::timeLimit, -SIGTERM},
        {shell("trap 'exit 5' TERM; while :; do sleep 0.01; done"), End::timeLimit, 5},
        {shell("exec 1>&- 2>&-; " + stubborn + "trap '' TERM; while :; do sleep 1; done"), End::timeLimit,
         -SIGKILL},
        {shell("yes"), End::outputLimit, -SIGTERM},
        {shell("yes | tr -d '\\n'"), End::outputLimit, -SIGTERM},
    };
    for (auto& [command, end, status] : cases) {
        if (end == End::timeLimit) command.timeLimit = 300ms;
        if (end == End::outputLimit) command.maximumOutputBytes = 100'000;
        command.patience = status == -SIGKILL ? std::chrono::milliseconds(200ms) : longTime;
        const auto result = run(command);
        EXPECT_EQ(result.end, end) << command.arguments[2];
        EXPECT_EQ(result.status, status) << command.arguments[2];
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

/// A worker that runs a script, and what became of it.
class SummaryProcessTest : public ::testing::Test {
protected:
    std::string run(const std::string& script, bool titleOnly = false) {
        std::ofstream(program_) << "#!/bin/sh\n" << script << "\n";
        fs::permissions(program_, fs::perms::owner_all);
        states_.clear();
        const SummaryProcess::Task task{session_, "Daten", "Modelle", titleOnly, program_};
        bool finished = false;
        const auto failure = failureOf([&] {
            finished = SummaryProcess::run(task, stop_, [&](auto state) {
                states_ += std::string(json::nameOf(state)) + " ";
                if (state == SummaryProcess::State::titling) stop_.request();
            });
        });
        return failure != "no failure" ? failure : finished ? "finished" : "stopped";
    }

    static std::string line(const std::string& state, const std::string& more = "") {
        return R"(echo '{"state":")" + state + R"(","version":"1")" + more + "}'; ";
    }

    TemporaryFolder folder_;
    fs::path program_ = folder_.path() / "Worker";
    UUID session_ = UUID::random();
    StopRequest stop_;
    std::string states_;
};

TEST_F(SummaryProcessTest, FollowsTheWorkerToItsResult) {
    const auto words = "--protocol 1 --session " + session_.string() + " --root " +
                       fs::absolute("Daten").string() + " --models " + fs::absolute("Modelle").string();
    const auto expected = [](const std::string& all) { return "[ \"$*\" = '" + all + "' ] || exit 9; "; };
    EXPECT_EQ(run(expected(words) + line("loadingSummary") + line("summarizing") + "echo Unsinn; " +
                  line("dreaming") + R"(echo '{"state":"titling","version":"2"}'; )" + line("summarizing") +
                  line("summaryFinished")),
              "finished");
    EXPECT_EQ(states_, "loadingSummary summarizing summarizing summaryFinished ");
    EXPECT_EQ(run(expected(words + " --title-only") + line("titleFinished"), true), "finished");
}

TEST_F(SummaryProcessTest, SaysWhyThereIsNoResult) {
    const std::string withoutResult = "Die lokale KI-Verarbeitung endete ohne Ergebnis: ";
    EXPECT_EQ(run(line("failed", R"(,"message":"Noch kein Transkript zum Zusammenfassen.")") + "exit 1"),
              "Noch kein Transkript zum Zusammenfassen.");
    EXPECT_EQ(run(line("summarizing") + "echo kaputt >&2; exit 1"), withoutResult + "Status 1: kaputt");
    EXPECT_EQ(run(line("summaryFinished") + "kill -9 $$"), withoutResult + "Signal 9.");
    EXPECT_EQ(run(line("titleFinished")), withoutResult + "Status 0.");
    EXPECT_EQ(run(line("failed") + "exit 1"), withoutResult + "Status 1.");
    EXPECT_EQ(run(line("titling") + "sleep 60", true), "stopped");
}

}  // namespace
}  // namespace meetingcore
