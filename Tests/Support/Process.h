#pragma once

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Support/ForkedProcess.h"

namespace meetingcore::testing {

/// How a program ended and what it wrote, byte for byte.
struct ProcessResult {
    int status = 0;  ///< exit status, or the negated number of the signal that ended it
    std::string out;
    std::string err;
};

/// A started program whose standard output is read through a pipe while it runs. Its standard error goes to an
/// unnamed file, so that however much it writes there, it never waits for us. Its standard input is empty.
/// Killed and awaited when it goes out of scope.
///
/// Used by one thread. Throws `std::system_error` where the system fails us.
class ChildProcess {
public:
    using Environment = std::map<std::string, std::string>;

    /// Starts `program` (a path, not searched for); one that cannot be started ends with status 127. Its
    /// environment is ours and `environment`; SIGPIPE has its default action, whatever we do with it. To be
    /// called while we have one thread.
    ChildProcess(const std::filesystem::path& program, std::vector<std::string> arguments,
                 const Environment& environment = {});

    /// Waits for the next line of the standard output and returns it without its line feed; nothing at the end.
    /// What follows the last line feed counts as a line too.
    std::optional<std::string> nextLine();

    /// Closes our end of the pipe: from now on the program's writes fail.
    void closeOutput() { output_.reset(); }

    void kill() { process_->kill(); }

    /// Reads the output to its end, waits for the program and returns all that it wrote until then.
    ProcessResult wait();

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
    };
    using File = std::unique_ptr<std::FILE, CloseFile>;

    File output_, errors_;
    std::string received_;
    std::optional<ForkedProcess> process_;
};

/// Runs a program to its end.
ProcessResult runProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const ChildProcess::Environment& environment = {});

}  // namespace meetingcore::testing
