#include "MeetingCore/Library/SpeakerIntake.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "MeetingCore/Platform/Text.h"

namespace meetingcore::SpeakerIntake {

namespace {

AudioSource sourceOf(const SpeakerTurn& turn) { return turn.source.value_or(AudioSource::meeting); }

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

/// The turns of one track under the ids of the system, with the names that the file gives.
struct Track {
    std::vector<SpeakerTurn> turns;
    std::map<std::string, std::string> names;  ///< by speaker id
    std::size_t speakers = 0;
};

Track numbered(std::vector<SpeakerTurnFile::Turn> turns, AudioSource source) {
    std::stable_sort(turns.begin(), turns.end(),
                     [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; });
    Track track;
    std::map<std::string, std::size_t> lastTurns;  // by the file's label
    for (const auto& turn : turns) {
        const auto known = lastTurns.find(turn.speaker);
        std::string id;
        if (known == lastTurns.end()) {
            id = (source == AudioSource::microphone ? "mic:" : "") + std::to_string(++track.speakers);
            // RTTM separates its fields by blanks, so names are written with underscores.
            if (!isNumbered(turn.speaker)) track.names[id] = text::replacing(turn.speaker, "_", " ");
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

/// A finished diarization of these turns. Version 1 knows the meeting track alone.
DiarizationResult finished(const UUID& session, std::vector<SpeakerTurn> turns, bool microphone) {
    DiarizationResult diarization;
    diarization.version = microphone ? 2 : 1;
    diarization.sessionID = session;
    diarization.finished = true;
    for (auto& turn : turns) turn.source = microphone ? std::optional(sourceOf(turn)) : std::nullopt;
    std::stable_sort(turns.begin(), turns.end(),
                     [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; });
    diarization.turns = std::move(turns);
    diarization.generation = UUID::derived(session, json::encode(diarization.turns));
    return diarization;
}

bool isOnTrack(const std::string& speakerID, const std::optional<DiarizationResult>& diarization,
               AudioSource source) {
    return diarization &&
           std::any_of(diarization->turns.begin(), diarization->turns.end(), [&](const auto& turn) {
               return turn.speakerID == speakerID && sourceOf(turn) == source;
           });
}

/// The names that stay: those of the diarization that is replaced, but for the track whose speakers are
/// numbered anew.
void renewNames(TranscriptEdits& edits, const std::optional<DiarizationResult>& replaced,
                const DiarizationResult& diarization, AudioSource otherTrack,
                const std::map<std::string, std::string>& names) {
    if (edits.speakerGeneration != diarization.generation) {
        if (!replaced || edits.speakerGeneration != replaced->generation) edits.speakerNames.clear();
        std::erase_if(edits.speakerNames,
                      [&](const auto& entry) { return !isOnTrack(entry.first, replaced, otherTrack); });
    }
    for (const auto& [id, name] : names) edits.speakerNames[id] = name;
    edits.speakerGeneration = diarization.generation;
}

}  // namespace

Report take(const UUID& session, AudioSource source, const SpeakerTurnFile& file,
            const std::optional<std::string>& recording, const std::filesystem::path& root,
            SQLiteJobStore& database, FileManager& files) {
    auto track = numbered(file.of(recording), source);
    auto document = TranscriptStorage::load(session, root, database, files);
    if (document.diarization && !document.diarization->finished) {
        throw MeetingError::invalidData("Die Sprechererkennung dieses Meetings läuft noch.");
    }
    auto turns = track.turns;
    bool microphone = source == AudioSource::microphone || document.requiresMicrophoneDiarization;
    if (document.diarization) {
        for (const auto& turn : document.diarization->turns) {
            if (sourceOf(turn) == source) continue;
            turns.push_back(turn);
            microphone = true;  // either this turn is on it or the imported ones are
        }
    }
    const auto diarization = finished(session, std::move(turns), microphone);
    const auto otherTrack = source == AudioSource::microphone ? AudioSource::meeting : AudioSource::microphone;
    renewNames(document.edits, document.diarization, diarization, otherTrack, track.names);
    const auto folder = TranscriptStorage::sessionDirectory(root, session);
    // The names first: until the turns arrive they belong to no diarization, and the same import finds them
    // again.
    TranscriptStorage::save(document.edits, folder / "transcript-edits.json", files);
    TranscriptStorage::save(diarization, folder / "diarization.json", files);
    return {track.speakers, track.names.size(), track.turns.size()};
}

void settle(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
            FileManager& files) {
    const auto document = TranscriptStorage::load(session, root, database, files);
    if (document.diarization || document.requiresMicrophoneDiarization || !document.diarizationPending())
        return;
    TranscriptStorage::save(finished(session, {}, /*microphone=*/false),
                            TranscriptStorage::sessionDirectory(root, session) / "diarization.json", files);
}

}  // namespace meetingcore::SpeakerIntake
