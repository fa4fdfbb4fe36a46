#include "MeetingCore/Transcript/CaptionFile.h"

#include <cmath>
#include <utility>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Transcript/CaptionFormats.h"
#include "MeetingCore/Transcript/ImportedFile.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

std::optional<std::string_view> CaptionFormats::problem(double startSeconds, double endSeconds,
                                                        std::string_view text) {
    if (!std::isfinite(startSeconds) || !std::isfinite(endSeconds) || startSeconds < 0) {
        return "Zeitangabe ist ungültig.";
    }
    if (endSeconds < startSeconds) return "Das Ende liegt vor dem Anfang.";
    if (text::exceeds(text, SpeechResult::maximumSegmentCharacters)) {
        return "Text ist länger als 20.000 Zeichen.";
    }
    return std::nullopt;
}

CaptionFile CaptionFile::parse(std::string_view bytes, std::string name, std::string_view otherForm) {
    bytes = ImportedFile::textOf(bytes, name);
    constexpr std::string_view signature = "WEBVTT";
    const auto rest = bytes.substr(std::min(bytes.size(), signature.size()));
    if (bytes.starts_with(signature) &&
        (rest.empty() || std::string_view(" \t\r\n").find(rest.front()) != std::string_view::npos)) {
        return CaptionFormats::fromCues(bytes, std::move(name), /*webVTT=*/true);
    }
    const auto first = bytes.find_first_not_of(" \t\r\n");
    if (first != std::string_view::npos && bytes[first] == '{') {
        return CaptionFormats::fromJSON(bytes, std::move(name));
    }
    if (bytes.find("-->") != std::string_view::npos) {
        return CaptionFormats::fromCues(bytes, std::move(name), /*webVTT=*/false);
    }
    std::string forms(otherForm);
    if (!forms.empty()) forms += " noch ";
    throw MeetingError::invalidData(name + " ist weder " + forms +
                                    "WebVTT noch SRT noch das JSON von whisper.cpp oder WhisperX.");
}

CaptionFile CaptionFile::read(const std::filesystem::path& file, FileManager& files) {
    auto imported = ImportedFile::read(file, files);
    return parse(imported.bytes, std::move(imported.name));
}

}  // namespace meetingcore
