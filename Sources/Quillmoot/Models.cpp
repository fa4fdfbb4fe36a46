#include "Models.h"

#include <cstdlib>

#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore::quillmoot {

std::filesystem::path modelFolder(const std::string& option, const std::filesystem::path& root) {
    if (!option.empty()) return std::filesystem::absolute(option);
    const char* const set = std::getenv("MEETING_MODELS");
    return set != nullptr && *set != '\0' ? std::filesystem::absolute(set) : root / layout::models;
}

}  // namespace meetingcore::quillmoot
