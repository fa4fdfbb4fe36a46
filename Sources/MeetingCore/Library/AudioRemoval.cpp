#include "MeetingCore/Library/AudioRemoval.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "MeetingCore/Platform/TimeZone.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view stagingPrefix = ".Audio-entfernen-";

struct Marker {
    std::string removedAt;  // ISO 8601, UTC
};

bool isAudio(const std::string& name) {
    const auto extension = fs::path(name).extension();
    return extension == layout::chunkExtension || extension == layout::partialExtension ||
           name == layout::audio;
}

bool isFolder(const fs::path& path, FileManager& files) {
    const auto status = files.status(path);
    return status && status->kind == FileStatus::Kind::directory;
}

/// A link of such a name leads to files that are not ours to move.
bool isStaging(const fs::path& path, FileManager& files) {
    return path.filename().string().starts_with(stagingPrefix) && isFolder(path, files);
}

bool hasStaging(const fs::path& meeting, FileManager& files) {
    const auto names = files.list(meeting);
    return std::ranges::any_of(names,
                               [&](const std::string& name) { return isStaging(meeting / name, files); });
}

/// One removal in a meeting's folder.
class Removal {
public:
    Removal(fs::path meeting, const std::string& stagingName, FileManager& files)
        : meeting_(std::move(meeting)), staging_(meeting_ / stagingName), files_(files) {}

    void begin(Date now);
    void gather(const std::vector<std::string>& items);

    /// Hands the staging folder over. What it took must not come back after a power cut, so all moves are
    /// flushed before.
    void finish(const AudioRemoval::Trash& trash);

    /// `tellStore` is called when the audio is back, and again by the next start where that was not the end.
    void undo(const std::function<void()>& tellStore = {});

    /// Undoes as much as can be; the rest is left for the next start.
    void undoAfterError() noexcept {
        try {
            undo();
        } catch (const std::exception&) {  // the first error is the one to report
        }
    }

private:
    fs::path meeting_;
    fs::path staging_;
    FileManager& files_;
};

}  // namespace

template <>
inline constexpr auto json::fields<Marker> = json::record(json::field("removedAt", &Marker::removedAt));

namespace {

void Removal::begin(Date now) {
    // The marker's arrival flushes this folder: with it the staging folder is there to stay.
    TranscriptStorage::save(Marker{iso8601(now)}, meeting_ / AudioArchive::removedMarkerName, files_);
}

void Removal::gather(const std::vector<std::string>& items) {
    for (const auto& item : items) files_.move(meeting_ / item, staging_ / item);
}

void Removal::finish(const AudioRemoval::Trash& trash) {
    files_.flushDirectory(staging_);
    files_.flushDirectory(meeting_);
    trash(staging_);
    files_.flushDirectory(meeting_);
}

void Removal::undo(const std::function<void()>& tellStore) {
    // Where the trash has the audio, in spite of its error, the marker tells the truth and stays.
    if (!files_.status(staging_)) return;
    for (const auto& item : files_.list(staging_)) {
        if (files_.status(meeting_ / item)) {
            throw MeetingError::storage(quotedName(item) +
                                        " kann nicht an seinen Platz zurück: Der Name ist schon vergeben.");
        }
        files_.move(staging_ / item, meeting_ / item);
    }
    files_.flushDirectory(staging_);
    files_.flushDirectory(meeting_);
    // The staging folder goes last: as long as it is there, the next start knows that something is to be
    // undone.
    if (files_.status(meeting_ / AudioArchive::removedMarkerName)) {
        files_.remove(meeting_ / AudioArchive::removedMarkerName);
        files_.flushDirectory(meeting_);
    }
    if (tellStore) tellStore();
    files_.remove(staging_);
    files_.flushDirectory(meeting_);
}

/// What the job store has to hear of a removal's end.
struct Store {
    bool hasWork = false;  ///< knows of audio of the meeting, or has jobs that wait for it
    std::function<void()> retire;
    std::function<void()> reopen;
};

/// Ends the removals that one meeting's folder tells of. Where the store has no work left, a staging folder
/// with all of the audio came back from the trash: the user wants it again.
void recoverMeeting(const UUID& id, const fs::path& meeting, const AudioRemoval::Trash& trash,
                    FileManager& files, const Store& store, AudioRemoval::Recovered& recovered) {
    const auto names = files.list(meeting);
    const bool marked = std::find(names.begin(), names.end(), AudioArchive::removedMarkerName) != names.end();
    const bool gathered = marked && std::none_of(names.begin(), names.end(), isAudio);
    const bool wanted = gathered && store.hasWork;
    bool staged = false;
    for (const auto& name : names) {
        if (!isStaging(meeting / name, files)) continue;
        staged = true;
        Removal removal(meeting, name, files);
        if (!wanted) {
            removal.undo(store.reopen);
            continue;
        }
        try {
            removal.finish(trash);
        } catch (const std::exception&) {
            removal.undoAfterError();
            throw;
        }
    }
    if (wanted) {
        store.retire();
        recovered.finished.push_back(id);
    } else if (staged) {
        recovered.undone.push_back(id);
    }
}

}  // namespace

namespace AudioRemoval {

void moveToTrash(const UUID& id, const fs::path& root, SQLiteJobStore& database, const Trash& trash,
                 FileManager& files, Date now) {
    const auto meeting = layout::meetingFolder(root, id);
    auto items = files.list(meeting);
    std::erase_if(items, [](const auto& name) { return !isAudio(name); });
    if (items.empty()) throw MeetingError::storage("Keine Audiodateien vorhanden.");
    const auto stagingName = std::string(stagingPrefix) + UUID::random().string();
    files.createDirectory(meeting / stagingName);
    Removal removal(meeting, stagingName, files);
    try {
        files.flushDirectory(meeting);
        removal.begin(now);
        removal.gather(items);
        removal.finish(trash);
    } catch (const std::exception&) {
        removal.undoAfterError();
        throw;
    }
    database.retireAudio(id);
}

void moveToTrash(const UUID& id, const fs::path& root, SQLiteJobStore& database, MeetingLibrary& library,
                 const Trash& trash, FileManager& files, Date now) {
    moveToTrash(id, root, database, trash, files, now);
    library.enterAudioRemoval(id);
}

std::vector<UUID> interrupted(const fs::path& root, FileManager& files) {
    std::vector<UUID> found;
    const auto meetings = root / layout::meetings;
    if (!pathExists(meetings)) return found;
    for (const auto& name : files.list(meetings)) {
        const auto id = UUID::parse(name);
        if (!id) continue;
        try {
            if (isFolder(meetings / name, files) && hasStaging(meetings / name, files)) found.push_back(*id);
        } catch (const MeetingError&) {  // the recovery will say what is wrong with it
            found.push_back(*id);
        }
    }
    return found;
}

Recovered recover(const fs::path& root, SQLiteJobStore& database, const Trash& trash, FileManager& files) {
    Recovered recovered;
    const auto meetings = root / layout::meetings;
    if (!pathExists(meetings)) return recovered;
    const auto sessions = database.sessionsWithAudioWork();
    const std::set<UUID> unretired(sessions.begin(), sessions.end());
    for (const auto& name : files.list(meetings)) {
        const auto id = UUID::parse(name);
        if (!id) continue;
        const Store store{unretired.contains(*id), [&] { database.retireAudio(*id); },
                          [&] {
                              for (const auto& chunk : DurableChunkStore(meetings, files).recover(*id).chunks)
                                  database.registerChunk(chunk);
                              database.reopenAudio(*id);
                          }};
        try {
            if (!isFolder(meetings / name, files)) continue;
            recoverMeeting(*id, meetings / name, trash, files, store, recovered);
        } catch (const std::exception& error) {  // the trash may throw what it likes
            recovered.problems.push_back(name + ": " + error.what());
        }
    }
    return recovered;
}

Recovered recover(const fs::path& root, SQLiteJobStore& database, MeetingLibrary& library, const Trash& trash,
                  FileManager& files) {
    auto recovered = recover(root, database, trash, files);
    const auto enter = [&](const UUID& id, const auto& body) {
        try {
            body();
        } catch (const MeetingError& error) {
            recovered.problems.push_back(id.string() + ": " + error.message());
        }
    };
    const auto isAmong = [](const std::vector<UUID>& ids, const UUID& id) {
        return std::ranges::find(ids, id) != ids.end();
    };
    const auto meetings = library.snapshot().meetings;
    for (const auto& meeting : meetings) {
        const auto& id = meeting.id;
        if (isAmong(recovered.undone, id)) {
            enter(id, [&] {
                const auto chunks = DurableChunkStore(root / layout::meetings, files).recover(id).chunks;
                library.enterAudioReturn(id, chunks);
            });
        } else if (isAmong(recovered.finished, id)) {
            enter(id, [&] { library.enterAudioRemoval(id); });
        } else if (meeting.chunkCount > 0 && AudioArchive::removed(id, root)) {
            enter(id, [&] {
                if (hasStaging(layout::meetingFolder(root, id), files)) return;  // it is a problem already
                library.enterAudioRemoval(id);
                recovered.finished.push_back(id);
            });
        }
    }
    return recovered;
}

}  // namespace AudioRemoval
}  // namespace meetingcore
