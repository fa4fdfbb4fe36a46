#include "MeetingCore/Platform/TimeZone.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <unicode/ucal.h>
#include <unicode/ustring.h>

namespace meetingcore {

namespace {

void check(UErrorCode status) {
    if (U_FAILURE(status) != 0) throw std::runtime_error(u_errorName(status));
}

/// Invalid UTF-8 leads to no zone of any name.
std::u16string utf16(const std::string& identifier) {
    std::u16string out(identifier.size(), u'\0');
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromUTF8(out.data(), static_cast<std::int32_t>(out.size()), &length, identifier.data(),
                  static_cast<std::int32_t>(identifier.size()), &status);
    out.resize(U_FAILURE(status) != 0 ? 0 : static_cast<std::size_t>(length));
    return out;
}

bool isZone(const std::u16string& identifier) {
    if (identifier.empty() || identifier == u"" UCAL_UNKNOWN_ZONE_ID) return false;
    UChar canonical[128];
    UErrorCode status = U_ZERO_ERROR;
    ucal_getCanonicalTimeZoneID(identifier.data(), static_cast<std::int32_t>(identifier.size()), canonical,
                                static_cast<std::int32_t>(std::size(canonical)), nullptr, &status);
    return U_SUCCESS(status) != 0;
}

/// What stands before a zone's name in TZ says where to look for it.
std::string withoutPrefixes(std::string_view name) {
    for (const std::string_view prefix : {":", "posix/", "right/"})
        if (name.starts_with(prefix)) name.remove_prefix(prefix.size());
    return std::string(name);
}

/// Asked anew each time, unlike ICU's default zone, which stays as it was when the process first used it.
std::u16string currentZone() {
    // POSIX: the zone of an empty name is UTC.
    if (const char* const set = std::getenv("TZ"); set != nullptr && *set == '\0') return u"Etc/UTC";
    UChar identifier[128];
    UErrorCode status = U_ZERO_ERROR;
    const auto length =
        ucal_getHostTimeZone(identifier, static_cast<std::int32_t>(std::size(identifier)), &status);
    check(status);
    return {identifier, static_cast<std::size_t>(length)};
}

}  // namespace

void TimeZone::Close::operator()(void* calendar) const { ucal_close(static_cast<UCalendar*>(calendar)); }

std::string TimeZone::currentIdentifier() {
    // ICU takes the computer's own zone for a rule like "CET-1CEST", which then would be stored in its place.
    if (const char* const set = std::getenv("TZ"); set != nullptr && *set != '\0') {
        if (!isKnown(withoutPrefixes(set))) return set;
    }
    const auto zone = currentZone();
    return {zone.begin(), zone.end()};  // names of zones are ASCII
}

bool TimeZone::isKnown(const std::string& identifier) { return isZone(utf16(identifier)); }

TimeZone::TimeZone(const std::string& identifier) {
    auto zone = utf16(identifier);
    if (!isZone(zone)) zone = currentZone();
    UErrorCode status = U_ZERO_ERROR;
    calendar_.reset(
        ucal_open(zone.data(), static_cast<std::int32_t>(zone.size()), "en_US_POSIX", UCAL_GREGORIAN, &status));
    check(status);
}

LocalTime TimeZone::local(Date instant) const {
    const double seconds = instant.secondsSince1970();
    auto* const calendar = static_cast<UCalendar*>(calendar_.get());
    UErrorCode status = U_ZERO_ERROR;
    ucal_setMillis(calendar, (std::isfinite(seconds) ? seconds : Date().secondsSince1970()) * 1000, &status);
    const auto get = [&](UCalendarDateFields field) { return ucal_get(calendar, field, &status); };
    const LocalTime local{get(UCAL_YEAR),        get(UCAL_MONTH) + 1, get(UCAL_DATE),
                          get(UCAL_HOUR_OF_DAY), get(UCAL_MINUTE),    get(UCAL_SECOND)};
    check(status);
    return local;
}

std::optional<Date> TimeZone::instant(const LocalTime& wanted) const {
    auto* const calendar = static_cast<UCalendar*>(calendar_.get());
    UErrorCode status = U_ZERO_ERROR;
    ucal_clear(calendar);  // also the milliseconds
    ucal_setDateTime(calendar, wanted.year, wanted.month - 1, wanted.day, wanted.hour, wanted.minute,
                     wanted.second, &status);
    const auto found = Date::since1970(ucal_getMillis(calendar, &status) / 1000);
    check(status);
    // ICU goes round what there is not.
    return local(found) == wanted ? std::optional(found) : std::nullopt;
}

std::string iso8601(Date instant) {
    const auto local = TimeZone("UTC").local(instant);
    char buffer[96];
    const int length = std::snprintf(buffer, sizeof(buffer), "%04d-%02d-%02dT%02d:%02d:%02dZ", local.year,
                                     local.month, local.day, local.hour, local.minute, local.second);
    return {buffer, static_cast<std::size_t>(length)};
}

}  // namespace meetingcore
