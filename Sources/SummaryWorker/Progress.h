#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace meetingcore {

/// One line of the progress protocol: a JSON object of strings with "version", "state" and, when given, the
/// first 1000 characters of "message", ended by a line feed.
std::string progressLine(std::string_view state, const std::optional<std::string>& message);

/// Writes the line to standard output in one write. Never fails: a reader that has gone must not end the work.
void progress(std::string_view state, const std::optional<std::string>& message = std::nullopt);

/// How a task reports that it has reached a state.
using ProgressReport = std::function<void(std::string_view state)>;

}  // namespace meetingcore
