#pragma once

#include <cerrno>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace meetingcore {

/// Owns a POSIX file descriptor. Never inherited by child processes.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileDescriptor() { close(); }

    /// Opens with O_CLOEXEC, again after an interruption. Empty on failure, with errno set.
    static FileDescriptor open(const std::filesystem::path& path, int flags, mode_t mode = 0) {
        int descriptor = -1;
        do {
            descriptor = ::open(path.c_str(), flags | O_CLOEXEC, mode);
        } while (descriptor < 0 && errno == EINTR);
        return FileDescriptor(descriptor);
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

    /// Closes once; an interrupted close is not repeated, since the number may belong to another file by then.
    /// False where the system reported an error, with errno set.
    bool close() {
        const int descriptor = std::exchange(descriptor_, -1);
        return descriptor < 0 || ::close(descriptor) == 0 || errno == EINTR;
    }

private:
    int descriptor_ = -1;
};

/// Opens /dev/null under every standard descriptor that whoever started the program closed. Otherwise the next
/// file opened, the database say, would get that number, and messages would be written into it.
inline void occupyStandardDescriptors() {
    int descriptor = STDIN_FILENO;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor >= 0) ::close(descriptor);
}

}  // namespace meetingcore
