#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

/// One word of a caption. A recogniser leaves the times out where it could not align the word.
struct CaptionWord {
    std::string text;
    std::optional<double> startSeconds;
    std::optional<double> endSeconds;

    bool operator==(const CaptionWord&) const = default;
};

/// What was said at one time, as a file from outside has it. Times are seconds from the start of the recording,
/// finite, not negative, the end not before the start.
struct Caption {
    double startSeconds = 0;
    double endSeconds = 0;
    std::string text;                    ///< one line, without markup, never empty
    std::optional<std::string> speaker;  ///< as the file names them
    std::vector<CaptionWord> words;      ///< empty where the format has none
    std::size_t place = 0;               ///< where it stands in the file, from 1

    bool operator==(const Caption&) const = default;
};

/// A transcript in a form that other programs write: WebVTT, SubRip, the JSON of whisper.cpp or of WhisperX.
struct CaptionFile {
    std::string name;            ///< of the file, for messages
    std::string_view placeName;  ///< what `Caption::place` counts: "Zeile", or "Segment" in JSON
    std::vector<Caption> captions;

    /// Reads a file of at most 64 MiB in UTF-8, whose format its content tells. Captions without text are left
    /// out. Throws MeetingError: storage where the file cannot be read, else invalidData with one sentence for
    /// each place that is wrong.
    static CaptionFile read(const std::filesystem::path& file, FileManager& files = FileManager::system());

    /// The same from bytes. `otherForm` is what the caller could read as well, for the message.
    static CaptionFile parse(std::string_view bytes, std::string name, std::string_view otherForm = {});
};

}  // namespace meetingcore
