#include "SummaryWorker/Progress.h"

#include <cerrno>
#include <map>

#include <unistd.h>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

namespace {

constexpr std::size_t maximumMessageCharacters = 1000;

}  // namespace

std::string progressLine(std::string_view state, const std::optional<std::string>& message) {
    std::map<std::string, std::string> line{{"version", "1"}, {"state", std::string(state)}};
    if (message) line["message"] = text::prefix(text::repaired(*message), maximumMessageCharacters);
    return json::encode(line) + "\n";
}

void progress(std::string_view state, const std::optional<std::string>& message) {
    const auto line = progressLine(state, message);
    while (::write(STDOUT_FILENO, line.data(), line.size()) < 0 && errno == EINTR) {
    }
}

}  // namespace meetingcore
