#include "MeetingCore/Transcript/ImportedFile.h"

#include <algorithm>
#include <utility>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

ImportedFile ImportedFile::read(const std::filesystem::path& file, FileManager& files) {
    if (!pathExists(file)) throw MeetingError::storage(quotedName(file) + " gibt es nicht.");
    // One byte more than allowed tells a file that is too large, also one that grows meanwhile.
    ImportedFile imported{text::repaired(file.filename().string()), files.read(file, 0, maximumBytes + 1)};
    if (imported.bytes.size() > maximumBytes) {
        constexpr std::size_t mebibyte = 1'048'576;
        throw MeetingError::invalidData(imported.name + " ist zu groß: Gelesen werden höchstens " +
                                        std::to_string(maximumBytes / mebibyte) + " MiB.");
    }
    return imported;
}

std::string_view ImportedFile::textOf(std::string_view bytes, const std::string& name) {
    if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF"))
        throw MeetingError::invalidData(name + " ist UTF-16. Bitte als UTF-8 speichern.");
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (bytes.starts_with(byteOrderMark)) bytes.remove_prefix(byteOrderMark.size());
    return bytes;
}

std::string_view ImportedFile::takeLine(std::string_view& text) {
    const auto isEnd = [](char c) { return c == '\n' || c == '\r'; };
    const auto end = static_cast<std::size_t>(std::find_if(text.begin(), text.end(), isEnd) - text.begin());
    const auto line = text.substr(0, end);
    const std::size_t mark = text.substr(end).starts_with("\r\n") ? 2 : 1;
    text.remove_prefix(std::min(end + mark, text.size()));
    return line;
}

std::optional<std::string_view> ImportedFile::lineProblem(std::string_view line) {
    return text::repaired(line) == line ? std::nullopt : std::optional(notUTF8);
}

}  // namespace meetingcore
