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

/// Who speaks when, as a file from outside has it: RTTM, or the voices of a transcript (see CaptionFile).
struct SpeakerTurnFile {
    /// Times are seconds from the start of the recording, finite, not negative, the end behind the start.
    struct Turn {
        double startSeconds = 0;
        double endSeconds = 0;
        std::string speaker;    ///< as the file names them, never empty
        std::string recording;  ///< the recording that RTTM names, its second field; empty for transcripts
        std::size_t place = 0;  ///< where it stands in the file, from 1

        bool operator==(const Turn&) const = default;
    };

    std::string name;                      ///< of the file, for messages
    std::string_view placeName = "Zeile";  ///< what `Turn::place` counts
    std::vector<Turn> turns;

    /// Reads a file of at most 64 MiB in UTF-8, whose format its content tells. Throws MeetingError: storage
    /// where the file cannot be read, else invalidData with one sentence for each line that is wrong.
    static SpeakerTurnFile read(const std::filesystem::path& file, FileManager& files = FileManager::system());

    /// The same from bytes.
    static SpeakerTurnFile parse(std::string_view bytes, std::string name);

    /// The recordings that occur, in order of first occurrence.
    std::vector<std::string> recordings() const;

    /// The turns of one recording. Throws MeetingError (invalidData) where there are none, and without a name
    /// where there are several recordings.
    std::vector<Turn> of(const std::optional<std::string>& recording) const;
};

}  // namespace meetingcore
