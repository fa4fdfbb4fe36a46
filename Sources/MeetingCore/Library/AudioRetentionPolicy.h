#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Recording/SQLiteJobStore.h"

namespace meetingcore {

/// How long the audio of a meeting is kept after its end, "audio-retention.json" in the data folder.
struct AudioRetentionPolicy {
    std::optional<std::int64_t> days;  ///< 1 to 36500; for ever where absent

    /// Reads the checked policy; without a file audio is kept for ever. `root` is the data folder. Throws
    /// MeetingError.
    static AudioRetentionPolicy load(const std::filesystem::path& root,
                                     FileManager& files = FileManager::system());

    /// Writes the policy, once found valid, atomically. Durable on return. The caller holds the application
    /// lock.
    void save(const std::filesystem::path& root, FileManager& files = FileManager::system()) const;

    /// The same policy, or MeetingError (invalidData) where the days are out of range.
    AudioRetentionPolicy validated() const;

    /// Whether a completed meeting that has audio ended at least `days` times 86400 seconds ago; calendar days
    /// and daylight saving have no say in it. `endedAt` is empty where the end is not known.
    bool isDue(const MeetingEntry& meeting, const std::optional<Date>& endedAt, Date now) const;

    /// Whether nothing needs the meeting's audio any more: every window of its chunks has a stored result, no
    /// job of it is open or failed, and its speakers are assigned. `root` is the data folder; of `chunks` only
    /// those of the meeting count. Throws MeetingError where that cannot be told.
    static bool fullyProcessed(const UUID& id, const std::filesystem::path& root, SQLiteJobStore& database,
                               std::span<const AudioChunk> chunks, FileManager& files = FileManager::system());

    bool operator==(const AudioRetentionPolicy&) const = default;
};

template <>
inline constexpr auto json::fields<AudioRetentionPolicy> =
    json::record(json::field("days", &AudioRetentionPolicy::days));

}  // namespace meetingcore
