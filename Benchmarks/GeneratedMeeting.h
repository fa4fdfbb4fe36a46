#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::benchmarks {

/// A data folder with one long meeting: segments of about 75 characters in job results of one minute each, and
/// turns of two speakers a minute.
class GeneratedMeeting {
public:
    GeneratedMeeting(std::size_t segmentCount, std::size_t resultCount, std::size_t turnCount)
        : root_(std::filesystem::temp_directory_path() / ("meeting-benchmark-" + UUID::random().string())) {
        std::filesystem::create_directories(folder());
        SQLiteJobStore database(root_ / "quillmoot.sqlite");
        const auto perResult = (segmentCount + resultCount - 1) / resultCount;
        for (std::size_t made = 0; made < segmentCount;) {
            SpeechResult result{1, "window " + std::to_string(made), {}, {}};
            for (std::size_t i = 0; i < perResult && made < segmentCount; ++i, ++made) {
                result.segments.push_back(segment(made));
            }
            results.push_back(json::encode(result));
            database.enqueue({result.windowID, session, "transcribe", "{}"});
            database.finish(*database.claimNext(Date::now(), 60), results.back(), Date::now());
        }
        DiarizationResult diarization{1, session, UUID::random(), true, {}};
        const double end = secondsPerSegment * static_cast<double>(segmentCount);
        for (std::size_t i = 0; i < turnCount; ++i) {
            const double start = end * static_cast<double>(i) / static_cast<double>(turnCount);
            diarization.turns.push_back({std::to_string(i % 4), std::nullopt, start, start + 1.5});
        }
        diarizationJSON = json::encode(diarization);
        TranscriptStorage::save(diarization, folder() / "diarization.json");
    }
    ~GeneratedMeeting() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
    GeneratedMeeting(const GeneratedMeeting&) = delete;
    GeneratedMeeting& operator=(const GeneratedMeeting&) = delete;

    const std::filesystem::path& root() const { return root_; }
    std::filesystem::path folder() const { return layout::meetingFolder(root_, session); }
    std::filesystem::path database() const { return root_ / "quillmoot.sqlite"; }

    UUID session = UUID::random();
    std::vector<std::string> results;  ///< the job results' JSON
    std::string diarizationJSON;

private:
    static constexpr double secondsPerSegment = 0.85;

    TranscriptSegment segment(std::size_t number) {
        static const std::vector<std::string> words = {
            "wir",     "müssen", "das",   "Budget", "für",       "Quartal", "bis",     "Freitag",
            "klären,", "also",   "genau", "Euro.",  "Straße",    "Grüße!",  "nächste", "Woche",
            "Müller",  "Server", "und",   "die",    "Lieferung", "dann",    "noch",    "einmal"};
        std::string text;
        while (text.size() < 70) text += words[random_() % words.size()] + " ";
        const double start = secondsPerSegment * static_cast<double>(number);
        return {UUID::random(), start, start + 0.8, AudioSource::meeting, std::nullopt, text};
    }

    std::filesystem::path root_;
    std::mt19937 random_{1};
};

}  // namespace meetingcore::benchmarks
