#include "MeetingCore/Transcript/InferenceData.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

#include "MeetingCore/Platform/DistinctIDs.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/TurnIndex.h"

namespace meetingcore {

template SpeechResult json::decode(std::string_view, const std::string&);
template DiarizationResult json::decode(std::string_view, const std::string&);
template TranscriptEdits json::decode(std::string_view, const std::string&);

namespace {

bool fits(const TranscriptSegment& segment, const TranscriptionWindow& window) {
    return segment.source == window.source && !segment.text.empty() &&
           !text::exceeds(segment.text, SpeechResult::maximumSegmentCharacters) &&
           std::isfinite(segment.startSeconds) && std::isfinite(segment.endSeconds) &&
           segment.startSeconds >= window.startSeconds() - SpeechResult::secondsBeforeWindow &&
           segment.endSeconds <= window.endSeconds() + SpeechResult::secondsAfterWindow &&
           segment.endSeconds >= segment.startSeconds;
}

void validateTurns(const DiarizationResult& diarization) {
    const bool valid =
        std::all_of(diarization.turns.begin(), diarization.turns.end(), [](const SpeakerTurn& turn) {
            return !turn.speakerID.empty() && std::isfinite(turn.startSeconds) &&
                   std::isfinite(turn.endSeconds) && turn.startSeconds >= 0 &&
                   turn.endSeconds >= turn.startSeconds;
        });
    if (!valid)
        throw MeetingError::invalidData("Ungültige Sprecherzeitmarken.", json::unreadable<DiarizationResult>);
}

/// Where each result's segments begin, in the order in which the results came.
using FirstSegments = std::vector<std::pair<SQLiteJobStore::Place, std::size_t>>;

/// By start; those that start together by the place of their result and then as they stand in it. Moves each
/// segment once: what is sorted are their numbers.
void sortByStart(std::vector<TranscriptSegment>& segments, const FirstSegments& results) {
    const auto startsBefore = [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; };
    const bool resultsInOrder = std::is_sorted(results.begin(), results.end());
    if (resultsInOrder && std::is_sorted(segments.begin(), segments.end(), startsBefore)) return;
    auto byPlace = results;
    std::sort(byPlace.begin(), byPlace.end());
    std::vector<std::pair<double, std::size_t>> order;  // start, number of the segment
    order.reserve(segments.size());
    for (const auto& [place, first] : byPlace) {
        const auto next = std::upper_bound(results.begin(), results.end(), first,
                                           [](auto at, const auto& result) { return at < result.second; });
        const auto end = next == results.end() ? segments.size() : next->second;
        for (auto i = first; i < end; ++i) order.emplace_back(segments[i].startSeconds, i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<TranscriptSegment> sorted;
    sorted.reserve(segments.size());
    for (const auto& [start, i] : order) sorted.push_back(std::move(segments[i]));
    segments = std::move(sorted);
}

/// The document with its raw segments, from the results of a session's jobs or of these jobs, which are at most
/// `most`.
template <class Jobs>
TranscriptDocument recognised(const Jobs& jobs, std::size_t most, SQLiteJobStore& database) {
    constexpr std::size_t mostReserved = 131'072;
    TranscriptDocument document;
    json::reading::Parser parser;
    auto& segments = document.rawSegments;
    FirstSegments results;
    SpeechResult result;  // the same for all texts: its lists keep their memory
    database.forEachCompletedResult(jobs, [&](std::string_view text, SQLiteJobStore::Place place) {
        result.segments.clear();
        result.words.clear();
        json::decode(text, "Das Ergebnis eines Transkriptionsauftrags", parser, result);
        if (result.version != 1 && result.version != 2)
            throw MeetingError::invalidData("Unbekannte Transkriptversion.");
        if (result.version == 2) document.requiresMicrophoneDiarization = true;
        if (result.segments.empty()) return;
        // One window is like the other, and memory that is not needed after all is never touched.
        if (results.empty()) segments.reserve(std::min(result.segments.size() * most, mostReserved));
        results.emplace_back(std::move(place), segments.size());
        segments.insert(segments.end(), std::make_move_iterator(result.segments.begin()),
                        std::make_move_iterator(result.segments.end()));
    });
    if (!haveDistinctIDs(segments)) throw MeetingError::invalidData("Doppelte Transkriptsegmente.");
    sortByStart(segments, results);
    return document;
}

}  // namespace

void SpeechResult::validate(const TranscriptionWindow& window) const {
    const bool valid = windowID == window.id() && segments.size() <= maximumItems &&
                       words.size() <= maximumItems && haveDistinctIDs(segments) &&
                       std::all_of(segments.begin(), segments.end(),
                                   [&](const TranscriptSegment& segment) { return fits(segment, window); });
    if (!valid) throw MeetingError::invalidData("Ungültige Zeitmarken oder Textsegmente vom Sprachmodell.");
}

bool TranscriptDocument::diarizationPending() const {
    if (diarization && !diarization->finished) return true;
    if (requiresMicrophoneDiarization && (!diarization || diarization->version != 2)) return true;
    const bool meetingSpeech = std::any_of(rawSegments.begin(), rawSegments.end(), [](const auto& segment) {
        return segment.source == AudioSource::meeting;
    });
    return meetingSpeech && !diarization;
}

bool TranscriptDocument::microphoneDiarized() const {
    return requiresMicrophoneDiarization || (diarization && diarization->version == 2);
}

std::string TranscriptDocument::speakerLabel(const TranscriptSegment& segment) const {
    if (!segment.speakerID) {
        if (segment.source == AudioSource::meeting) return "Meeting-Ton";
        return microphoneDiarized() ? "Mikrofon · unklar" : "Ich · Mikrofon";
    }
    if (edits.speakerGeneration && diarization && edits.speakerGeneration == diarization->generation) {
        const auto name = edits.speakerNames.find(*segment.speakerID);
        if (name != edits.speakerNames.end()) return name->second;
    }
    return defaultSpeakerLabel(*segment.speakerID);
}

std::string TranscriptDocument::defaultSpeakerLabel(const std::string& speakerID) {
    constexpr std::string_view microphonePrefix = "mic:";
    if (speakerID.starts_with(microphonePrefix)) {
        auto digits = std::string_view(speakerID).substr(microphonePrefix.size());
        if (digits.starts_with('+') && !digits.starts_with("+-")) digits.remove_prefix(1);
        std::int64_t number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error == std::errc{} && end == digits.data() + digits.size()) {
            return "Sprecher " + std::to_string(number) + " · Mikrofon";
        }
    }
    return "Sprecher " + speakerID;
}

std::vector<TranscriptSegment> TranscriptDocument::merge(std::span<const TranscriptSegment> rawSegments,
                                                         const std::optional<DiarizationResult>& diarization,
                                                         const TranscriptEdits& edits) {
    const auto turns =
        diarization ? std::span<const SpeakerTurn>(diarization->turns) : std::span<const SpeakerTurn>();
    TurnIndex microphone(turns, AudioSource::microphone);
    TurnIndex meeting(turns, AudioSource::meeting);
    std::vector<TranscriptSegment> merged;
    merged.reserve(rawSegments.size());
    for (const auto& raw : rawSegments) {
        const double midpoint = (raw.startSeconds + raw.endSeconds) * 0.5;
        const auto* const turn =
            (raw.source == AudioSource::microphone ? microphone : meeting).onlyTurnAt(midpoint);
        auto& segment = merged.emplace_back(raw);
        segment.speakerID = turn == nullptr ? std::nullopt : std::optional(turn->speakerID);
        if (edits.correctedText.empty()) continue;
        const auto correction = edits.correctedText.find(raw.id.string());
        if (correction != edits.correctedText.end()) segment.text = correction->second;
    }
    return merged;
}

namespace TranscriptStorage {

std::optional<DiarizationResult> loadDiarization(const UUID& session, const std::filesystem::path& root,
                                                 FileManager& files) {
    constexpr std::size_t bytesPerTurn = 57;  // no more than most have: room for all turns is made at once
    const auto file = layout::meetingFolder(root, session) / layout::diarization;
    const auto bytes = readBytes(file, files);
    if (!bytes) return std::nullopt;
    json::reading::Parser parser;
    DiarizationResult diarization;
    diarization.turns.reserve(bytes->size() / bytesPerTurn);
    json::decode(*bytes, quotedName(file), parser, diarization);
    if (diarization.sessionID != session || (diarization.version != 1 && diarization.version != 2)) {
        throw MeetingError::invalidData("Falsche Diarisierungssitzung.", json::unreadable<DiarizationResult>);
    }
    validateTurns(diarization);
    return diarization;
}

namespace {

void complete(TranscriptDocument& document, const UUID& session, const std::filesystem::path& root,
              FileManager& files) {
    const auto folder = layout::meetingFolder(root, session);
    document.diarization = loadDiarization(session, root, files);
    document.edits = readOptional<TranscriptEdits>(folder / layout::edits, files).value_or(TranscriptEdits{});
    document.segments = TranscriptDocument::merge(document.rawSegments, document.diarization, document.edits);
}

}  // namespace

TranscriptDocument loadRecognised(const UUID& session, SQLiteJobStore& database) {
    // All sessions' jobs, of which an index knows the number; to count the session's own, each row is visited.
    return recognised(session, static_cast<std::size_t>(database.jobCount()), database);
}

TranscriptDocument load(const UUID& session, const std::filesystem::path& root, SQLiteJobStore& database,
                        FileManager& files) {
    auto document = loadRecognised(session, database);
    complete(document, session, root, files);
    return document;
}

TranscriptDocument load(const UUID& session, const std::filesystem::path& root,
                        std::span<const std::string> jobs, SQLiteJobStore& database, FileManager& files) {
    auto document = recognised(jobs, jobs.size(), database);
    complete(document, session, root, files);
    return document;
}

bool hasUnfinishedDiarization(const std::filesystem::path& root, FileManager& files) {
    const auto meetings = root / layout::meetings;
    if (!pathExists(meetings)) return false;
    const auto names = files.list(meetings);
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        const auto diarization = readOptional<DiarizationResult>(meetings / name / layout::diarization, files);
        return diarization && !diarization->finished;
    });
}

std::optional<std::string> readBytes(const std::filesystem::path& file, FileManager& files) {
    if (!pathExists(file)) return std::nullopt;
    return readRecord(files, file);
}

}  // namespace TranscriptStorage
}  // namespace meetingcore
