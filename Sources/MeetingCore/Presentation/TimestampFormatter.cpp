#include "MeetingCore/Presentation/TimestampFormatter.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace meetingcore {

namespace {

std::string clockText(std::int64_t hours, int minutes, int seconds) {
    char buffer[64];
    const int length = std::snprintf(buffer, sizeof(buffer), "%02lld:%02d:%02d", static_cast<long long>(hours),
                                     minutes, seconds);
    return {buffer, static_cast<std::size_t>(length)};
}

std::string elapsedText(double seconds) {
    constexpr double limit = 9e18;  // what 64 bits hold
    const auto whole = static_cast<std::int64_t>(std::min(seconds, limit));
    return clockText(whole / 3600, static_cast<int>(whole % 3600 / 60), static_cast<int>(whole % 60));
}

}  // namespace

double shownSeconds(double seconds) { return std::isfinite(seconds) && seconds > 0 ? seconds : 0; }

TimestampFormatter::TimestampFormatter(TranscriptTimestampMode mode,
                                       const std::optional<RecordingClock>& recording) {
    if (mode == TranscriptTimestampMode::clock && recording) {
        clock_.emplace(Clock{recording->startedAt, TimeZone(recording->timeZoneIdentifier)});
    }
}

std::string TimestampFormatter::format(double seconds) const {
    const double shown = shownSeconds(seconds);
    if (!clock_) return elapsedText(shown);
    const auto local = clock_->zone.local(clock_->startedAt.advanced(shown));
    return clockText(local.hour, local.minute, local.second);
}

std::string format(TranscriptTimestampMode mode, double seconds,
                   const std::optional<RecordingClock>& recording) {
    return TimestampFormatter(mode, recording).format(seconds);
}

}  // namespace meetingcore
