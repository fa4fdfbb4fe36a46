#include "Support/Process.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meetingcore::testing {

namespace {

void require(bool done, const char* what) {
    if (!done) throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, std::vector<std::string> arguments,
                           const Environment& environment)
    : errors_(std::tmpfile()) {
    std::array<int, 2> ends{};
    require(errors_ && ::pipe(ends.data()) == 0, "pipe");
    output_ = FileDescriptor(ends[0]);
    const FileDescriptor writing(ends[1]);
    for (const int own : {ends[0], ends[1], ::fileno(errors_.get())}) ::fcntl(own, F_SETFD, FD_CLOEXEC);
    std::string name = program.string();
    std::vector<char*> list{name.data()};
    for (auto& argument : arguments) list.push_back(argument.data());
    list.push_back(nullptr);
    const auto child = ::fork();
    require(child >= 0, "fork");
    if (child > 0) {
        pid_ = child;
        return;
    }
    ::dup2(FileDescriptor::open("/dev/null", O_RDONLY).get(), STDIN_FILENO);
    ::dup2(writing.get(), STDOUT_FILENO);
    ::dup2(::fileno(errors_.get()), STDERR_FILENO);
    static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
    for (const auto& [variable, value] : environment) ::setenv(variable.c_str(), value.c_str(), 1);
    ::execv(name.c_str(), list.data());
    std::perror(name.c_str());
    ::_exit(127);
}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    kill();
    reap();
}

std::optional<std::string> ChildProcess::nextLine() {
    auto end = received_.find('\n', nextLine_);
    while (end == std::string::npos && readMore()) end = received_.find('\n', nextLine_);
    if (nextLine_ == received_.size()) return std::nullopt;
    const auto line = received_.substr(nextLine_, end - nextLine_);
    nextLine_ = end == std::string::npos ? received_.size() : end + 1;
    return line;
}

void ChildProcess::kill(int signal) {
    if (pid_ > 0) ::kill(pid_, signal);
}

ProcessResult ChildProcess::wait() {
    while (readMore()) {
    }
    ProcessResult result{reap(), received_, {}};
    std::rewind(errors_.get());
    for (int byte = 0; (byte = std::fgetc(errors_.get())) != EOF;) result.err += static_cast<char>(byte);
    return result;
}

/// False at the end of the output.
bool ChildProcess::readMore() {
    if (!output_) return false;
    std::array<char, 4096> block{};
    ssize_t count = -1;
    do {
        count = ::read(output_.get(), block.data(), block.size());
    } while (count < 0 && errno == EINTR);
    require(count >= 0, "read");
    received_.append(block.data(), static_cast<std::size_t>(count));
    return count > 0;
}

int ChildProcess::reap() {
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ChildProcess::Environment& environment,
                         const std::function<void(std::string_view line)>& onLine) {
    ChildProcess process(program, arguments, environment);
    while (const auto line = process.nextLine()) {
        if (onLine) onLine(*line);
    }
    return process.wait();
}

}  // namespace meetingcore::testing
