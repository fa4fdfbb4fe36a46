#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "MeetingCore/Platform/FileManager.h"

namespace meetingcore {

/// A text file of another program that a person hands in, before its format matters: what every reader of such
/// files does in the same way. Nothing here knows a format.
struct ImportedFile {
    static constexpr std::size_t maximumBytes = 67'108'864;  ///< 64 MiB

    std::string name;   ///< of the file, valid UTF-8, for messages
    std::string bytes;  ///< as they are on disk

    /// Throws MeetingError, whose message names the file: storage where there is none that can be read,
    /// invalidData beyond `maximumBytes`.
    static ImportedFile read(const std::filesystem::path& file, FileManager& files);

    /// The text that the bytes are, without a byte order mark, as a view into them. Throws MeetingError
    /// (invalidData) naming the file where they are UTF-16. Other bytes that are no UTF-8 are left to
    /// `lineProblem`, so that their places are told.
    static std::string_view textOf(std::string_view bytes, const std::string& name);

    /// Cuts the first line off the text and returns it without its end, which is LF, CRLF or CR. The end of the
    /// last line may be missing: the lines are those taken until the text is empty.
    static std::string_view takeLine(std::string_view& text);

    static constexpr std::string_view notUTF8 = "Text ist kein gültiges UTF-8.";

    /// What is wrong with a line in every format, as a sentence for FileProblems; nothing where it may be read.
    static std::optional<std::string_view> lineProblem(std::string_view line);
};

}  // namespace meetingcore
