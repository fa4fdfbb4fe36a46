#include "Support/Process.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __APPLE__
extern char** environ;
#endif

namespace meetingcore::testing {

namespace {

void require(int error, const char* what) {
    if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) require(errno, "pipe");
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// What the child does with its standard descriptors between fork and exec.
class FileActions {
public:
    FileActions() { require(::posix_spawn_file_actions_init(&actions_), "posix_spawn_file_actions_init"); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void open(int target, const char* path) {
        require(::posix_spawn_file_actions_addopen(&actions_, target, path, O_RDONLY, 0), path);
    }
    void duplicate(int from, int target) {
        require(::posix_spawn_file_actions_adddup2(&actions_, from, target), "dup2");
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

class DefaultPipeSignal {
public:
    DefaultPipeSignal() {
        require(::posix_spawnattr_init(&attributes_), "posix_spawnattr_init");
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        ::posix_spawnattr_setsigdefault(&attributes_, &signals);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    }
    ~DefaultPipeSignal() { ::posix_spawnattr_destroy(&attributes_); }
    DefaultPipeSignal(const DefaultPipeSignal&) = delete;
    DefaultPipeSignal& operator=(const DefaultPipeSignal&) = delete;

    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

/// Our own environment with the additions, as NAME=VALUE.
std::vector<std::string> extendedEnvironment(const ChildProcess::Environment& additions) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        if (!additions.contains(text.substr(0, text.find('=')))) entries.push_back(text);
    }
    for (const auto& [name, value] : additions) entries.emplace_back(name).append("=").append(value);
    return entries;
}

/// Pointers into `texts`, which they must not outlive.
std::vector<char*> nullTerminated(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::string readFromStart(std::FILE* file) {
    std::string bytes;
    std::array<char, 4096> block{};
    std::rewind(file);
    for (;;) {
        const auto count = std::fread(block.data(), 1, block.size(), file);
        bytes.append(block.data(), count);
        if (count < block.size()) return bytes;
    }
}

}  // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                           const Environment& environment)
    : errors_(std::tmpfile()) {
    if (!errors_) require(errno, "tmpfile");
    auto output = makePipe();
    FileActions actions;
    actions.open(STDIN_FILENO, "/dev/null");
    actions.duplicate(output.writing.get(), STDOUT_FILENO);
    actions.duplicate(::fileno(errors_.get()), STDERR_FILENO);
    const DefaultPipeSignal attributes;
    std::vector<std::string> list{program.string()};
    list.insert(list.end(), arguments.begin(), arguments.end());
    auto entries = extendedEnvironment(environment);
    require(::posix_spawn(&pid_, program.c_str(), actions.get(), attributes.get(), nullTerminated(list).data(),
                          nullTerminated(entries).data()),
            program.c_str());
    output_ = std::move(output.reading);
}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    kill();
    reap();
}

std::optional<std::string> ChildProcess::nextLine() {
    auto searched = nextLine_;
    for (;;) {
        const auto end = received_.find('\n', searched);
        if (end != std::string::npos) {
            const auto begin = std::exchange(nextLine_, end + 1);
            return received_.substr(begin, end - begin);
        }
        searched = received_.size();
        if (readMore()) continue;
        if (nextLine_ == received_.size()) return std::nullopt;
        return received_.substr(std::exchange(nextLine_, received_.size()));
    }
}

void ChildProcess::kill(int signal) {
    if (pid_ > 0) ::kill(pid_, signal);
}

ProcessResult ChildProcess::wait() {
    while (readMore()) {
    }
    const int status = reap();
    return {status, received_, readFromStart(errors_.get())};
}

/// False at the end of the output.
bool ChildProcess::readMore() {
    if (!output_) return false;
    std::array<char, 4096> block{};
    ssize_t count = -1;
    do {
        count = ::read(output_.get(), block.data(), block.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0) require(errno, "read");
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
