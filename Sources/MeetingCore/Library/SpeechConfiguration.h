#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/JSON.h"

namespace meetingcore {

/// The local models for speech recognition.
enum class SpeechModel { nemotron, parakeet };

template <>
inline constexpr auto json::names<SpeechModel> = std::to_array<std::string_view>({"nemotron", "parakeet"});

/// The model's name as it is shown.
std::string_view displayName(SpeechModel model);

/// How the speech of one meeting is recognised, "speech-configuration.json" in its folder. Kept with the
/// meeting, so that it is transcribed again as it was recorded.
struct SpeechConfiguration {
    SpeechModel model = SpeechModel::parakeet;
    std::string language;              ///< "de-DE", or "auto" to have it detected
    std::vector<std::string> phrases;  ///< names and terms that recognition favours, at most 100
    float boost = 2;                   ///< how strongly it favours them, 1 to 3

    /// For meetings that have no configuration of their own.
    static SpeechConfiguration legacy();

    /// The meeting's configuration, checked; `legacy` where it has none. `root` is the data folder. Throws
    /// MeetingError where the file cannot be read (storage) or breaks a rule (invalidData).
    static SpeechConfiguration forSession(const UUID& session, const std::filesystem::path& root,
                                          FileManager& files = FileManager::system());

    /// The configuration with trimmed phrases, without empty ones and without those that differ from an earlier
    /// one in case alone. Throws MeetingError (invalidData) for the first rule that is broken.
    SpeechConfiguration validated() const;

    bool operator==(const SpeechConfiguration&) const = default;
};

template <>
inline constexpr auto json::fields<SpeechConfiguration> = json::record(
    json::field("model", &SpeechConfiguration::model), json::field("language", &SpeechConfiguration::language),
    json::field("phrases", &SpeechConfiguration::phrases), json::field("boost", &SpeechConfiguration::boost));

}  // namespace meetingcore
