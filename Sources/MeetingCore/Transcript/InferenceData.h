#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Recording/WindowPlanner.h"
#include "MeetingCore/Transcript/WorkerContracts.h"

namespace meetingcore {

/// What speech recognition delivers for one window; the result of a "transcribe" job.
struct SpeechResult {
    static constexpr std::size_t maximumItems = 20'000;  ///< segments, and words
    static constexpr std::size_t maximumSegmentCharacters = 20'000;
    static constexpr double secondsBeforeWindow = 0.1;
    static constexpr double secondsAfterWindow = 0.5;

    std::int64_t version = 1;  ///< 1 or 2; version 2 means that the microphone track needs diarization as well
    std::string windowID;
    std::vector<TranscriptSegment> segments;
    std::vector<TranscriptWord> words;

    /// Throws MeetingError (invalidData) unless the result belongs to the window and its segments lie in it,
    /// from 0.1 s before its start to 0.5 s after its end. Of the words only the number is bounded.
    void validate(const TranscriptionWindow& window) const;

    bool operator==(const SpeechResult&) const = default;
};

template <>
inline constexpr auto json::fields<SpeechResult> = json::record(
    json::field("version", &SpeechResult::version), json::field("windowID", &SpeechResult::windowID),
    json::field("segments", &SpeechResult::segments), json::field("words", &SpeechResult::words));

/// The speaker diarization of a session, "diarization.json" in its folder.
struct DiarizationResult {
    std::int64_t version = 1;  ///< 1: turns of the meeting track without source; 2: both tracks
    UUID sessionID;
    UUID generation;  ///< one diarization run; names given by the user are bound to it
    bool finished = false;
    std::vector<SpeakerTurn> turns;

    bool operator==(const DiarizationResult&) const = default;
};

template <>
inline constexpr auto json::fields<DiarizationResult> = json::record(
    json::field("version", &DiarizationResult::version),
    json::field("sessionID", &DiarizationResult::sessionID),
    json::field("generation", &DiarizationResult::generation),
    json::field("finished", &DiarizationResult::finished), json::field("turns", &DiarizationResult::turns));

template <>
inline constexpr auto json::unreadable<DiarizationResult> = MeetingError::Cause::diarizationUnreadable;

/// The user's corrections and speaker names, "transcript-edits.json" in the session's folder.
struct TranscriptEdits {
    std::map<std::string, std::string> correctedText;  ///< by the segment's id as upper-case UUID text
    std::map<std::string, std::string> speakerNames;   ///< by diarization speaker id
    std::optional<UUID> speakerGeneration;             ///< the diarization run that the names belong to

    bool operator==(const TranscriptEdits&) const = default;
};

template <>
inline constexpr auto json::fields<TranscriptEdits> =
    json::record(json::field("correctedText", &TranscriptEdits::correctedText),
                 json::field("speakerNames", &TranscriptEdits::speakerNames),
                 json::field("speakerGeneration", &TranscriptEdits::speakerGeneration));

template <>
inline constexpr auto json::unreadable<TranscriptEdits> = MeetingError::Cause::editsUnreadable;

/// The transcript of one session as the user sees it. Immutable once built.
struct TranscriptDocument {
    std::vector<TranscriptSegment> segments;     ///< with speakers and corrections, in display order
    std::vector<TranscriptSegment> rawSegments;  ///< as recognised, in the same order
    std::optional<DiarizationResult> diarization;
    TranscriptEdits edits;
    bool requiresMicrophoneDiarization = false;  ///< some speech result has version 2

    /// Whether speaker assignment is still to come or under way.
    bool diarizationPending() const;

    /// Whether the microphone track carries several speakers.
    bool microphoneDiarized() const;

    /// The display name of a segment's speaker: the user's name for it, else the default.
    std::string speakerLabel(const TranscriptSegment& segment) const;

    /// The label of a speaker without a name given by the user.
    static std::string defaultSpeakerLabel(const std::string& speakerID);

    /// The raw segments with speaker and corrected text. A segment belongs to the one turn of its track that
    /// covers its midpoint; where several do, or none, it has no speaker.
    static std::vector<TranscriptSegment> merge(std::span<const TranscriptSegment> rawSegments,
                                                const std::optional<DiarizationResult>& diarization,
                                                const TranscriptEdits& edits);
};

/// Reads and writes what the system keeps about a meeting's transcript under the data folder.
namespace TranscriptStorage {

/// Builds the document from the completed speech results, "diarization.json" and "transcript-edits.json".
/// Nothing is cached. Throws MeetingError where a part is unreadable or does not belong together.
TranscriptDocument load(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
                        FileManager& files = FileManager::system());

/// The same where the ids of the session's jobs with a result are known (SQLiteJobStore::jobsWithResults): for
/// all sessions one after the other, since the queue has no index by session.
TranscriptDocument load(const UUID& session, const std::filesystem::path& root,
                        std::span<const std::string> jobs, SQLiteJobStore& database,
                        FileManager& files = FileManager::system());

/// The same without diarization and edits: what was recognised.
TranscriptDocument loadRecognised(const UUID& session, SQLiteJobStore& database);

/// The session's diarization; nothing where there is none. Throws as `load` does.
std::optional<DiarizationResult> loadDiarization(const UUID& session, const std::filesystem::path& root,
                                                 FileManager& files = FileManager::system());

/// Whether some meeting's diarization is not finished. Throws at the first diarization that cannot be read.
bool hasUnfinishedDiarization(const std::filesystem::path& root, FileManager& files = FileManager::system());

/// The content of a file of at most 64 MiB; nothing where it does not exist.
std::optional<std::string> readBytes(const std::filesystem::path& file,
                                     FileManager& files = FileManager::system());

/// Decodes a JSON file of at most 64 MiB; nothing where it does not exist.
template <class T>
std::optional<T> readOptional(const std::filesystem::path& file, FileManager& files = FileManager::system()) {
    const auto bytes = readBytes(file, files);
    if (!bytes) return std::nullopt;
    return json::decode<T>(*bytes, quotedName(file));
}

/// Replaces the file atomically by the value as JSON with permissions 0600. Durable on return.
template <class T>
void save(const T& value, const std::filesystem::path& file, FileManager& files = FileManager::system()) {
    writeAtomically(files, json::encode(value), file);
}

}  // namespace TranscriptStorage
}  // namespace meetingcore
