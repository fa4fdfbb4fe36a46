#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meetingcore::text {

/// Texts are UTF-8. A character is an extended grapheme cluster (Unicode Standard Annex 29): what a person sees
/// as one, so that limits named in characters treat an emoji, a flag or an accented letter alike, however
/// encoded. Every function accepts invalid UTF-8 (each bad byte counts as one scalar) and none throws for its
/// content.

std::size_t characterCount(std::string_view text);

/// Whether the text has more than `limit` characters; stops counting there.
bool exceeds(std::string_view text, std::size_t limit);

/// The first `count` characters, as a view into `text`.
std::string_view prefix(std::string_view text, std::size_t count);

/// The offsets in bytes at which the characters end.
std::vector<std::size_t> characterEnds(std::string_view text);

/// Without white space, line breaks and zero width spaces (U+200B) at both ends, as a view into `text`.
std::string_view trimmed(std::string_view text);

/// The runs between white space (Unicode property White_Space), as views into `text`; empty pieces are dropped.
std::vector<std::string_view> words(std::string_view text);

/// Lower case by full mapping of each scalar alone, without context: `ΣΑΣ` becomes `σασ`.
std::string lowercased(std::string_view text);

/// The form in which evidence is compared: words joined by one blank, lower-cased. Accents and punctuation
/// stay.
std::string normalized(std::string_view text);

/// Whether `part` (not empty) occurs as whole characters; characters that are canonically equivalent (Unicode
/// Standard Annex 15) are equal: `Rene` does not occur in `René`, however the accent is encoded.
bool contains(std::string_view text, std::string_view part);

/// Whether a scalar of the general categories Cc or Cf occurs (line breaks, tabs, joiners, soft hyphens, …).
bool containsControl(std::string_view text);

/// The same text with every invalid UTF-8 sequence replaced by U+FFFD.
std::string repaired(std::string_view text);

/// The texts one after another with `separator` between them.
std::string joined(std::span<const std::string> texts, std::string_view separator);

/// `text` with every occurrence of `needle` (not empty) replaced.
std::string replacing(std::string_view text, std::string_view needle, std::string_view replacement);

}  // namespace meetingcore::text
