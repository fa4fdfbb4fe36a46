#include <cstdlib>
#include <ctime>
#include <limits>

#include <gtest/gtest.h>

#include "MeetingCore/Presentation/RecordingClock.h"

namespace meetingcore {
namespace {

using enum TranscriptTimestampMode;

// Set before anything asks: a zone of its own tells the machine's zone from UTC.
const int machineZone = ::setenv("TZ", "Asia/Kathmandu", 1);

const Date nearTen = Date::since1970(1'741'942'710);  // 2025-03-14 09:58:30 in Berlin

RecordingClock berlin(Date start) { return {start, "Europe/Berlin"}; }

TEST(RecordingClock, ShowsElapsedTimesWithAllTheirHours) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const std::pair<double, const char*> cases[] = {
        {0, "00:00:00"},
        {59.999, "00:00:59"},
        {3661, "01:01:01"},
        {359'999.99, "99:59:59"},
        {360'000, "100:00:00"},
        {-5, "00:00:00"},
        {-infinity, "00:00:00"},
        {infinity, "00:00:00"},
        {std::numeric_limits<double>::quiet_NaN(), "00:00:00"},
        {1e300, "2500000000000000:00:00"},
    };
    for (const auto& [seconds, expected] : cases) {
        EXPECT_EQ(format(elapsed, seconds, berlin(nearTen)), expected) << seconds;
        EXPECT_EQ(format(clock, seconds, std::nullopt), expected) << seconds;
    }
}

TEST(RecordingClock, ShowsTheTimeOfDayWhereItWasRecorded) {
    EXPECT_EQ(format(clock, 95, berlin(nearTen)), "10:00:05");
    EXPECT_EQ(format(clock, 95.999, berlin(nearTen)), "10:00:05");
    EXPECT_EQ(format(clock, -1, berlin(nearTen)), "09:58:30");
    EXPECT_EQ(format(clock, 15 * 3600, berlin(nearTen)), "00:58:30");
    EXPECT_EQ(format(clock, 1e300, berlin(nearTen)).size(), 8U);
    EXPECT_EQ(format(clock, 95, RecordingClock{nearTen, "America/New_York"}), "05:00:05");
}

TEST(RecordingClock, FollowsDaylightSaving) {
    const auto endOfSummer = Date::since1970(1'761'440'370);  // 2025-10-26 02:59:30 summer time
    EXPECT_EQ(format(clock, 0, berlin(endOfSummer)), "02:59:30");
    EXPECT_EQ(format(clock, 30, berlin(endOfSummer)), "02:00:00");
    EXPECT_EQ(format(clock, 3630, berlin(endOfSummer)), "03:00:00");
    const auto endOfWinter = Date::since1970(1'743'296'399);  // 2025-03-30 01:59:59 winter time
    EXPECT_EQ(format(clock, 0, berlin(endOfWinter)), "01:59:59");
    EXPECT_EQ(format(clock, 1, berlin(endOfWinter)), "03:00:00");
}

TEST(RecordingClock, TakesTheMachinesZoneForAnUnknownOne) {
    ASSERT_EQ(machineZone, 0);
    const auto now = static_cast<std::time_t>(nearTen.secondsSince1970());
    std::tm local{};
    ASSERT_NE(::localtime_r(&now, &local), nullptr);
    char expected[16];
    ASSERT_EQ(std::strftime(expected, sizeof(expected), "%H:%M:%S", &local), 8U);
    for (const char* zone : {"", "Europe/Atlantis", "Etc/Unknown", "Berl\xFFin"}) {
        EXPECT_EQ(format(clock, 0, RecordingClock{nearTen, zone}), expected) << zone;
    }
}

TEST(RecordingClock, IsStoredUnderItsFieldNames) {
    const std::string text = R"({"startedAt":763634510,"timeZoneIdentifier":"Europe\/Berlin"})";
    const auto read = json::decode<RecordingClock>(text, "Aufnahmezeit");
    EXPECT_EQ(read, berlin(Date::sinceReferenceDate(763'634'510)));
    EXPECT_EQ(json::encode(read), text);
}

}  // namespace
}  // namespace meetingcore
