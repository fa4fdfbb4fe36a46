#pragma once

#include <memory>
#include <optional>
#include <string>

#include "MeetingCore/Platform/Date.h"

namespace meetingcore {

/// An instant as calendar and clock show it in some zone (Gregorian calendar).
struct LocalTime {
    int year = 0;
    int month = 0;  ///< 1 to 12
    int day = 0;
    int hour = 0;  ///< 0 to 23
    int minute = 0;
    int second = 0;

    bool operator==(const LocalTime&) const = default;
};

/// A time zone with its daylight saving rules. One object is for one thread at a time.
class TimeZone {
public:
    /// The zone of this name in the IANA database; the system's current zone where there is none.
    explicit TimeZone(const std::string& identifier);

    /// The system's current zone.
    static TimeZone current() { return TimeZone({}); }

    /// Whether the IANA database has a zone of this name.
    static bool isKnown(const std::string& identifier);

    /// The name of the system's current zone, such as `Europe/Berlin`; what TZ says where that is no name of a
    /// zone, such as a rule.
    static std::string currentIdentifier();

    /// Fractions of a second are cut off. An instant that is not finite is taken for the reference date.
    LocalTime local(Date instant) const;

    /// When calendar and clock show this; the later time where they show it twice. Empty where they never do,
    /// for a date that there is not or a time that the clock skips.
    std::optional<Date> instant(const LocalTime& wanted) const;

private:
    struct Close {
        void operator()(void* calendar) const;
    };

    std::unique_ptr<void, Close> calendar_;
};

/// The instant in UTC as ISO 8601 text with whole seconds: `2025-03-14T09:26:53Z`.
std::string iso8601(Date instant);

}  // namespace meetingcore
