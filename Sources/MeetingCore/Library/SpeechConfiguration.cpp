#include "MeetingCore/Library/SpeechConfiguration.h"

#include <cmath>
#include <unordered_set>
#include <utility>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

template SpeechConfiguration json::decode(std::string_view, const std::string&);

namespace {

constexpr std::size_t maximumPhrases = 100;
constexpr std::size_t maximumPhraseCharacters = 100;

}  // namespace

std::string_view displayName(SpeechModel model) {
    return model == SpeechModel::nemotron ? "Nemotron 3.5 ASR" : "Parakeet TDT v3";
}

SpeechConfiguration SpeechConfiguration::legacy() { return {SpeechModel::parakeet, "auto", {}, 2}; }

SpeechConfiguration SpeechConfiguration::forSession(const UUID& session, const std::filesystem::path& root,
                                                    FileManager& files) {
    const auto file = layout::meetingFolder(root, session) / layout::speechConfiguration;
    return TranscriptStorage::readOptional<SpeechConfiguration>(file, files).value_or(legacy()).validated();
}

SpeechConfiguration SpeechConfiguration::validated() const {
    const bool inRange = (language == "de-DE" || language == "auto") && std::isfinite(boost) && boost >= 1 &&
                         boost <= 3 && phrases.size() <= maximumPhrases;
    if (!inRange) {
        throw MeetingError::invalidData(
            "Bitte Deutsch oder Automatisch, Stärke 1–3 und höchstens 100 Begriffe wählen.");
    }
    SpeechConfiguration checked{model, language, {}, boost};
    std::unordered_set<std::string> kept;
    for (const auto& phrase : phrases) {
        const auto trimmed = text::trimmed(phrase);
        if (text::exceeds(trimmed, maximumPhraseCharacters) || text::containsControl(trimmed)) {
            throw MeetingError::invalidData(
                "Ein Begriff darf maximal 100 Zeichen und keine Steuerzeichen enthalten.");
        }
        if (trimmed.empty() || !kept.insert(text::lowercased(trimmed)).second) continue;
        checked.phrases.emplace_back(trimmed);
    }
    return checked;
}

}  // namespace meetingcore
