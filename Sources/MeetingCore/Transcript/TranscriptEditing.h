#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// The user's changes to one meeting's transcript, "transcript-edits.json" in its folder. Every call reads the
/// transcript as it is, checks, and replaces the file as a whole; durable on return. The caller holds the
/// application lock. `root` is the data folder. Errors are MeetingErrors, and change nothing.
namespace TranscriptEditing {

/// Longest correction and longest name, in characters.
inline constexpr std::size_t maximumTextCharacters = 10'000;
inline constexpr std::size_t maximumNameCharacters = 100;

/// The segment that a person means: by its number in the transcript, from 1, or by an unambiguous beginning of
/// its id (eight digits or more). Throws (invalidData) where there is none.
const TranscriptSegment& findSegment(const TranscriptDocument& document, std::string_view reference);

/// Replaces what was recognised in a segment. The recognised wording itself, or no text at all, takes the
/// correction back.
void correct(const UUID& session, std::string_view segment, std::string_view text,
             const std::filesystem::path& root, SQLiteJobStore& database,
             FileManager& files = FileManager::system());

/// Why nobody can be called so, as a sentence; nothing where somebody can. `name` is trimmed.
std::optional<std::string> nameProblem(std::string_view name);

/// Names a speaker of the diarization, whose id or present label tells which; no text takes the name back.
/// Names are bound to the diarization run, so those of an earlier run are dropped.
void nameSpeaker(const UUID& session, std::string_view speaker, std::string_view name,
                 const std::filesystem::path& root, SQLiteJobStore& database,
                 FileManager& files = FileManager::system());

}  // namespace TranscriptEditing
}  // namespace meetingcore
