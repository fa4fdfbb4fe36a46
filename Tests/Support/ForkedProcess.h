#pragma once

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <system_error>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

namespace meetingcore::testing {

/// A second process that runs a function and ends with what it returns, or with status 99 where it throws.
/// Start it while the parent has one thread and no open database. Killed and awaited when it goes out of scope.
class ForkedProcess {
public:
    explicit ForkedProcess(const std::function<int()>& body) : id_(::fork()) {
        if (id_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (id_ > 0) return;
        int status = 99;
        try {
            status = body();
        } catch (const std::exception& error) {
            static_cast<void>(std::fprintf(stderr, "The forked process ended with: %s\n", error.what()));
        }
        ::_exit(status);
    }
    ~ForkedProcess() { kill(); }
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;
    ForkedProcess(ForkedProcess&& other) noexcept : id_(std::exchange(other.id_, -1)), status_(other.status_) {}
    ForkedProcess& operator=(ForkedProcess&&) = delete;

    /// Waits for the end and returns the exit status, or the negated number of the signal that ended it.
    int wait() {
        if (id_ < 0) return status_;
        while (::waitpid(id_, &status_, 0) < 0 && errno == EINTR) {
        }
        id_ = -1;
        return status_ = WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
    }

    /// Ends the process as a crash would.
    void kill() {
        if (id_ > 0) ::kill(id_, SIGKILL);
        wait();
    }

private:
    pid_t id_;
    int status_ = 0;
};

/// A pipe through which processes tell each other that they have come this far.
class Signal {
public:
    Signal() {
        if (::pipe(ends_) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    }
    ~Signal() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    /// Lets one `await` return.
    void send() const {
        if (::write(ends_[1], "x", 1) != 1) throw std::system_error(errno, std::generic_category(), "write");
    }

    void await() const {
        char received = 0;
        while (::read(ends_[0], &received, 1) < 0 && errno == EINTR) {
        }
    }

private:
    int ends_[2] = {-1, -1};
};

}  // namespace meetingcore::testing
