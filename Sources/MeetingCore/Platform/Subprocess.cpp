#include "MeetingCore/Platform/Subprocess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"

#ifdef __APPLE__
extern char** environ;
#endif

namespace meetingcore {

namespace {

using Clock = std::chrono::steady_clock;
using End = SubprocessResult::End;

constexpr std::size_t blockBytes = 65'536;
constexpr int blocksInPipe = 16;  // a pipe holds 64 KiB, and 1 MiB where its writer has enlarged it
constexpr std::size_t maximumErrorBytes = 4096;
constexpr std::size_t maximumErrorCharacters = 300;
constexpr int longestPauseMilliseconds = 20;

[[noreturn]] void failToStart(const std::string& program, int error) {
    const auto name = "„" + text::repaired(program) + "“";
    if (error == ENOENT || error == ENOTDIR)
        throw MeetingError::notConfigured("Das Programm " + name + " wurde nicht gefunden.");
    if (error == EACCES || error == ENOEXEC)
        throw MeetingError::notConfigured(name + " ist kein ausführbares Programm.");
    throw MeetingError::storage(name + " kann nicht gestartet werden: " + systemErrorText(error));
}

/// Both ends have numbers above the standard descriptors, also where the process has closed some of these: the
/// child's own are made from them one after the other.
class Pipe {
public:
    explicit Pipe(const std::string& program) {
        std::array<int, 2> ends{};
#ifdef __linux__
        const bool made = ::pipe2(ends.data(), O_CLOEXEC) == 0;
#else
        const bool made = ::pipe(ends.data()) == 0;
#endif
        if (!made) failToStart(program, errno);
        reading = FileDescriptor(ends[0]);
        writing = FileDescriptor(ends[1]);
        for (auto* const end : {&reading, &writing}) {
            const int least = end->get() > STDERR_FILENO ? end->get() : STDERR_FILENO + 1;
            const bool moved = least != end->get();
            const int number = moved ? ::fcntl(end->get(), F_DUPFD_CLOEXEC, least) : end->get();
            if (number < 0 || ::fcntl(number, F_SETFD, FD_CLOEXEC) != 0) failToStart(program, errno);
            if (moved) *end = FileDescriptor(number);
        }
        ::fcntl(reading.get(), F_SETFL, O_NONBLOCK);
    }

    FileDescriptor reading;
    FileDescriptor writing;
};

/// What becomes of the child between its start and the program.
class SpawnSettings {
public:
    SpawnSettings(const Pipe& output, const Pipe& errors) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&actions_, output.writing.get(), STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions_, errors.writing.get(), STDERR_FILENO);

        short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
        // Other libraries of the process may have left descriptors open for its children.
#ifdef POSIX_SPAWN_CLOEXEC_DEFAULT
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#elif defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
#endif
        sigset_t signals;
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes_, &signals);
        sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::posix_spawnattr_setflags(&attributes_, flags);
    }
    ~SpawnSettings() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&actions_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

/// A started program and its process group. Until `reap` the system keeps the group's number for it, so that a
/// signal can reach nobody else.
class Child {
public:
    explicit Child(std::vector<std::string> arguments) : program_(arguments.at(0)) {
        Pipe out(program_);
        Pipe err(program_);
        const SpawnSettings settings(out, err);
        std::vector<char*> pointers;
        pointers.reserve(arguments.size() + 1);
        for (auto& argument : arguments) pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        const auto error = ::posix_spawnp(&id_, program_.c_str(), settings.actions(), settings.attributes(),
                                          pointers.data(), environ);
        if (error != 0) {
            id_ = -1;
            failToStart(program_, error);
        }
        output = std::move(out.reading);
        errors = std::move(err.reading);
    }
    ~Child() {
        if (id_ < 0) return;
        signal(SIGKILL);
        int status = 0;
        while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void signal(int number) const { ::kill(-id_, number); }

    bool hasEnded() {
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
            if (errno != EINTR) failToWait();
        }
        return info.si_pid == id_;
    }

    /// The status as SubprocessResult has it.
    int reap() {
        int status = 0;
        while (::waitpid(id_, &status, 0) < 0) {
            if (errno != EINTR) failToWait();
        }
        id_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    FileDescriptor output;  // the reading ends, which never block
    FileDescriptor errors;

private:
    [[noreturn]] void failToWait() {
        id_ = -1;  // somebody else has reaped it
        throw MeetingError::storage("Wie " + quotedName(program_) + " endete, ist nicht feststellbar.");
    }

    std::string program_;
    pid_t id_ = -1;
};

class Run {
public:
    Run(const SubprocessCommand& command, const StopRequest& stop)
        : command_(command), stop_(stop), child_(command.arguments), started_(Clock::now()) {}

    SubprocessResult run() {
        while (!child_.hasEnded()) {
            supervise();
            awaitOutput();
        }
        child_.signal(SIGKILL);
        // Another process may hold the pipes open and go on writing; what counts was written before the end.
        for (int i = 0; i < blocksInPipe && readOutput(); ++i) {
        }
        for (int i = 0; i < blocksInPipe && readErrors(); ++i) {
        }
        if (command_.onLine && !result_.output.empty()) command_.onLine(std::exchange(result_.output, {}));
        result_.status = child_.reap();
        keepLastErrors(maximumErrorBytes);
        result_.lastErrors = text::repaired(result_.lastErrors);
        return std::move(result_);
    }

private:
    void supervise() {
        const auto now = Clock::now();
        if (stop_.requested()) end(End::stopped);
        if (command_.timeLimit && now - started_ >= *command_.timeLimit) end(End::timeLimit);
        if (killAt_ && now >= *killAt_) child_.signal(SIGKILL);
    }

    /// The first reason is the one that counts.
    void end(End reason) {
        if (killAt_) return;
        result_.end = reason;
        killAt_ = Clock::now() + command_.patience;
        child_.signal(SIGTERM);
    }

    /// The pauses are short, since neither a program's end nor a stop request wakes a thread that waits for
    /// output.
    void awaitOutput() {
        // A closed descriptor has a negative number, which poll passes over.
        std::array<pollfd, 2> pipes{{{child_.output.get(), POLLIN, 0}, {child_.errors.get(), POLLIN, 0}}};
        if (::poll(pipes.data(), pipes.size(), pause_) <= 0) {
            pause_ = std::min(2 * pause_, longestPauseMilliseconds);
            return;
        }
        pause_ = 1;
        if (pipes[0].revents != 0) readOutput();
        if (pipes[1].revents != 0) readErrors();
    }

    /// What is there, up to one block; nothing where there is nothing. Closes a pipe that has come to its end.
    std::string_view read(FileDescriptor& pipe) {
        if (!pipe) return {};
        const auto count = ::read(pipe.get(), block_.data(), block_.size());
        if (count > 0) return {block_.data(), static_cast<std::size_t>(count)};
        if (count == 0 || (errno != EAGAIN && errno != EINTR)) pipe.close();
        return {};
    }

    bool readOutput() {
        const auto bytes = read(child_.output);
        if (result_.end == End::outputLimit) return !bytes.empty();
        auto& output = result_.output;
        const auto searched = output.size();
        output += bytes;
        if (command_.onLine) passLines(searched);
        if (output.size() > command_.maximumOutputBytes) {
            output.clear();
            end(End::outputLimit);
        }
        return !bytes.empty();
    }

    void passLines(std::size_t searched) {
        auto& output = result_.output;
        std::size_t begin = 0;
        for (auto at = output.find('\n', searched); at != std::string::npos; at = output.find('\n', begin)) {
            command_.onLine(std::string_view(output).substr(begin, at - begin));
            begin = at + 1;
        }
        output.erase(0, begin);
    }

    bool readErrors() {
        const auto bytes = read(child_.errors);
        result_.lastErrors += bytes;
        keepLastErrors(blockBytes);
        return !bytes.empty();
    }

    /// Cut down now and then, not for every line.
    void keepLastErrors(std::size_t limit) {
        auto& errors = result_.lastErrors;
        if (errors.size() > limit) errors.erase(0, errors.size() - maximumErrorBytes);
    }

    const SubprocessCommand& command_;
    const StopRequest& stop_;
    Child child_;
    Clock::time_point started_;
    std::optional<Clock::time_point> killAt_;
    SubprocessResult result_;
    int pause_ = 1;
    std::array<char, blockBytes> block_{};
};

}  // namespace

std::string SubprocessResult::description() const {
    auto text = status >= 0 ? "Status " + std::to_string(status) : "Signal " + std::to_string(-status);
    auto lines = text::trimmed(lastErrors);
    lines.remove_prefix(lines.find_last_of("\r\n") + 1);  // npos + 1 is the start
    std::string line(text::prefix(text::trimmed(lines), maximumErrorCharacters));
    // Colours and the like would act on the terminal that shows the message.
    const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
    std::replace_if(line.begin(), line.end(), isControl, ' ');
    return line.empty() ? text + "." : text + ": " + line;
}

SubprocessResult runSubprocess(const SubprocessCommand& command, const StopRequest& stop) {
    return Run(command, stop).run();
}

}  // namespace meetingcore
