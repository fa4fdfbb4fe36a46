#include "MeetingCore/Library/DataDirectoryPreference.h"

#include <algorithm>
#include <string>
#include <vector>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore::DataDirectoryPreference {

namespace fs = std::filesystem;

namespace {

/// Absolute, without `.`, `..` and a slash at the end.
fs::path standardised(const fs::path& folder) {
    std::error_code nowhere;
    auto path = fs::absolute(folder, nowhere).lexically_normal();
    return path.has_filename() || !path.has_relative_path() ? path : path.parent_path();
}

bool isReachable(const fs::path& folder) {
    std::error_code unreachable;
    return fs::is_directory(folder, unreachable);
}

void requireWritable(const fs::path& folder, FileManager& files) {
    const auto probe = folder / (".quillmoot-write-check-" + UUID::random().string());
    files.createFile(probe)->close();
    files.remove(probe);
}

}  // namespace

fs::path defaultRoot() { return userFolder::applicationSupport() / "Quillstead"; }

fs::path selectedRoot(const UserDefaults& defaults) {
    const auto chosen = defaults.string(key);
    return chosen ? standardised(*chosen) : defaultRoot();
}

void select(const fs::path& folder, UserDefaults& defaults, FileManager& files) {
    const auto chosen = standardised(folder);
    validate(chosen, files);
    defaults.set(key, chosen.string());
}

void validate(const fs::path& folder, FileManager& files) {
    if (!isReachable(folder)) {
        throw MeetingError::storage(
            "Der gewählte Datenordner ist nicht erreichbar. Bitte das Laufwerk verbinden oder in den "
            "Einstellungen einen anderen Ordner wählen.",
            MeetingError::Cause::dataFolderUnreachable);
    }
    auto names = files.list(folder);
    std::erase(names, ".DS_Store");
    const auto has = [&](std::string_view name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (!names.empty() && !(has(layout::queue) && has(layout::meetings))) {
        throw MeetingError::storage(
            "Bitte einen leeren Ordner oder einen vorhandenen Quillmoot-Datenordner wählen.");
    }
    if (has(layout::library)) static_cast<void>(MeetingLibrary::read(folder / layout::library, files));
    requireWritable(folder, files);
}

}  // namespace meetingcore::DataDirectoryPreference
