#include <cstdlib>
#include <limits>

#include "MeetingCore/Platform/TimeZone.h"
#include "MeetingCore/Presentation/TimestampFormatter.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using enum TranscriptTimestampMode;

// Set before anything asks: a zone of its own tells the machine's zone from UTC.
const int machineZone = ::setenv("TZ", "Asia/Kathmandu", 1);

TEST(RecordingClock, ShowsElapsedTimesAndTheTimeOfDayWhereItWasRecorded) {
    ASSERT_EQ(machineZone, 0);
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double tenOClock = 1'741'942'710;  // 2025-03-14 09:58:30 in Berlin
    constexpr double endOfSummer = 1'761'440'370, endOfWinter = 1'743'296'399;
    const struct {
        double start = 0, seconds = 0;
        const char* elapsedTime = nullptr;
        const char* timeOfDay = nullptr;
        const char* zone = "Europe/Berlin";
    } cases[] = {// clang-format off
        {tenOClock, 95, "00:01:35", "10:00:05"}, {tenOClock, 95.999, "00:01:35", "10:00:05"},
        {tenOClock, 3661, "01:01:01", "10:59:31"}, {tenOClock, 359'999.99, "99:59:59", "13:58:29"},
        {tenOClock, 360'000, "100:00:00", "13:58:30"}, {tenOClock, 54'000, "15:00:00", "00:58:30"},
        {tenOClock, -5, "00:00:00", "09:58:30"}, {tenOClock, infinity, "00:00:00", "09:58:30"},
        {tenOClock, -infinity, "00:00:00", "09:58:30"}, {tenOClock, infinity - infinity, "00:00:00", "09:58:30"},
        {endOfSummer, 0, "00:00:00", "02:59:30"}, {endOfSummer, 30, "00:00:30", "02:00:00"},
        {endOfSummer, 3630, "01:00:30", "03:00:00"}, {endOfWinter, 0, "00:00:00", "01:59:59"},
        {endOfWinter, 1, "00:00:01", "03:00:00"}, {tenOClock, 95, "00:01:35", "05:00:05", "America/New_York"},
        {tenOClock, 0, "00:00:00", "14:43:30", ""}, {tenOClock, 0, "00:00:00", "14:43:30", "Europe/Atlantis"},
        {tenOClock, 0, "00:00:00", "14:43:30", "Etc/Unknown"}, {tenOClock, 0, "00:00:00", "14:43:30", "Berl\xFFin"}};
    // clang-format on
    for (const auto& [start, seconds, elapsedTime, timeOfDay, zone] : cases) {
        const RecordingClock recording{Date::since1970(start), zone};
        EXPECT_EQ(format(elapsed, seconds, recording), elapsedTime) << seconds;
        EXPECT_EQ(format(clock, seconds, std::nullopt), elapsedTime) << seconds;
        EXPECT_EQ(format(clock, seconds, recording), timeOfDay) << start << " + " << seconds << " in " << zone;
    }
    EXPECT_EQ(format(clock, 1e300, std::nullopt), "2500000000000000:00:00");
    EXPECT_EQ(format(clock, 1e300, RecordingClock{Date(), "Europe/Berlin"}).size(), 8U);
}

TEST(TimeZone, IsNotStoredUnderAnotherNameThanItsOwn) {
    const std::pair<const char*, const char*> cases[] = {{"Europe/Berlin", "Europe/Berlin"},
                                                         {":America/New_York", "America/New_York"},
                                                         {"EST5EDT", "EST5EDT"},
                                                         {"posix/Europe/Berlin", "Europe/Berlin"},
                                                         {"", "Etc/UTC"},
                                                         {"CET-1CEST,M3.5.0,M10.5.0/3", nullptr},
                                                         {"CET-1CEST", nullptr},
                                                         {"/etc/localtime", nullptr},
                                                         {"Quatsch", nullptr}};
    for (const auto& [set, identifier] : cases) {
        ::setenv("TZ", set, 1);
        EXPECT_EQ(TimeZone::currentIdentifier(), identifier == nullptr ? set : identifier);
        EXPECT_EQ(TimeZone::isKnown(TimeZone::currentIdentifier()), identifier != nullptr) << set;
    }
    ::setenv("TZ", "Asia/Kathmandu", 1);
}

}  // namespace
}  // namespace meetingcore::testing
