#pragma once

#include <string>
#include <vector>

#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestRecording.h"

namespace meetingcore::testing {

/// A data folder with a job store and one meeting, of which nothing is recorded yet.
struct MeetingFolder {
    MeetingFolder() {
        auto manifest = testSession();
        manifest.id = session;
        std::filesystem::create_directories(folder);
        TranscriptStorage::save(manifest, folder / "session.json");
    }

    /// Stores the next chunk, made of its own samples.
    AudioChunk record(double start, std::int64_t samples, AudioSource source = AudioSource::microphone) {
        const auto number = static_cast<std::int64_t>(chunks.size());
        chunks.push_back(testChunk(session, number, start, samples, source));
        DurableChunkStore(root.path() / "Meetings").commit(chunks.back(), samplesOf(chunks.back()));
        return chunks.back();
    }

    /// Adds a completed job with this result of speech recognition.
    void addResult(const std::string& result) {
        const auto id = "window " + std::to_string(database.jobCount());
        database.enqueue({id, session, "transcribe", "{}"});
        database.finish(database.claim(id, Date::now(), 60).value(), result, Date::now());
    }

    TranscriptDocument load() { return TranscriptStorage::load(session, root.path(), database); }

    TemporaryFolder root;
    UUID session = UUID::random();
    std::filesystem::path folder = layout::meetingFolder(root.path(), session);
    std::filesystem::path turnsFile = folder / "diarization.json", editsFile = folder / "transcript-edits.json";
    SQLiteJobStore database{root.path() / "quillmoot.sqlite"};
    std::vector<AudioChunk> chunks;
};

/// A meeting whose transcription is done, as a speech engine does it. Segment n says texts[n] and lasts two
/// seconds.
struct TestMeeting : MeetingFolder {
    explicit TestMeeting(const std::vector<std::string>& texts, AudioSource source = AudioSource::microphone) {
        std::vector<TranscriptSegment> segments;
        for (const auto& text : texts) {
            const double start = 2.0 * static_cast<double>(segments.size());
            segments.push_back({UUID::random(), start, start + 2, source, std::nullopt, text});
        }
        addResult(json::encode(SpeechResult{1, "window", std::move(segments), {}}));
    }

    void correct(const UUID& segment, const std::string& text) {
        TranscriptEdits edits;
        edits.correctedText[segment.string()] = text;
        TranscriptStorage::save(edits, editsFile);
    }
};

}  // namespace meetingcore::testing
