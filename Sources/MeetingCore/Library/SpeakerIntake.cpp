#include "MeetingCore/Library/SpeakerIntake.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/FileProblems.h"
#include "MeetingCore/Transcript/TranscriptEditing.h"

namespace meetingcore::SpeakerIntake {

namespace {

AudioSource sourceOf(const SpeakerTurn& turn) { return turn.source.value_or(AudioSource::meeting); }

std::string trackName(AudioSource source) {
    return source == AudioSource::meeting ? "Der Meeting-Ton" : "Das Mikrofon";
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Whether the label only counts speakers, as diarizers do: "SPEAKER_00", "spk1", "Sprecher 2", "3".
bool isNumbered(const std::string& label) {
    std::string_view rest = label;
    while (!rest.empty() && isDigit(rest.back())) rest.remove_suffix(1);
    if (rest.size() == label.size()) return false;
    while (!rest.empty() && (rest.back() == '_' || rest.back() == '-' || rest.back() == ' '))
        rest.remove_suffix(1);
    const auto word = text::lowercased(rest);
    return word.empty() || word == "speaker" || word == "spk" || word == "spkr" || word == "sprecher";
}

/// The name that a label is; nothing where it only counts. RTTM separates its fields by blanks, so names are
/// written with underscores.
std::optional<std::string> nameIn(const std::string& label) {
    if (isNumbered(label)) return std::nullopt;
    const auto spaced = text::replacing(label, "_", " ");
    const auto name = text::trimmed(spaced);
    return name.empty() ? std::nullopt : std::optional<std::string>(name);
}

/// The meeting's tracks, and where the last one ends; empty where nothing is known of its audio.
struct Recorded {
    std::set<AudioSource> tracks;
    double end = 0;

    void add(AudioSource track, double seconds) {
        tracks.insert(track);
        end = std::max(end, seconds);
    }
};

/// From the meeting's jobs and, where these do not reach so far or some may be missing, its chunks.
Recorded recorded(const UUID& session, double expectedEnd, const std::set<AudioSource>& expected,
                  const std::filesystem::path& root, SQLiteJobStore& database, FileManager& files) {
    Recorded recorded;
    for (const auto& job : database.jobs(session)) {
        if (const auto window = WorkScheduler::windowOf(job))
            recorded.add(window->source, window->endSeconds());
    }
    if (expectedEnd <= recorded.end && std::ranges::includes(recorded.tracks, expected)) return recorded;
    for (const auto& chunk : DurableChunkStore(root / layout::meetings, files).recover(session).chunks)
        recorded.add(chunk.source, chunk.endSeconds());
    return recorded;
}

using Turns = std::vector<SpeakerTurnFile::Turn>;

/// Throws with a sentence for each turn that lies outside the recording or whose speaker cannot be called so.
void check(const SpeakerTurnFile& file, const std::vector<Turns>& tracks, const std::set<AudioSource>& sources,
           const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
           FileManager& files) {
    double latest = 0;
    for (const auto& turns : tracks) {
        for (const auto& turn : turns) latest = std::max(latest, turn.startSeconds);
    }
    const auto audio = recorded(session, latest - secondsOutsideAudio, sources, root, database, files);
    for (const auto source : sources) {
        if (audio.tracks.empty() || audio.tracks.contains(source)) continue;
        throw MeetingError::invalidData(trackName(source) + " hat in diesem Meeting keine Audioabschnitte.");
    }
    FileProblems problems(file.name, file.placeName);
    for (const auto& turns : tracks) {
        for (const auto& turn : turns) {
            if (!audio.tracks.empty() && turn.startSeconds > audio.end + secondsOutsideAudio)
                problems.add(turn.place, "Die Zeit liegt außerhalb der Aufnahme.");
            const auto name = nameIn(turn.speaker);
            if (!name) continue;
            if (const auto problem = TranscriptEditing::nameProblem(*name)) problems.add(turn.place, *problem);
        }
    }
    problems.throwIfAny();
}

/// The turns of one track under the ids of the system, with the names that the file gives.
struct Track {
    AudioSource source = AudioSource::meeting;
    std::vector<SpeakerTurn> turns;
    std::map<std::string, std::string> names;  ///< by speaker id
    std::size_t speakers = 0;
    bool isThere = false;  ///< these are the track's turns already
};

Track numbered(Turns turns, AudioSource source) {
    std::stable_sort(turns.begin(), turns.end(),
                     [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; });
    Track track;
    track.source = source;
    std::map<std::string, std::size_t> lastTurns;  // by the file's label
    for (const auto& turn : turns) {
        const auto known = lastTurns.find(turn.speaker);
        std::string id;
        if (known == lastTurns.end()) {
            id = (source == AudioSource::microphone ? "mic:" : "") + std::to_string(++track.speakers);
            if (auto name = nameIn(turn.speaker)) track.names[id] = *std::move(name);
        } else {
            auto& last = track.turns[known->second];
            if (turn.startSeconds <= last.endSeconds) {
                last.endSeconds = std::max(last.endSeconds, turn.endSeconds);
                continue;
            }
            id = last.speakerID;
        }
        lastTurns[turn.speaker] = track.turns.size();
        track.turns.push_back({std::move(id), source, turn.startSeconds, turn.endSeconds});
    }
    return track;
}

/// A finished diarization of these turns. Version 1 knows the meeting track alone. Turns that begin together
/// stand in the order of the tracks, whichever was imported first.
DiarizationResult finished(const UUID& session, std::vector<SpeakerTurn> turns, bool microphone) {
    DiarizationResult diarization;
    diarization.version = microphone ? 2 : 1;
    diarization.sessionID = session;
    diarization.finished = true;
    for (auto& turn : turns) turn.source = microphone ? std::optional(sourceOf(turn)) : std::nullopt;
    std::stable_sort(turns.begin(), turns.end(), [](const auto& a, const auto& b) {
        return std::tuple(a.startSeconds, sourceOf(a)) < std::tuple(b.startSeconds, sourceOf(b));
    });
    diarization.turns = std::move(turns);
    diarization.generation = UUID::derived(session, json::encode(diarization.turns));
    return diarization;
}

std::vector<SpeakerTurn> turnsOn(AudioSource source, const std::optional<DiarizationResult>& diarization) {
    std::vector<SpeakerTurn> turns;
    if (!diarization) return turns;
    for (const auto& turn : diarization->turns) {
        if (sourceOf(turn) == source)
            turns.push_back({turn.speakerID, source, turn.startSeconds, turn.endSeconds});
    }
    return turns;
}

bool isOn(const std::vector<SpeakerTurn>& turns, const std::string& speakerID) {
    return std::any_of(turns.begin(), turns.end(),
                       [&](const auto& turn) { return turn.speakerID == speakerID; });
}

/// Keeps the names of speakers who keep their numbers, and adds the file's for those who have none.
void renewNames(TranscriptEdits& edits, const std::optional<DiarizationResult>& replaced,
                const DiarizationResult& diarization, const std::vector<Track>& tracks) {
    // Names of the new generation come from an import that was cut off, and stay.
    if (edits.speakerGeneration != diarization.generation) {
        if (!replaced || edits.speakerGeneration != replaced->generation) edits.speakerNames.clear();
        for (const auto source : {AudioSource::microphone, AudioSource::meeting}) {
            const bool renumbered = std::any_of(tracks.begin(), tracks.end(), [&](const Track& track) {
                return track.source == source && !track.isThere;
            });
            const auto turns = turnsOn(source, replaced);
            std::erase_if(edits.speakerNames,
                          [&](const auto& entry) { return renumbered && isOn(turns, entry.first); });
        }
    }
    for (const auto& track : tracks) edits.speakerNames.insert(track.names.begin(), track.names.end());
    edits.speakerGeneration = diarization.generation;
}

constexpr const char* hasSpeakers =
    " hat schon Sprecher. Sie zu ersetzen verwirft auch die Namen, die ihnen gegeben wurden.";

void refuseUnfinished(const std::optional<DiarizationResult>& diarization) {
    if (diarization && !diarization->finished)
        throw MeetingError::invalidData(
            "Die Sprechererkennung dieses Meetings läuft noch. Wurde sie abgebrochen, ist sie zu ersetzen.");
}

/// What is to be replaced; a file that is broken, or of a recognition that did not finish, is, as if there
/// were none.
std::optional<DiarizationResult> present(const UUID& session, const std::filesystem::path& root,
                                         Existing existing, FileManager& files) {
    try {
        auto diarization = TranscriptStorage::loadDiarization(session, root, files);
        if (existing == Existing::refuse) refuseUnfinished(diarization);
        return diarization && diarization->finished ? diarization : std::nullopt;
    } catch (const MeetingError& error) {
        if (existing == Existing::refuse || error.kind() != MeetingError::Kind::invalidData) throw;
        return std::nullopt;
    }
}

std::vector<Track> read(const SpeakerTurnFile& file, std::span<const Selection> selections, const UUID& session,
                        const std::filesystem::path& root, SQLiteJobStore& database, FileManager& files) {
    std::vector<Turns> turns;
    std::set<AudioSource> sources;
    for (const auto& selection : selections) {
        turns.push_back(file.of(selection.recording));
        sources.insert(selection.source);
    }
    check(file, turns, sources, session, root, database, files);
    std::vector<Track> tracks;
    for (std::size_t i = 0; i < selections.size(); ++i)
        tracks.push_back(numbered(std::move(turns[i]), selections[i].source));
    return tracks;
}

/// The diarization with these tracks and what the present one has on the other.
DiarizationResult joined(const UUID& session, const std::vector<Track>& tracks,
                         const std::optional<DiarizationResult>& present, bool microphone) {
    std::vector<SpeakerTurn> turns;
    for (const auto source : {AudioSource::microphone, AudioSource::meeting}) {
        const auto imported = std::find_if(tracks.begin(), tracks.end(),
                                           [&](const Track& track) { return track.source == source; });
        const auto own = imported == tracks.end() ? turnsOn(source, present) : imported->turns;
        turns.insert(turns.end(), own.begin(), own.end());
        microphone = microphone || (source == AudioSource::microphone && !own.empty());
    }
    return finished(session, std::move(turns), microphone);
}

}  // namespace

std::vector<Report> take(const UUID& session, const SpeakerTurnFile& file,
                         std::span<const Selection> selections, const std::filesystem::path& root,
                         SQLiteJobStore& database, Existing existing, FileManager& files) {
    auto tracks = read(file, selections, session, root, database, files);
    const auto replaced = present(session, root, existing, files);
    std::vector<Report> reports;
    for (auto& track : tracks) {
        const auto before = turnsOn(track.source, replaced);
        track.isThere = before == track.turns;
        if (existing == Existing::refuse && !track.isThere && !before.empty()) {
            throw MeetingError::invalidData(trackName(track.source) + hasSpeakers,
                                            MeetingError::Cause::alreadyThere);
        }
        reports.push_back(
            {track.source, track.speakers, track.names.size(), track.turns.size(), !track.isThere});
    }
    const bool required = TranscriptStorage::loadRecognised(session, database).requiresMicrophoneDiarization;
    auto diarization = joined(session, tracks, replaced, required);
    const bool sameTurns =
        std::all_of(tracks.begin(), tracks.end(), [](const auto& track) { return track.isThere; });
    if (replaced && sameTurns && replaced->version == diarization.version) {
        if (existing == Existing::refuse) return reports;
        diarization = *replaced;  // whoever made it, the names are bound to its generation
    }
    const auto folder = layout::meetingFolder(root, session);
    auto edits = TranscriptStorage::readOptional<TranscriptEdits>(folder / layout::edits, files)
                     .value_or(TranscriptEdits{});
    renewNames(edits, replaced, diarization, tracks);
    // The names first: until the turns arrive they belong to no diarization, and the same import finds them
    // again.
    TranscriptStorage::save(edits, folder / layout::edits, files);
    TranscriptStorage::save(diarization, folder / layout::diarization, files);
    return reports;
}

std::set<AudioSource> recordedTracks(const UUID& session, const std::filesystem::path& root,
                                     SQLiteJobStore& database, FileManager& files) {
    const std::set<AudioSource> all{AudioSource::microphone, AudioSource::meeting};
    return recorded(session, 0, all, root, database, files).tracks;
}

void settle(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
            FileManager& files) {
    const auto document = TranscriptStorage::load(session, root, database, files);
    if (document.diarization || document.requiresMicrophoneDiarization || !document.diarizationPending())
        return;
    TranscriptStorage::save(finished(session, {}, /*microphone=*/false),
                            layout::meetingFolder(root, session) / layout::diarization, files);
}

void declareNone(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
                 Existing existing, FileManager& files) {
    const auto replaced = present(session, root, existing, files);
    if (existing == Existing::refuse && replaced && !replaced->turns.empty()) {
        throw MeetingError::invalidData(std::string("Dieses Meeting") + hasSpeakers,
                                        MeetingError::Cause::alreadyThere);
    }
    const bool microphone = TranscriptStorage::loadRecognised(session, database).requiresMicrophoneDiarization;
    TranscriptStorage::save(finished(session, {}, microphone),
                            layout::meetingFolder(root, session) / layout::diarization, files);
}

}  // namespace meetingcore::SpeakerIntake
