#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "MeetingCore/Summary/ExtractiveSummarizer.h"
#include "MeetingCore/Summary/GermanText.h"
#include "PeakMemory.h"
#include "Support/MarkedMeeting.h"

namespace meetingcore {
namespace {

using benchmarks::peakMiBOf;
using benchmarks::secondsOf;
using testing::MarkedMeeting;

/// Real speech over and over, each round with words of its own, so that the vocabulary grows as it does in one
/// long conversation.
TranscriptDocument longMeeting(std::size_t segmentCount) {
    std::vector<TranscriptSegment> speech;
    for (const auto* name : MarkedMeeting::developed) {
        const auto meeting =
            MarkedMeeting::load(std::filesystem::path(MEETING_SAMPLES_FOLDER) / "Meetings" / name);
        speech.insert(speech.end(), meeting.document.segments.begin(), meeting.document.segments.end());
    }
    TranscriptDocument document;
    for (std::size_t i = 0; i < segmentCount; ++i) {
        auto segment = speech[i % speech.size()];
        segment.id = UUID::random();
        segment.startSeconds = 5.0 * static_cast<double>(i);
        segment.endSeconds = segment.startSeconds + 4;
        segment.text += " Vorgang " + std::to_string(i / speech.size()) + "a.";
        document.segments.push_back(std::move(segment));
    }
    return document;
}

/// Beside the time of reading the words alone: sentences, lower case, stems.
void summarize(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto document = longMeeting(count);
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = benchmarks::interleaved(
            3,
            [&] {
                return secondsOf([&] { benchmark::DoNotOptimize(ExtractiveSummarizer().summarize(document)); });
            },
            [&] { return secondsOf([&] { benchmark::DoNotOptimize(GermanText(document.segments)); }); });
        state.SetIterationTime(result.ours);
        state.counters["words_alone_ms"] = result.baseline * 1e3;
        state.counters["ours/words_alone"] = result.ratio;
        state.counters["us/segment"] = result.ours * 1e6 / static_cast<double>(count);
    }
}

void title(benchmark::State& state) {
    const auto document = longMeeting(static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] auto iteration : state) {
        state.SetIterationTime(
            secondsOf([&] { benchmark::DoNotOptimize(ExtractiveSummarizer().title(document)); }));
    }
}

/// Peak memory of a process that summarizes, beside one that only holds the transcript.
void memory(benchmark::State& state) {
    const auto document = longMeeting(static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] auto iteration : state) {
        const auto held = peakMiBOf([] {});
        double peak = 0;
        state.SetIterationTime(secondsOf([&] {
            peak = peakMiBOf([&] { benchmark::DoNotOptimize(ExtractiveSummarizer().summarize(document)); });
        }));
        state.counters["whole_MiB"] = peak;
        state.counters["beside_transcript_MiB"] = peak - held;
    }
}

void configure(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
}

BENCHMARK(memory)->Arg(20'000)->Arg(100'000)->Apply(configure);
BENCHMARK(summarize)->Arg(1'000)->Arg(10'000)->Arg(20'000)->Arg(100'000)->Apply(configure);
BENCHMARK(title)->Arg(20'000)->Apply(configure);

}  // namespace
}  // namespace meetingcore
