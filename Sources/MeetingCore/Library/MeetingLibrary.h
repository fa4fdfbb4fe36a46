#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MeetingCore/Library/MeetingMetadata.h"

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

/// One meeting of the library.
struct MeetingEntry {
    UUID id;            ///< also that of the recording session and the name of its folder
    std::string title;  ///< not blank
    Date createdAt;     ///< from the session's manifest
    std::optional<UUID> projectID;
    bool pinned = false;
    std::string notes;
    std::optional<MeetingMetadata> metadata;
    std::string state;                          ///< of the recording: "starting", "recording", "completed", …
    double duration = 0;                        ///< seconds: the end of the meeting's latest chunk
    std::int64_t chunkCount = 0;                ///< durable chunks of the meeting
    std::optional<bool> automaticTitlePending;  ///< whether a title is still to be generated

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

}  // namespace meetingcore
