#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/StopRequest.h"

namespace meetingcore {

/// A program to run, and how much it may take.
struct SubprocessCommand {
    /// The program first: a path, or a name without a slash that is searched for in PATH. Nothing is
    /// interpreted.
    std::vector<std::string> arguments;

    std::optional<std::chrono::milliseconds> timeLimit = {};
    std::chrono::milliseconds patience{5000};  ///< from SIGTERM, which asks it to end, to SIGKILL

    std::size_t maximumOutputBytes = 67'108'864;  ///< of its standard output; of one line where `onLine` is set

    /// Gets each line of the standard output as it comes, without its line feed, on the calling thread; what
    /// follows the last line feed counts as a line too. Without it the output is collected.
    std::function<void(std::string_view line)> onLine = {};
};

/// How a program ended.
struct SubprocessResult {
    enum class End { byItself, stopped, timeLimit, outputLimit };

    End end = End::byItself;
    int status = 0;          ///< exit status, or the negated number of the signal that ended it
    std::string output;      ///< of a program without `onLine`; any bytes
    std::string lastErrors;  ///< the last 4 KiB of its standard error, as valid UTF-8

    /// "Status 1" or "Signal 9", followed by the last line of the standard error where there is one: the end of
    /// a German sentence.
    std::string description() const;
};

/// Runs a program to its end.
///
/// The program gets an empty standard input, pipes as standard output and error, no other descriptor, the
/// default action of every signal, and a process group of its own: what is typed at the terminal does not reach
/// it. A stop request or a limit that it exceeds sends SIGTERM to the whole group, and SIGKILL when its
/// patience is over. When the program has ended, however that came, what is left of its group is killed:
/// nothing that it started in the background outlives it, unless that made a group of its own.
///
/// Any number may run at the same time, one per calling thread. The process must not ignore SIGCHLD or wait for
/// unknown children elsewhere, since that loses the exit status.
///
/// Throws MeetingError where the program cannot be started (notConfigured when it is missing or no program) and
/// what `onLine` throws; the program has ended then.
SubprocessResult runSubprocess(const SubprocessCommand& command, const StopRequest& stop);

}  // namespace meetingcore
