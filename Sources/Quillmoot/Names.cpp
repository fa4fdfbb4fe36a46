#include "Names.h"

#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Platform/Text.h"
#include "Terminal.h"

namespace meetingcore::quillmoot {

std::string shortID(const UUID& id) { return id.string().substr(0, 8); }

std::string checkedName(const std::string& typed, const char* what) {
    const auto name = text::trimmed(typed);
    if (printable(name) != name)
        throw MeetingError::invalidData(std::string(what) + " darf keine Steuerzeichen enthalten.");
    return std::string(name);
}

bool sameName(std::string_view a, std::string_view b) {
    return text::folded(text::trimmed(a)) == text::folded(text::trimmed(b));
}

std::optional<std::string> projectName(const LibrarySnapshot& library, const MeetingEntry& meeting) {
    const auto found = std::ranges::find_if(library.projects, [&](const MeetingProject& project) {
        return meeting.projectID && project.id == *meeting.projectID;
    });
    return found == library.projects.end() ? std::nullopt : std::optional(found->name);
}

}  // namespace meetingcore::quillmoot
