#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meetingcore::CaptionText {

/// What one speaker says within a cue. One line; neither member is ever an empty text.
struct Piece {
    std::optional<std::string> speaker;
    std::string text;

    bool operator==(const Piece&) const = default;
};

/// The text as one line: white space becomes single blanks, none at the ends.
std::string singleLine(std::string_view text);

/// "01:02:03.450", "02:03,450" or "02:03" in seconds; nothing for any other text.
std::optional<double> seconds(std::string_view text);

/// The cue text of a WebVTT file: voices name the speaker of what follows, other tags and timestamps go,
/// character references are resolved. A `<` that opens no tag stays.
std::vector<Piece> webVTT(std::string_view text);

/// The text of a SubRip cue without the tags and overrides that players know (`<i>`, `<font …>`, `{\an8}`); the
/// format has no escapes.
std::string subRip(std::string_view text);

/// The speaker in front of "Name: text", as meeting programs write it; nothing where the text does not begin
/// so.
std::optional<std::string_view> namePrefix(std::string_view text);

}  // namespace meetingcore::CaptionText
