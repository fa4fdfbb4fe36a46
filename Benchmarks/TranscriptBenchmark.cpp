#include <limits>
#include <optional>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include "Comparison.h"
#include "GeneratedMeeting.h"
#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Summary/SummaryArtifact.h"

namespace meetingcore {
namespace {

using benchmarks::GeneratedMeeting;
using benchmarks::interleaved;
using benchmarks::secondsOf;

constexpr int rounds = 7;

/// Visits every value of a document as simdjson's on-demand interface hands them out, keeping nothing.
std::size_t visit(simdjson::ondemand::value value) {
    std::size_t total = 0;
    switch (value.type().value()) {
        case simdjson::ondemand::json_type::array:
            for (auto element : value.get_array()) total += visit(element.value());
            return total;
        case simdjson::ondemand::json_type::object:
            for (auto field : value.get_object()) {
                total += field.unescaped_key().value().size();
                total += visit(field.value());
            }
            return total;
        case simdjson::ondemand::json_type::string:
            return value.get_string().value().size();
        case simdjson::ondemand::json_type::number:
            return value.get_double().value() > 0 ? 1 : 0;
        default:
            return value.is_null().value() ? 1 : 0;
    }
}

void parseBare(simdjson::ondemand::parser& parser, const std::string& text) {
    const simdjson::padded_string padded(text);
    auto document = parser.iterate(padded);
    benchmark::DoNotOptimize(visit(document.get_value().value()));
}

/// Memory that is freed stays with the process from now on, as the bare parser's own does from text to text.
/// Otherwise it goes back to the kernel with every transcript, and nine thousand pages are faulted in again.
void keepMemory() {
#ifdef __GLIBC__  // elsewhere the system's allocator decides
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
#endif
}

void load(benchmark::State& state, bool memoryKept) {
    if (memoryKept) keepMemory();
    const GeneratedMeeting meeting(100'000, 1'440, 50'000);
    SQLiteJobStore database(meeting.database());
    simdjson::ondemand::parser parser;
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            rounds,
            [&] {
                std::optional<TranscriptDocument> document;  // given back after the clock has stopped
                return secondsOf(
                    [&] { document = TranscriptStorage::load(meeting.session, meeting.root(), database); });
            },
            [&] {
                return secondsOf([&] {
                    for (const auto& text : meeting.results) parseBare(parser, text);
                    parseBare(parser, meeting.diarizationJSON);
                });
            });
        state.SetIterationTime(result.ours);
        state.counters["bare_parse_ms"] = result.baseline * 1e3;
        state.counters["ours/bare"] = result.ratio;
    }
    state.SetLabel("100,000 segments in 1,440 results, 50,000 turns; database, merge and all");
}

void fingerprint(benchmark::State& state) {
    const GeneratedMeeting meeting(100'000, 1'440, 50'000);
    SQLiteJobStore database(meeting.database());
    const auto document = TranscriptStorage::load(meeting.session, meeting.root(), database);
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            rounds,
            [&] {
                return secondsOf([&] { benchmark::DoNotOptimize(SummaryArtifact::fingerprint(document)); });
            },
            [&] {
                return secondsOf([&] {
                    const auto text = json::encode(document.segments, json::Keys::sorted);
                    benchmark::DoNotOptimize(SHA256::hex(text));
                });
            });
        state.SetIterationTime(result.ours);
        state.counters["hash_and_encoding_ms"] = result.baseline * 1e3;
        state.counters["ours/hash+encoding"] = result.ratio;
    }
    state.SetLabel("100,000 segments with their labels");
}

// In this order: what a process keeps it does not give back.
BENCHMARK_CAPTURE(load, into_new_memory, false)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(load, into_kept_memory, true)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(fingerprint)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace meetingcore
