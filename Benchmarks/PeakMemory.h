#pragma once

#include <functional>
#include <stdexcept>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace meetingcore::benchmarks {

/// The most memory in MiB that a process held which does this work beside what this one holds. Throws
/// std::runtime_error where it fails.
inline double peakMiBOf(const std::function<void()>& work) {
    const auto child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(child, &status, 0, &usage) != child || status != 0)
        throw std::runtime_error("the child failed");
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

}  // namespace meetingcore::benchmarks
