#include "MeetingCore/Library/MeetingLibrary.h"

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "MeetingCore/Platform/DistinctIDs.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

namespace fs = std::filesystem;

template LibrarySnapshot json::decode(std::string_view, const std::string&);
template std::vector<SessionEvent> json::decode(std::string_view, const std::string&);

namespace {

constexpr std::int64_t formatVersion = 1;

bool isBlank(std::string_view text) { return text::trimmed(text).empty(); }

bool isSound(const LibrarySnapshot& library) {
    std::unordered_set<UUID> projects;
    for (const auto& project : library.projects) projects.insert(project.id);
    return library.version == formatVersion && projects.size() == library.projects.size() &&
           haveDistinctIDs(library.meetings) &&
           std::none_of(library.projects.begin(), library.projects.end(),
                        [](const auto& project) { return isBlank(project.name); }) &&
           std::all_of(library.meetings.begin(), library.meetings.end(), [&](const auto& meeting) {
               return !isBlank(meeting.title) && (!meeting.projectID || projects.contains(*meeting.projectID));
           });
}

MeetingSession readManifest(const fs::path& folder, const UUID& id, FileManager& files) {
    const auto file = folder / layout::manifest;
    const auto bytes = TranscriptStorage::readBytes(file, files);
    if (!bytes) throw MeetingError::storage(quotedName(folder) + " enthält kein Sitzungsmanifest.");
    auto session = json::decode<MeetingSession>(*bytes, quotedName(file));
    if (session.id != id) throw MeetingError::invalidData("Ungültiges Sitzungsmanifest.");
    return session;
}

std::vector<MeetingSession> readSessions(const fs::path& meetings, FileManager& files) {
    std::vector<MeetingSession> sessions;
    for (const auto& name : files.list(meetings)) {
        if (const auto id = UUID::parse(name)) sessions.push_back(readManifest(meetings / name, *id, files));
    }
    return sessions;
}

void addMissing(LibrarySnapshot& library, std::span<const MeetingSession> sessions) {
    std::unordered_set<UUID> known;
    for (const auto& meeting : library.meetings) known.insert(meeting.id);
    for (const auto& session : sessions) {
        if (known.insert(session.id).second) {
            library.meetings.push_back(MeetingEntry::starting(session, std::nullopt));
        }
    }
}

struct RecordedAudio {
    std::int64_t chunkCount = 0;
    double endSeconds = -std::numeric_limits<double>::infinity();
};

std::unordered_map<UUID, RecordedAudio> audioBySession(std::span<const AudioChunk> chunks) {
    std::unordered_map<UUID, RecordedAudio> sessions;
    for (const auto& chunk : chunks) {
        auto& audio = sessions[chunk.sessionID];
        ++audio.chunkCount;
        audio.endSeconds = std::max(audio.endSeconds, chunk.endSeconds());
    }
    return sessions;
}

/// To be called where nobody records.
void interruptRecordings(LibrarySnapshot& library) {
    for (auto& meeting : library.meetings) {
        if (meeting.isBeingRecorded()) meeting.state = "interrupted";
    }
}

void bringInLine(LibrarySnapshot& library, const std::unordered_map<UUID, RecordedAudio>& recorded) {
    for (auto& meeting : library.meetings) {
        const auto audio = recorded.find(meeting.id);
        meeting.chunkCount = audio == recorded.end() ? 0 : audio->second.chunkCount;
        if (audio != recorded.end()) meeting.duration = audio->second.endSeconds;
    }
    interruptRecordings(library);
    std::stable_sort(library.meetings.begin(), library.meetings.end(),
                     [](const auto& a, const auto& b) { return a.createdAt > b.createdAt; });
}

}  // namespace

MeetingEntry MeetingEntry::starting(const MeetingSession& session, const std::optional<UUID>& projectID) {
    MeetingEntry entry;
    entry.id = session.id;
    entry.title = session.title;
    entry.createdAt = session.createdAt;
    entry.projectID = projectID;
    entry.state = "starting";
    return entry;
}

bool MeetingEntry::needsAutomaticTitle() const {
    return automaticTitlePending.value_or(title == defaultMeetingTitle);
}

MeetingLibrary::MeetingLibrary(const fs::path& root, FileManager& files)
    : files_(files), file_(root / layout::library) {
    createDirectories(files, root);
    if (pathExists(file_)) snapshot_ = read(file_, files);
}

LibrarySnapshot MeetingLibrary::read(const fs::path& file, FileManager& files) {
    const auto bytes = files.read(file, 0, std::numeric_limits<std::size_t>::max());
    auto library = json::decode<LibrarySnapshot>(bytes, quotedName(file));
    if (library.version != formatVersion) throw MeetingError::invalidData("Unbekannte Bibliotheksversion.");
    return library;
}

LibrarySnapshot MeetingLibrary::view(const fs::path& root, FileManager& files) {
    const auto file = root / layout::library;
    if (!pathExists(file)) return {};
    auto library = read(file, files);
    if (std::any_of(library.meetings.begin(), library.meetings.end(),
                    [](const auto& meeting) { return meeting.isBeingRecorded(); }) &&
        !WorkerLock::isTaken(root, WorkerLock::Purpose::application)) {
        interruptRecordings(library);
    }
    return library;
}

void MeetingLibrary::validate(const LibrarySnapshot& library) {
    if (library.customFields) MeetingFieldDefinition::validated(*library.customFields);
    for (const auto& meeting : library.meetings) {
        if (meeting.metadata) meeting.metadata->validate();
    }
    if (!isSound(library)) throw MeetingError::invalidData("Ungültige Bibliotheksdaten.");
}

void MeetingLibrary::update(const std::function<void(LibrarySnapshot&)>& body) {
    auto changed = snapshot_;
    body(changed);
    if (changed.customFields) {
        changed.customFields = MeetingFieldDefinition::validated(std::move(*changed.customFields));
    }
    validate(changed);
    writeAtomically(files_, json::encode(changed), file_);
    snapshot_ = std::move(changed);
}

void MeetingLibrary::reconcile(const fs::path& meetings, std::span<const AudioChunk> chunks) {
    createDirectories(files_, meetings);
    const auto sessions = readSessions(meetings, files_);
    const auto recorded = audioBySession(chunks);
    update([&](LibrarySnapshot& library) {
        addMissing(library, sessions);
        bringInLine(library, recorded);
    });
}

void MeetingLibrary::enterAudioRemoval(const UUID& meeting) {
    update([&](LibrarySnapshot& library) {
        const auto entry = std::find_if(library.meetings.begin(), library.meetings.end(),
                                        [&](const auto& candidate) { return candidate.id == meeting; });
        if (entry == library.meetings.end()) throw MeetingError::invalidData("Unbekanntes Meeting.");
        entry->chunkCount = 0;
        if (entry->state != "completed") entry->state = "interrupted";
    });
    appendEvent({UUID::random(), Date::now(), "audioRemoved", std::nullopt},
                layout::meetingFolder(file_.parent_path(), meeting), files_);
}

void MeetingLibrary::enterAudioReturn(const UUID& meeting, std::span<const AudioChunk> chunks) {
    update([&](LibrarySnapshot& library) {
        for (auto& entry : library.meetings) {
            if (entry.id == meeting) entry.chunkCount = static_cast<std::int64_t>(chunks.size());
        }
    });
}

void MeetingLibrary::appendEvent(const SessionEvent& event, const fs::path& directory, FileManager& files) {
    const auto file = directory / layout::events;
    auto events = TranscriptStorage::readOptional<std::vector<SessionEvent>>(file, files)
                      .value_or(std::vector<SessionEvent>{});
    events.push_back(event);
    TranscriptStorage::save(events, file, files);
}

}  // namespace meetingcore
