#include "Support/SampleMeeting.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

#include "MeetingCore/Platform/JSONReader.h"

namespace meetingcore::testing {

namespace fs = std::filesystem;

namespace {

constexpr std::array tracks{AudioSource::microphone, AudioSource::meeting};
constexpr double windowSeconds = 60;

std::string required(const fs::path& file) {
    auto bytes = TranscriptStorage::readBytes(file);
    if (!bytes) throw MeetingError::notConfigured("Im Beispiel fehlt die Datei " + quotedName(file) + ".");
    return *std::move(bytes);
}

template <class T>
T requiredRecord(const fs::path& file) {
    return json::decode<T>(required(file), quotedName(file));
}

/// What speech recognition would have delivered for the window.
SpeechResult recognised(const SampleMeeting& sample, const TranscriptionWindow& window) {
    SpeechResult result;
    result.version = sample.diarization && sample.diarization->version == 2 ? 2 : 1;
    result.windowID = window.id();
    for (const auto& segment : sample.segments) {
        const bool within =
            segment.startSeconds >= window.startSeconds() && segment.startSeconds < window.endSeconds();
        if (within && segment.source == window.source) result.segments.push_back(segment);
    }
    result.validate(window);
    return result;
}

void schedule(const SampleMeeting& sample, SQLiteJobStore& store) {
    for (const auto source : tracks) {
        const auto chunks = sample.chunks(source);
        for (const auto& chunk : chunks) store.registerChunk(chunk);
        for (const auto& window : WindowPlanner::plan(chunks, windowSeconds, /*flushTail=*/true)) {
            store.enqueue(
                {window.id(), window.sessionID, "transcribe", json::encode(window, json::Keys::sorted)});
        }
    }
}

void transcribe(const SampleMeeting& sample, SQLiteJobStore& store) {
    while (const auto lease = store.claimNext(Date::now(), 60)) {
        const auto window = json::decode<TranscriptionWindow>(lease->item.payloadJSON, "Der Auftrag");
        store.finish(*lease, json::encode(recognised(sample, window)), Date::now());
    }
}

template <class T>
void saveOptional(const std::optional<T>& value, const fs::path& file) {
    if (value) TranscriptStorage::save(*value, file);
}

}  // namespace

SampleMeeting SampleMeeting::load(const fs::path& folder) {
    SampleMeeting sample;
    sample.session = requiredRecord<MeetingSession>(folder / "meeting.json");
    sample.segments = requiredRecord<std::vector<TranscriptSegment>>(folder / "segments.json");
    sample.diarization = TranscriptStorage::readOptional<DiarizationResult>(folder / "diarization.json");
    sample.edits = TranscriptStorage::readOptional<TranscriptEdits>(folder / "transcript-edits.json");
    sample.instructions = TranscriptStorage::readOptional<SummaryInstructions>(folder / "summary-request.json");
    sample.summaryAnswer = required(folder / "summary-answer.json");
    sample.titleAnswer = required(folder / "title-answer.json");
    const bool ascending =
        std::ranges::adjacent_find(sample.segments, std::ranges::greater_equal(),
                                   &TranscriptSegment::startSeconds) == sample.segments.end();
    if (sample.segments.empty() || !ascending) {
        throw MeetingError::invalidData("Die Segmente des Beispiels müssen nach ihrem Beginn aufsteigen.");
    }
    return sample;
}

std::vector<AudioChunk> SampleMeeting::chunks(AudioSource source) const {
    double end = 0;
    for (const auto& segment : segments) end = std::max(end, segment.endSeconds);
    auto remaining = static_cast<std::int64_t>(std::ceil(end)) * audio::sampleRate;
    std::vector<AudioChunk> list;
    while (remaining > 0) {
        AudioChunk chunk;
        chunk.id = UUID::random();
        chunk.sessionID = session.id;
        chunk.source = source;
        chunk.sequence = static_cast<std::int64_t>(list.size());
        chunk.startSeconds = list.empty() ? 0 : list.back().endSeconds();
        chunk.sampleCount = std::min(remaining, audio::maximumChunkSamples);
        remaining -= chunk.sampleCount;
        list.push_back(chunk);
    }
    return list;
}

void install(const SampleMeeting& sample, const fs::path& root) {
    SQLiteJobStore store(root / "quillmoot.sqlite");
    schedule(sample, store);
    transcribe(sample, store);
    const auto folder = TranscriptStorage::sessionDirectory(root, sample.session.id);
    createDirectories(FileManager::system(), folder);
    TranscriptStorage::save(sample.session, folder / "session.json");
    saveOptional(sample.diarization, folder / "diarization.json");
    saveOptional(sample.edits, folder / "transcript-edits.json");
    saveOptional(sample.instructions, folder / "summary-request.json");
}

}  // namespace meetingcore::testing
