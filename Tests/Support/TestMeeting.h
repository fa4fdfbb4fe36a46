#pragma once

#include <string>
#include <utility>
#include <vector>

#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore::testing {

/// A data folder with one meeting whose transcription is done: job results in a real job store, made as a
/// speech engine makes them. Segment n says texts[n] and lasts two seconds.
struct TestMeeting {
    explicit TestMeeting(const std::vector<std::string>& texts, AudioSource source = AudioSource::microphone) {
        std::vector<TranscriptSegment> segments;
        for (const auto& text : texts) {
            const double start = 2.0 * static_cast<double>(segments.size());
            segments.push_back({UUID::random(), start, start + 2, source, std::nullopt, text});
        }
        database.enqueue({"window", session, "transcribe", "{}"});
        database.finish(*database.claimNext(Date::now(), 60),
                        json::encode(SpeechResult{1, "window", std::move(segments), {}}), Date::now());
        std::filesystem::create_directories(folder());
    }

    void correct(const UUID& segment, const std::string& text) {
        TranscriptEdits edits;
        edits.correctedText[segment.string()] = text;
        TranscriptStorage::save(edits, folder() / "transcript-edits.json");
    }

    TranscriptDocument load() { return TranscriptStorage::load(session, root.path(), database); }

    std::filesystem::path folder() const { return TranscriptStorage::sessionDirectory(root.path(), session); }

    TemporaryFolder root;
    UUID session = UUID::random();
    SQLiteJobStore database{root.path() / "quillmoot.sqlite"};
};

}  // namespace meetingcore::testing
