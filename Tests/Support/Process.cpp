#include "Support/Process.h"

#include <array>
#include <cstdlib>

#include <fcntl.h>

#include "MeetingCore/Platform/FileDescriptor.h"

namespace meetingcore::testing {

ChildProcess::ChildProcess(const std::filesystem::path& program, std::vector<std::string> arguments,
                           const Environment& environment)
    : errors_(std::tmpfile()) {
    std::array<int, 2> ends{};
    if (!errors_ || ::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    output_.reset(::fdopen(ends[0], "r"));
    const FileDescriptor writing(ends[1]);
    for (const int own : {ends[0], ends[1], ::fileno(errors_.get())}) ::fcntl(own, F_SETFD, FD_CLOEXEC);
    std::string name = program.string();
    std::vector<char*> list{name.data()};
    for (auto& argument : arguments) list.push_back(argument.data());
    list.push_back(nullptr);
    process_.emplace([&] {
        ::dup2(FileDescriptor::open("/dev/null", O_RDONLY).get(), STDIN_FILENO);
        ::dup2(writing.get(), STDOUT_FILENO);
        ::dup2(::fileno(errors_.get()), STDERR_FILENO);
        static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
        for (const auto& [variable, value] : environment) ::setenv(variable.c_str(), value.c_str(), 1);
        ::execv(name.c_str(), list.data());
        std::perror(name.c_str());
        return 127;
    });
}

std::optional<std::string> ChildProcess::nextLine() {
    std::string line;
    for (int byte = 0; output_ && !line.ends_with('\n') && (byte = std::fgetc(output_.get())) != EOF;)
        line += static_cast<char>(byte);
    if (line.empty()) return std::nullopt;
    received_ += line;
    if (line.ends_with('\n')) line.pop_back();
    return line;
}

ProcessResult ChildProcess::wait() {
    while (nextLine()) {
    }
    ProcessResult result{process_->wait(), received_, {}};
    std::rewind(errors_.get());
    for (int byte = 0; (byte = std::fgetc(errors_.get())) != EOF;) result.err += static_cast<char>(byte);
    return result;
}

ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ChildProcess::Environment& environment) {
    return ChildProcess(program, arguments, environment).wait();
}

}  // namespace meetingcore::testing
