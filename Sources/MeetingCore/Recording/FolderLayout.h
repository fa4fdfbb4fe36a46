#pragma once

#include <filesystem>
#include <string_view>

#include "MeetingCore/Platform/UUID.h"

/// Names in a data folder, by which the recorder, its worker and the command line find each other's files.
namespace meetingcore::layout {

inline constexpr std::string_view meetings = "Meetings";  ///< a folder for each meeting
inline constexpr std::string_view models = "Models";
inline constexpr std::string_view queue = "quillmoot.sqlite";
inline constexpr std::string_view library = "library.json";
inline constexpr std::string_view audioRetention = "audio-retention.json";
inline constexpr std::string_view inferenceLock = "inference.lock";
inline constexpr std::string_view applicationLock = "application.lock";

// In a meeting's folder, beside its chunks:
inline constexpr std::string_view manifest = "session.json";
inline constexpr std::string_view audio = "Audio";  ///< each track in one file
inline constexpr std::string_view diarization = "diarization.json";
inline constexpr std::string_view recordingClock = "recording-clock.json";
inline constexpr std::string_view speechConfiguration = "speech-configuration.json";
inline constexpr std::string_view edits = "transcript-edits.json";
inline constexpr std::string_view summary = "summary.json";
inline constexpr std::string_view summaryInstructions = "summary-request.json";
inline constexpr std::string_view automaticTitle = "automatic-title.json";
inline constexpr std::string_view events = "events.json";
inline constexpr std::string_view summaryParts = "summary-parts";
inline constexpr std::string_view chunkExtension = ".chunk";
inline constexpr std::string_view partialExtension = ".partial";  ///< what is not complete yet

/// Named by the meeting's ID in upper case.
inline std::filesystem::path meetingFolder(const std::filesystem::path& root, const UUID& meeting) {
    return root / meetings / meeting.string();
}

}  // namespace meetingcore::layout
