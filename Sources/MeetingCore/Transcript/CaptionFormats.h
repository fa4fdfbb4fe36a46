#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "MeetingCore/Transcript/CaptionFile.h"

/// One reader for each format. Texts are those of `ImportedFile::textOf`.
namespace meetingcore::CaptionFormats {

/// What is wrong with a caption of these times and this text; nothing where it may be taken.
std::optional<std::string_view> problem(double startSeconds, double endSeconds, std::string_view text);

/// The JSON of whisper.cpp ("transcription", with "tokens" in its full form) or of WhisperX ("segments", with
/// "words"). Places are segments. Throws MeetingError (invalidData) as CaptionFile::parse does.
CaptionFile fromJSON(std::string_view text, std::string name);

/// WebVTT or SubRip, either with the habits of the other: cue names, hours and blank lines may be missing.
/// Places are lines. Throws as above.
CaptionFile fromCues(std::string_view text, std::string name, bool webVTT);

}  // namespace meetingcore::CaptionFormats
