#include "MeetingCore/Library/RecordingImport.h"

#include <algorithm>
#include <array>

#include "MeetingCore/Library/AudioInputSelection.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::RecordingImport {

namespace {

constexpr int secondsPerChunk = 60;
constexpr std::size_t bufferSamples = 16'384;
constexpr std::int64_t maximumTrackSamples = audio::maximumTrackSeconds * audio::sampleRate;
constexpr const char* applicationID = "local.quillmoot.import";

/// The namespace of all identifiers that follow from imported audio.
const UUID importNamespace = *UUID::parse("6B1F5C0E-2D0A-4E8B-9C57-3A6D1E90F4B2");

std::vector<MeetingEntry>::iterator entryOf(LibrarySnapshot& library, const UUID& session) {
    return std::ranges::find(library.meetings, session, &MeetingEntry::id);
}

MeetingSession manifest(const Recording& recording) {
    const auto has = [&](AudioSource source) {
        return std::ranges::find(recording.tracks, source, &Track::source) != recording.tracks.end();
    };
    MeetingSession session;
    session.id = recording.session;
    session.createdAt = recording.createdAt;
    session.title = recording.title;
    session.applicationBundleID =
        has(AudioSource::meeting) ? applicationID : std::string(AudioInputSelection::disabledID);
    if (!has(AudioSource::microphone)) session.microphoneID = AudioInputSelection::disabledID;
    session.consentConfirmed = true;
    return session;
}

void requireSound(const Recording& recording, const std::filesystem::path& root) {
    if (text::trimmed(recording.title).empty())
        throw MeetingError::invalidData("Der Titel darf nicht leer sein.");
    if (recording.tracks.empty()) throw MeetingError::invalidData("Keine Audiodatei angegeben.");
    if (AudioArchive::removed(recording.session, root)) {
        throw MeetingError::invalidData(
            "Das Audio dieses Meetings wurde entfernt; es wird nicht neu importiert.");
    }
}

/// Whether the meeting is complete but for chunks that it has lost; throws where it lacks nothing.
bool isToBeRestored(const Recording& recording, LibrarySnapshot library, std::span<const AudioChunk> chunks,
                    SQLiteJobStore& database) {
    const auto known = entryOf(library, recording.session);
    if (known == library.meetings.end() || known->state != "completed") return false;
    const auto registered = database.registeredChunksBySession()[known->id];
    // A file has no pauses, so that a gap is a loss that even the queue has forgotten.
    if (known->missingChunks(registered, chunks.size()) > 0 || !AudioArchive::gaps(chunks).empty()) return true;
    throw MeetingError::invalidData("Diese Aufnahme ist schon in der Bibliothek: „" + known->title + "“ (" +
                                    known->id.string() + ").");
}

/// Creates what the chunks need to have: folder, manifest and the library's entry. Returns whether an earlier
/// import is resumed, whose entry keeps all but its state.
bool begin(const Recording& recording, DurableChunkStore& store, MeetingLibrary& library, FileManager& files) {
    const auto session = manifest(recording);
    const auto folder = store.sessionDirectory(recording.session);
    const bool resumed = pathExists(folder);
    if (!resumed) {
        store.createSession(session);
        if (recording.clock) TranscriptStorage::save(*recording.clock, folder / layout::recordingClock, files);
    }
    library.update([&](LibrarySnapshot& snapshot) {
        auto entry = entryOf(snapshot, recording.session);
        if (entry == snapshot.meetings.end()) {
            const auto fresh = MeetingEntry::starting(session, recording.project);
            entry = snapshot.meetings.insert(snapshot.meetings.begin(), fresh);
        }
        if (entry->state != "completed") entry->state = "recording";
    });
    return resumed;
}

/// Takes over what a resumed import is given anew: the start, title and project only while the user has not
/// changed what the first one gave.
void adopt(const Recording& recording, const std::filesystem::path& folder, MeetingLibrary& library,
           FileManager& files) {
    auto session = TranscriptStorage::readOptional<MeetingSession>(folder / layout::manifest, files)
                       .value_or(manifest(recording));
    const auto firstTitle = session.title;
    if (recording.clock) {
        session.createdAt = recording.createdAt;
        TranscriptStorage::save(session, folder / layout::manifest, files);
        TranscriptStorage::save(*recording.clock, folder / layout::recordingClock, files);
    }
    library.update([&](LibrarySnapshot& snapshot) {
        auto& entry = *entryOf(snapshot, recording.session);
        entry.createdAt = session.createdAt;
        if (entry.title != firstTitle || entry.automaticTitlePending) return;
        if (recording.title != defaultMeetingTitle) entry.title = recording.title;
        if (!entry.projectID) entry.projectID = recording.project;
    });
}

/// Without its manifest the store would know none of a meeting's chunks.
void restoreManifest(const Recording& recording, const std::filesystem::path& folder, FileManager& files) {
    try {
        if (TranscriptStorage::readOptional<MeetingSession>(folder / layout::manifest, files)) return;
    } catch (const MeetingError& error) {
        if (error.kind() != MeetingError::Kind::invalidData) throw;
    }
    TranscriptStorage::save(manifest(recording), folder / layout::manifest, files);
}

class TrackImport {
public:
    TrackImport(const Recording& recording, const Track& track, std::span<const AudioChunk> known,
                DurableChunkStore& store, SQLiteJobStore& database, const Progress& progress)
        : track_(track),
          known_(known),
          store_(store),
          database_(database),
          progress_(progress),
          accumulator_(*PCMChunkAccumulator::make(
              recording.session, track.source, secondsPerChunk,
              [this](const AudioChunk& chunk, auto samples) { keep(identified(chunk), samples); })) {}
    ~TrackImport() = default;
    TrackImport(const TrackImport&) = delete;
    TrackImport& operator=(const TrackImport&) = delete;

    Outcome run() {
        std::array<std::int16_t, bufferSamples> buffer{};
        std::int64_t done = 0;
        for (auto count = track_.samples->read(buffer); count > 0; count = track_.samples->read(buffer)) {
            if (done + static_cast<std::int64_t>(count) > maximumTrackSamples) {
                throw MeetingError::invalidData("Die Aufnahme ist länger als 24 Stunden.");
            }
            accumulator_.append(std::span(buffer).first(count),
                                static_cast<double>(done) / static_cast<double>(audio::sampleRate));
            done += static_cast<std::int64_t>(count);
            if (!goOn_) return Outcome::stopped;
        }
        if (done == 0) throw MeetingError::invalidData("Die Audiodatei enthält keinen Ton.");
        accumulator_.endSpan();
        return Outcome::finished;
    }

private:
    /// The same samples at the same place are the same chunk.
    static AudioChunk identified(AudioChunk chunk) {
        chunk.id = UUID::derived(
            chunk.sessionID, std::string(json::nameOf(chunk.source)) + "/" + std::to_string(chunk.sequence));
        return chunk;
    }

    void keep(const AudioChunk& chunk, std::span<const std::int16_t> samples) {
        const bool isKnown = std::ranges::find(known_, chunk.id, &AudioChunk::id) != known_.end();
        if (!isKnown) store_.setAside(chunk);
        store_.commit(chunk, samples);
        database_.registerChunk(chunk);
        goOn_ = progress_(track_.source, chunk.endSeconds());
    }

    Track track_;
    std::span<const AudioChunk> known_;  ///< the chunks of the meeting that were stored before
    DurableChunkStore& store_;
    SQLiteJobStore& database_;
    const Progress& progress_;
    bool goOn_ = true;
    PCMChunkAccumulator accumulator_;
};

/// Sets the entry's state and what the store holds of it.
void settle(const UUID& session, const std::string& state, std::span<const AudioChunk> chunks,
            MeetingLibrary& library) {
    library.update([&](LibrarySnapshot& snapshot) {
        auto& entry = *entryOf(snapshot, session);
        entry.state = state;
        entry.chunkCount = static_cast<std::int64_t>(chunks.size());
        for (const auto& chunk : chunks) entry.duration = std::max(entry.duration, chunk.endSeconds());
        std::ranges::stable_sort(snapshot.meetings, std::ranges::greater(), &MeetingEntry::createdAt);
    });
}

/// Takes back a new import of which nothing was stored.
void forget(const UUID& session, const std::filesystem::path& root, MeetingLibrary& library,
            FileManager& files) {
    const auto folder = layout::meetingFolder(root, session);
    const auto names = files.list(folder);
    const bool onlyFiles = std::ranges::all_of(names, [&](const std::string& name) {
        const auto status = files.status(folder / name);
        return status && status->kind == FileStatus::Kind::file;
    });
    if (!onlyFiles) return settle(session, "interrupted", {}, library);
    library.update([&](LibrarySnapshot& snapshot) {
        std::erase_if(snapshot.meetings, [&](const MeetingEntry& entry) { return entry.id == session; });
    });
    for (const auto& name : names) files.remove(folder / name);
    files.remove(folder);
}

}  // namespace

UUID sessionFor(std::string_view description) { return UUID::derived(importNamespace, description); }

Outcome run(const Recording& recording, const std::filesystem::path& root, MeetingLibrary& library,
            SQLiteJobStore& database, const Progress& progress, FileManager& files) {
    requireSound(recording, root);
    DurableChunkStore store(root / layout::meetings, files);
    const auto folder = store.sessionDirectory(recording.session);
    if (files.status(folder)) restoreManifest(recording, folder, files);
    const auto known = store.recover(recording.session).chunks;
    const bool restores = isToBeRestored(recording, library.snapshot(), known, database);
    const bool resumed = begin(recording, store, library, files);
    try {
        MeetingLibrary::appendEvent(
            {UUID::random(), Date::now(), resumed ? "importResumed" : "importStarted", std::nullopt}, folder,
            files);
    } catch (const MeetingError& error) {  // a broken history keeps nobody from what is left of the audio
        if (error.kind() != MeetingError::Kind::invalidData) throw;
    }
    auto outcome = Outcome::finished;
    try {
        for (const auto& track : recording.tracks) {
            outcome = TrackImport(recording, track, known, store, database, progress).run();
            if (outcome == Outcome::stopped) break;
        }
    } catch (const MeetingError&) {
        if (restores) throw;
        const auto kept = store.recover(recording.session).chunks;
        if (kept.empty() && !resumed) {
            forget(recording.session, root, library, files);
        } else {
            settle(recording.session, "interrupted", kept, library);
        }
        throw;
    }
    if (restores && outcome == Outcome::stopped) return outcome;
    if (resumed && !restores) adopt(recording, folder, library, files);
    const auto report = store.recover(recording.session);
    if (outcome == Outcome::finished) WorkScheduler::enqueue(report.chunks, database, true);
    settle(recording.session, outcome == Outcome::finished ? "completed" : "interrupted", report.chunks,
           library);
    return outcome;
}

std::optional<RecordingClock> storedClock(const UUID& session, const std::filesystem::path& root,
                                          FileManager& files) {
    return TranscriptStorage::readOptional<RecordingClock>(
        layout::meetingFolder(root, session) / layout::recordingClock, files);
}

}  // namespace meetingcore::RecordingImport
