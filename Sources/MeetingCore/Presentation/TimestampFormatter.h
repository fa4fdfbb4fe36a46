#pragma once

#include <optional>
#include <string>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/TimeZone.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// How transcript times are shown: since the start of the recording, or as the time of day.
enum class TranscriptTimestampMode { elapsed, clock };

template <>
inline constexpr auto json::names<TranscriptTimestampMode> = std::to_array<std::string_view>({"elapsed",
                                                                                              "clock"});

/// A time as the transcript has it, made one that can be shown: what is not finite or negative becomes 0.
double shownSeconds(double seconds);

/// Writes many times of one recording. One object is for one thread at a time.
class TimestampFormatter {
public:
    /// Without a recording clock, times of day cannot be known and `clock` shows elapsed times.
    TimestampFormatter(TranscriptTimestampMode mode, const std::optional<RecordingClock>& recording);

    /// `HH:mm:ss`, as the time of day or elapsed; elapsed hours go on past 99. Fractions are cut off.
    std::string format(double seconds) const;

private:
    struct Clock {
        Date startedAt;
        TimeZone zone;
    };

    std::optional<Clock> clock_;
};

/// One time in the same form.
std::string format(TranscriptTimestampMode mode, double seconds,
                   const std::optional<RecordingClock>& recording);

}  // namespace meetingcore
