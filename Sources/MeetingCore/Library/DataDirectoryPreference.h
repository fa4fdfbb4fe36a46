#pragma once

#include <filesystem>
#include <string_view>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Preferences.h"

namespace meetingcore {

/// The folder that holds all of the user's data: "quillmoot.sqlite", the folder "Meetings" and "library.json".
/// The user may choose another than the default one. Errors are MeetingErrors.
namespace DataDirectoryPreference {

/// The preference under which the chosen folder's absolute path is kept. Absent for the default folder.
inline constexpr std::string_view key = "localDataDirectory";

/// "Quillstead" in the user's application-support folder.
std::filesystem::path defaultRoot();

/// The chosen folder, else the default one. Nothing tells whether it exists.
std::filesystem::path selectedRoot(const UserDefaults& defaults);

/// Chooses a folder once it was found valid. Any error leaves the choice as it was.
void select(const std::filesystem::path& folder, UserDefaults& defaults,
            FileManager& files = FileManager::system());

/// Throws unless the folder can be reached and written to and is either empty or a data folder whose library
/// this version can read. Leaves nothing behind in it.
void validate(const std::filesystem::path& folder, FileManager& files = FileManager::system());

}  // namespace DataDirectoryPreference
}  // namespace meetingcore
