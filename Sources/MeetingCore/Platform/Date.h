#pragma once

#include <chrono>
#include <compare>

namespace meetingcore {

/// An instant, kept as seconds since 2001-01-01 00:00:00 UTC, the reference date of all stored JSON.
/// Operations that depend on the time take a Date, so that tests pass their own.
class Date {
public:
    Date() = default;

    static constexpr Date sinceReferenceDate(double seconds) { return Date(seconds); }
    static constexpr Date since1970(double seconds) { return Date(seconds - referenceSince1970); }

    static Date now() {
        const auto elapsed = std::chrono::system_clock::now().time_since_epoch();
        return since1970(std::chrono::duration<double>(elapsed).count());
    }

    constexpr double secondsSinceReferenceDate() const { return seconds_; }
    constexpr double secondsSince1970() const { return seconds_ + referenceSince1970; }

    constexpr Date advanced(double seconds) const { return Date(seconds_ + seconds); }

    auto operator<=>(const Date&) const = default;  // NOLINT(modernize-use-nullptr): misled by "< 0"

private:
    static constexpr double referenceSince1970 = 978'307'200;

    explicit constexpr Date(double seconds) : seconds_(seconds) {}

    double seconds_ = 0;
};

}  // namespace meetingcore
