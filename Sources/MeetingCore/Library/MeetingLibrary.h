#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Library/MeetingMetadata.h"
#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// A group of meetings that the user made.
struct MeetingProject {
    UUID id;
    std::string name;  ///< not blank

    bool operator==(const MeetingProject&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingProject> = json::record(json::field("id", &MeetingProject::id),
                                                                  json::field("name", &MeetingProject::name));

/// Whether a meeting in this state is said to be recording.
constexpr bool isRecordingState(std::string_view state) {
    return state == "starting" || state == "recording" || state == "paused";
}

/// One meeting of the library.
struct MeetingEntry {
    UUID id;            ///< also that of the recording session and the name of its folder
    std::string title;  ///< not blank
    Date createdAt;     ///< from the session's manifest
    std::optional<UUID> projectID;
    bool pinned = false;
    std::string notes;
    std::optional<MeetingMetadata> metadata;
    /// Of the recording: "starting", "recording", "paused", "interrupted", "completed"; others are kept.
    std::string state;
    double duration = 0;                        ///< seconds: the end of the meeting's latest chunk
    std::int64_t chunkCount = 0;                ///< durable chunks of the meeting
    std::optional<bool> automaticTitlePending;  ///< whether a title is still to be generated

    /// The entry of a recording that has just begun.
    static MeetingEntry starting(const MeetingSession& session, const std::optional<UUID>& projectID);

    /// Whether it is said to be recording. That is wrong once nobody has the library open, as after a crash.
    bool isBeingRecorded() const { return isRecordingState(state); }

    /// How many of the chunks are missing where recovery vouches for `found`, and `registered` is the number of
    /// SQLiteJobStore::registeredChunksBySession: the library's own may have been brought in line with what is
    /// left.
    std::int64_t missingChunks(std::int64_t registered, std::size_t found) const {
        return std::max(std::max(chunkCount, registered) - static_cast<std::int64_t>(found), std::int64_t{0});
    }

    /// Whether a title is still to be generated; entries written before there was a flag tell by their title.
    bool needsAutomaticTitle() const;

    bool operator==(const MeetingEntry&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingEntry> = json::record(
    json::field("id", &MeetingEntry::id), json::field("title", &MeetingEntry::title),
    json::field("createdAt", &MeetingEntry::createdAt), json::field("projectID", &MeetingEntry::projectID),
    json::field("pinned", &MeetingEntry::pinned), json::field("notes", &MeetingEntry::notes),
    json::field("metadata", &MeetingEntry::metadata), json::field("state", &MeetingEntry::state),
    json::field("duration", &MeetingEntry::duration), json::field("chunkCount", &MeetingEntry::chunkCount),
    json::field("automaticTitlePending", &MeetingEntry::automaticTitlePending));

/// The whole content of "library.json".
struct LibrarySnapshot {
    std::int64_t version = 1;              ///< the only one there is
    std::vector<MeetingProject> projects;  ///< in the user's order
    std::vector<MeetingEntry> meetings;
    std::optional<std::vector<MeetingFieldDefinition>> customFields;

    bool operator==(const LibrarySnapshot&) const = default;
};

template <>
inline constexpr auto json::fields<LibrarySnapshot> = json::record(
    json::field("version", &LibrarySnapshot::version), json::field("projects", &LibrarySnapshot::projects),
    json::field("meetings", &LibrarySnapshot::meetings),
    json::field("customFields", &LibrarySnapshot::customFields));

template <>
inline constexpr auto json::unreadable<LibrarySnapshot> = MeetingError::Cause::libraryUnreadable;

/// One line of a meeting's history, "events.json" in its folder.
struct SessionEvent {
    UUID id;
    Date date;
    std::string kind;
    std::optional<std::string> detail;

    bool operator==(const SessionEvent&) const = default;
};

template <>
inline constexpr auto json::fields<SessionEvent> = json::record(json::field("id", &SessionEvent::id),
                                                                json::field("date", &SessionEvent::date),
                                                                json::field("kind", &SessionEvent::kind),
                                                                json::field("detail", &SessionEvent::detail));

/// The index of all meetings of one data folder, "library.json" in it.
///
/// One object per open data folder, held by the process that has its application lock; not thread-safe. Errors
/// are MeetingErrors: invalidData for broken rules, storage for the file system.
class MeetingLibrary {
public:
    /// Creates the data folder if it is missing and reads its library; without a file the library is empty, and
    /// none is written before the first update. The file manager must outlive the object.
    explicit MeetingLibrary(const std::filesystem::path& root, FileManager& files = FileManager::system());

    /// Reads a library file. Throws for one that is missing, broken or of another version.
    static LibrarySnapshot read(const std::filesystem::path& file, FileManager& files = FileManager::system());

    /// The library of a data folder for who only looks at it; empty where there is none. A recording that is
    /// said to be running is shown as interrupted where nobody has the application lock.
    static LibrarySnapshot view(const std::filesystem::path& root, FileManager& files = FileManager::system());

    const std::filesystem::path& file() const noexcept { return file_; }

    /// The last state that was written.
    const LibrarySnapshot& snapshot() const noexcept { return snapshot_; }

    /// Throws (invalidData) where a library breaks a rule and could not be changed: one by hand or of another
    /// program, since `update` writes no such library.
    static void validate(const LibrarySnapshot& library);

    /// The only way to change the library: `body` changes a copy, which is checked as a whole and written
    /// atomically before it takes the place of `snapshot`. On return the change is on stable storage. Any
    /// error, also one of `body`, leaves snapshot and file as they were; only after a failure to flush the
    /// renamed file the disk may already hold the new state.
    void update(const std::function<void(LibrarySnapshot&)>& body);

    /// Brings the meetings in line with the sessions on disk and the durable chunks: adds what is missing,
    /// counts chunks, and marks recordings that were cut off as interrupted, so no recording may be running.
    /// `meetings` is the folder of the session folders, and is created if it is missing. What the user entered
    /// is never changed, and meetings without a folder stay. Throws, and changes nothing, at the first session
    /// folder whose manifest cannot be read or belongs to another session.
    void reconcile(const std::filesystem::path& meetings, std::span<const AudioChunk> chunks);

    /// Enters that a meeting's audio is gone: no chunks, the state "interrupted" unless the recording was
    /// completed, and the event "audioRemoved". `AudioRemoval` does so where it is given the library. Throws,
    /// and changes nothing, for a meeting that the library does not have.
    void enterAudioRemoval(const UUID& meeting);

    /// Enters that a meeting's audio is back, these chunks of it. Does nothing for a meeting that the library
    /// does not have.
    void enterAudioReturn(const UUID& meeting, std::span<const AudioChunk> chunks);

    /// Appends an event to "events.json" in a session's folder. Durable on return.
    static void appendEvent(const SessionEvent& event, const std::filesystem::path& directory,
                            FileManager& files = FileManager::system());

private:
    FileManager& files_;
    std::filesystem::path file_;
    LibrarySnapshot snapshot_;
};

}  // namespace meetingcore
