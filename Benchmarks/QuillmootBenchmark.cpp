#include <array>
#include <cstdlib>
#include <fstream>
#include <random>

#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Recording/WAV.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/Process.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using benchmarks::interleaved;
using benchmarks::secondsOf;
using testing::TemporaryFolder;

constexpr int meetingCount = 1000;
constexpr int minutesOfText = 1200;  // 20 hours in all
constexpr std::int64_t samplesPerMinute = 60 * audio::sampleRate;

double secondsOfProgram(const fs::path& program, const std::vector<std::string>& arguments) {
    return secondsOf([&] {
        const auto result = testing::runProcess(program, arguments);
        if (result.status != 0) throw std::runtime_error(result.err);
    });
}

void counters(benchmark::State& state, const benchmarks::Comparison& comparison) {
    state.counters["ours_ms"] = comparison.ours * 1000;
    state.counters["baseline_ms"] = comparison.baseline * 1000;
    state.counters["ratio"] = comparison.ratio;
}

/// A file of noise of 16 kHz, mono, 16 bits.
std::vector<std::int16_t> writeNoise(const fs::path& file, int minutes, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::int16_t> samples(static_cast<std::size_t>(minutes * samplesPerMinute));
    for (auto& sample : samples) sample = static_cast<std::int16_t>(random() % 2000 - 1000);
    std::ofstream(file, std::ios::binary) << WAV::header(samples.size()) << WAV::sampleBytes(samples);
    return samples;
}

/// Importing two tracks of two hours, beside nothing but making the same chunks durable.
void importRecording(benchmark::State& state) {
    constexpr int minutes = 120;
    const TemporaryFolder folder;
    const std::array tracks{folder.path() / "microphone.wav", folder.path() / "meeting.wav"};
    const std::array samples{writeNoise(tracks[0], minutes, 1), writeNoise(tracks[1], minutes, 2)};
    int run = 0;
    const auto ours = [&] {
        const auto root = folder.path() / ("ours" + std::to_string(++run));
        return secondsOfProgram(MEETING_quillmoot_PATH,
                                {"--root", root, "import", "--microphone", tracks[0], "--meeting", tracks[1]});
    };
    const auto baseline = [&] {
        const auto root = folder.path() / ("baseline" + std::to_string(run));
        MeetingSession session;
        session.id = UUID::random();
        session.title = "Grundlinie";
        session.applicationBundleID = "example.conference";
        session.consentConfirmed = true;
        return secondsOf([&] {
            DurableChunkStore store(root / "Meetings");
            SQLiteJobStore database(root / "quillmoot.sqlite");
            store.createSession(session);
            for (std::size_t track = 0; track < tracks.size(); ++track) {
                for (int minute = 0; minute < minutes; ++minute) {
                    const auto piece =
                        std::span(samples[track])
                            .subspan(static_cast<std::size_t>(minute * samplesPerMinute), samplesPerMinute);
                    const AudioChunk chunk{.id = UUID::random(),
                                           .sessionID = session.id,
                                           .source = static_cast<AudioSource>(track),
                                           .sequence = minute,
                                           .startSeconds = minute * 60.0,
                                           .sampleCount = samplesPerMinute};
                    store.commit(chunk, piece);
                    database.registerChunk(chunk);
                }
            }
        });
    };
    for ([[maybe_unused]] auto iteration : state) counters(state, interleaved(3, ours, baseline));
}
BENCHMARK(importRecording)->Iterations(1)->Unit(benchmark::kMillisecond);

/// A library of many short meetings, and the same text in one file per meeting for the baseline.
class LargeLibrary {
public:
    LargeLibrary() {
        fs::create_directories(text());
        SQLiteJobStore database(root() / "quillmoot.sqlite");
        MeetingLibrary library(root());
        library.update([&](LibrarySnapshot& snapshot) {
            for (int i = 0; i < meetingCount; ++i) add(i, snapshot, database);
        });
    }
    fs::path root() const { return folder_.path() / "library"; }
    fs::path text() const { return folder_.path() / "text"; }

private:
    void add(int number, LibrarySnapshot& snapshot, SQLiteJobStore& database) {
        MeetingEntry entry;
        entry.id = UUID::random();
        entry.title = "Wochenrunde " + std::to_string(number);
        entry.createdAt = Date::sinceReferenceDate(721'692'800 + number * 3600.0);
        entry.state = "completed";
        fs::create_directories(layout::meetingFolder(root(), entry.id));
        const int minutes = minutesOfText / meetingCount + (number % 5 == 0 ? 1 : 0);
        std::ofstream plain(text() / (entry.id.string() + ".txt"));
        for (int minute = 0; minute < minutes; ++minute) {
            const AudioChunk chunk{.id = UUID::random(),
                                   .sessionID = entry.id,
                                   .source = AudioSource::microphone,
                                   .sequence = minute,
                                   .startSeconds = minute * 60.0,
                                   .sampleCount = samplesPerMinute};
            const TranscriptionWindow window{entry.id, AudioSource::microphone, {chunk}};
            database.enqueue({window.id(), entry.id, "transcribe", json::encode(window, json::Keys::sorted)});
            SpeechResult result{1, window.id(), {}, {}};
            for (int i = 0; i < 14; ++i) {
                const auto text = sentence();
                plain << text << '\n';
                result.segments.push_back({UUID::random(), minute * 60.0 + i * 4, minute * 60.0 + i * 4 + 3.5,
                                           AudioSource::microphone, std::nullopt, text});
            }
            database.finish(*database.claimNext(Date::now(), 60), json::encode(result), Date::now());
        }
        snapshot.meetings.push_back(std::move(entry));
    }

    std::string sentence() {
        static constexpr std::array words{"die",     "Buchhaltung", "prüft",  "morgen", "den",    "Vertrag",
                                          "mit",     "Straße",      "Größe",  "und",    "Termin", "wir",
                                          "sollten", "Rückfragen",  "klären", "bald"};
        std::string text;
        for (int i = 0; i < 12; ++i) text += std::string(i == 0 ? "" : " ") + words[random_() % words.size()];
        return random_() % 400 == 0 ? text + " Wartungsvertrag." : text + ".";
    }

    TemporaryFolder folder_;
    std::mt19937 random_{7};
};

const LargeLibrary& library() {
    static const LargeLibrary large;
    return large;
}

void runCommand(benchmark::State& state, std::vector<std::string> command) {
    command.insert(command.begin(), {"--root", library().root()});
    for ([[maybe_unused]] auto iteration : state) {
        counters(state, interleaved(
                            9, [&] { return secondsOfProgram(MEETING_quillmoot_PATH, command); },
                            [&] { return secondsOfProgram(MEETING_quillmoot_PATH, {"--version"}); }));
    }
}
BENCHMARK_CAPTURE(runCommand, list, std::vector<std::string>{"list"})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(runCommand, show, std::vector<std::string>{"show", "Wochenrunde 500"})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

/// Searching everything, beside ripgrep on the same text in plain files, where the machine has it.
void search(benchmark::State& state) {
    const fs::path ripgrep = "/usr/bin/rg";
    if (!fs::exists(ripgrep)) {
        state.SkipWithError("ripgrep is not installed");
        return;
    }
    for ([[maybe_unused]] auto iteration : state) {
        counters(state, interleaved(
                            9,
                            [&] {
                                return secondsOfProgram(MEETING_quillmoot_PATH, {"--root", library().root(),
                                                                                 "search", "wartungsvertrag"});
                            },
                            [&] {
                                return secondsOfProgram(ripgrep, {"-i", "wartungsvertrag", library().text()});
                            }));
    }
}
BENCHMARK(search)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace meetingcore
