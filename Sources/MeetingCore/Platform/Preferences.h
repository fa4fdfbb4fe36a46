#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

/// The user's own folders for programs, which need not exist. Where the environment variables of
/// freedesktop.org (XDG base directories) name an absolute path they decide, else the platform's usual place in
/// the home folder does. Throws MeetingError (notConfigured) where the user has no home folder.
namespace userFolder {

/// $XDG_CONFIG_HOME, else ~/.config; on macOS ~/Library/Preferences.
std::filesystem::path configuration();

/// $XDG_DATA_HOME, else ~/.local/share; on macOS ~/Library/Application Support.
std::filesystem::path applicationSupport();

}  // namespace userFolder

/// The user's preferences: texts by key, one JSON object in one file.
///
/// Every call reads the file anew, and a change replaces it as a whole, so of two processes that change it at
/// the same time one may lose its change. Throws MeetingError for a file that cannot be read, since taking it
/// for empty would silently put every preference back.
class UserDefaults {
public:
    /// The program's preferences, "Quillstead/preferences.json" in the user's configuration folder.
    static UserDefaults standard();

    /// The file and its folder are created by the first `set`. The file manager must outlive the object.
    explicit UserDefaults(std::filesystem::path file, FileManager& files = FileManager::system());

    const std::filesystem::path& file() const noexcept { return file_; }

    /// The value of a key; nothing where it has none.
    std::optional<std::string> string(std::string_view key) const;

    /// Sets a value, which must be UTF-8 (else invalidData). Durable on return.
    void set(std::string_view key, const std::string& value);

    /// Removes a value. Durable on return.
    void remove(std::string_view key);

private:
    using Values = std::map<std::string, std::string>;

    Values read() const;
    void write(const Values& values);

    std::filesystem::path file_;
    FileManager& files_;
};

}  // namespace meetingcore
