#include "MeetingCore/Library/MeetingReference.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/TimeZone.h"
#include "MeetingCore/Platform/TypedReference.h"

namespace meetingcore {

namespace {

constexpr std::size_t shortestBeginning = 4;
constexpr std::size_t shownDigits = 8;
constexpr std::size_t mostNamed = 5;

std::string dayOf(Date instant) {
    const auto time = TimeZone::current().local(instant);
    std::array<char, 40> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%02d.%02d.%04d", time.day, time.month, time.year);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string ambiguity(std::string_view reference, const std::vector<const MeetingEntry*>& found) {
    auto message = "Mehrere Meetings passen zu " + inQuotes(reference) + ":";
    for (std::size_t i = 0; i < std::min(found.size(), mostNamed); ++i) {
        message += (i == 0 ? " " : ", ") + found[i]->id.string().substr(0, shownDigits) + " " +
                   inQuotes(found[i]->title) + " (" + dayOf(found[i]->createdAt) + ")";
    }
    if (found.size() > mostNamed) message += " und " + std::to_string(found.size() - mostNamed) + " weitere";
    return message + ".";
}

}  // namespace

const MeetingEntry& findMeeting(const LibrarySnapshot& library, std::string_view reference) {
    const auto wanted = text::trimmed(reference);
    const auto title = text::folded(wanted);
    if (const auto id = UUID::parse(wanted)) {
        const auto exact = std::ranges::find(library.meetings, *id, &MeetingEntry::id);
        if (exact != library.meetings.end()) return *exact;  // whatever another one is called
    }
    std::vector<const MeetingEntry*> found;
    const bool mayBeID = wanted.size() >= shortestBeginning;
    for (const auto& meeting : library.meetings) {
        if ((mayBeID && beginsWith(meeting.id, wanted)) ||
            text::folded(text::trimmed(meeting.title)) == title) {
            found.push_back(&meeting);
        }
    }
    if (found.empty())
        throw MeetingError::invalidData("Kein Meeting passt zu " + inQuotes(wanted) + ".",
                                        MeetingError::Cause::meetingUnknown);
    if (found.size() > 1) throw MeetingError::invalidData(ambiguity(wanted, found));
    return *found.front();
}

}  // namespace meetingcore
