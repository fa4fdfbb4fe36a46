#include "MeetingCore/Platform/Preferences.h"

#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

#include <pwd.h>
#include <unistd.h>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

#ifdef __APPLE__
constexpr const char* configurationInHome = "Library/Preferences";
constexpr const char* applicationSupportInHome = "Library/Application Support";
#else
constexpr const char* configurationInHome = ".config";
constexpr const char* applicationSupportInHome = ".local/share";
#endif

/// The value of an environment variable where it is an absolute path. Relative ones are to be ignored, since
/// they would mean another folder in every working directory.
std::optional<fs::path> pathFromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr || !fs::path(value).is_absolute()) return std::nullopt;
    return fs::path(value);
}

fs::path home() {
    if (const auto named = pathFromEnvironment("HOME")) return *named;
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> texts(16'384);
    if (::getpwuid_r(::getuid(), &entry, texts.data(), texts.size(), &found) == 0 && found != nullptr &&
        fs::path(entry.pw_dir).is_absolute()) {
        return entry.pw_dir;
    }
    throw MeetingError::notConfigured("Für dieses Benutzerkonto ist kein Benutzerordner eingerichtet.");
}

fs::path folder(const char* variable, const char* inHome) {
    const auto named = pathFromEnvironment(variable);
    return named ? *named : home() / inHome;
}

}  // namespace

namespace userFolder {

fs::path configuration() { return folder("XDG_CONFIG_HOME", configurationInHome); }

fs::path applicationSupport() { return folder("XDG_DATA_HOME", applicationSupportInHome); }

}  // namespace userFolder

UserDefaults UserDefaults::standard() {
    return UserDefaults(userFolder::configuration() / "Quillstead" / "preferences.json");
}

UserDefaults::UserDefaults(fs::path file, FileManager& files) : file_(std::move(file)), files_(files) {}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    const auto values = read();
    const auto found = values.find(std::string(key));
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

void UserDefaults::set(std::string_view key, const std::string& value) {
    if (text::repaired(value) != value) {
        throw MeetingError::invalidData(
            "Die Einstellung kann nicht gespeichert werden: Sie ist kein gültiger Text.");
    }
    auto values = read();
    values[std::string(key)] = value;
    write(values);
}

void UserDefaults::remove(std::string_view key) {
    auto values = read();
    if (values.erase(std::string(key)) > 0) write(values);
}

UserDefaults::Values UserDefaults::read() const {
    if (!pathExists(file_)) return {};
    const auto bytes = files_.read(file_, 0, std::numeric_limits<std::size_t>::max());
    return json::decode<Values>(bytes, "Die Einstellungsdatei " + file_.string());
}

void UserDefaults::write(const Values& values) {
    createDirectories(files_, file_.parent_path());
    writeAtomically(files_, json::encode(values), file_);
}

}  // namespace meetingcore
