#include <algorithm>
#include <stdexcept>

#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "GeneratedMeeting.h"
#include "PeakMemory.h"
#include "SummaryWorker/PromptPacking.h"
#include "SummaryWorker/SummaryTask.h"
#include "Support/NaivePacking.h"
#include "Support/VocabularyModel.h"

namespace meetingcore {
namespace {

using benchmarks::GeneratedMeeting;
using benchmarks::peakMiBOf;
using benchmarks::secondsOf;
using testing::packNaively;
using testing::promptAround;

/// The real vocabulary with an answer that names the first source of its prompt.
class CitingModel final : public TextModel {
public:
    std::size_t countTokens(const std::string& text) override { return vocabulary_.countTokens(text); }

    std::string generate(const std::string& prompt, bool) override {
        ++calls;
        const auto first =
            prompt.find("\"s", std::min(prompt.find(R"([{"id":"s)"), prompt.find(R"("ids":["s)")) + 2);
        const auto id = prompt.substr(first, prompt.find('"', first + 1) - first + 1);
        const auto point =
            R"({"text":"Das Budget wurde besprochen.","ids":[)" + id + R"(],"owner":null,"dueDate":null})";
        return R"({"overview":[)" + point + R"(],"decisions":[)" + point + R"(],"tasks":[)" + point +
               R"(],"openQuestions":[]})";
    }

    std::size_t& bytesRead() { return vocabulary_.bytesRead; }

    std::size_t calls = 0;

private:
    testing::VocabularyModel vocabulary_{MEETING_QWEN2_VOCABULARY};
};

void cutting(benchmark::State& state) {
    const auto segments = static_cast<std::size_t>(state.range(0));
    const GeneratedMeeting meeting(segments, segments / 50, 0);
    SQLiteJobStore database(meeting.database());
    const auto document = TranscriptStorage::load(meeting.session, meeting.root(), database);
    std::vector<std::string> values;
    for (const auto& source : SourceTable(document).sources()) values.push_back(json::encode(source));
    CitingModel model;
    for ([[maybe_unused]] auto iteration : state) {
        std::vector<std::string> ours;
        std::vector<std::string> naive;
        const auto seconds =
            secondsOf([&] { ours = packIntoArrays(values, promptAround, model, promptTokenBudget); });
        const auto oursRead = std::exchange(model.bytesRead(), 0U);
        const auto naiveSeconds = secondsOf([&] { naive = packNaively(values, model, promptTokenBudget); });
        if (ours != naive) throw std::runtime_error("the parts differ");
        std::size_t bytes = 0;
        for (const auto& value : values) bytes += value.size();
        state.SetIterationTime(seconds);
        state.counters["naive_s"] = naiveSeconds;
        state.counters["naive/ours"] = naiveSeconds / seconds;
        state.counters["read/transcript"] = static_cast<double>(oursRead) / static_cast<double>(bytes);
        state.counters["naive_read/transcript"] =
            static_cast<double>(model.bytesRead()) / static_cast<double>(bytes);
        state.counters["parts"] = static_cast<double>(ours.size());
    }
}

void summarize(const GeneratedMeeting& meeting, CitingModel& model) {
    const SummaryRun of(meeting.session, meeting.root());
    const MeetingRun run{of, model, [](std::string_view) {}};
    SummaryTask(run).run();
}

/// A run whose parts all lie in the cache, beside one read of the transcript by the tokenizer, the least it
/// takes.
void cachedRun(benchmark::State& state) {
    const GeneratedMeeting meeting(20'000, 1'440, 2'000);
    CitingModel model;
    summarize(meeting, model);
    const auto callsForAll = model.calls;
    SQLiteJobStore database(meeting.database());
    const auto document = TranscriptStorage::load(meeting.session, meeting.root(), database);
    const auto sources = SourceTable(document).sources();
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = benchmarks::interleaved(
            3, [&] { return secondsOf([&] { summarize(meeting, model); }); },
            [&] {
                return secondsOf([&] {
                    for (const auto& source : sources) model.countTokens(json::encode(source));
                });
            });
        if (model.calls != callsForAll) throw std::runtime_error("the cache was missed");
        state.SetIterationTime(result.ours);
        state.counters["one_tokenizing_s"] = result.baseline;
        state.counters["ours/one_tokenizing"] = result.ratio;
        state.counters["model_calls_cached"] = static_cast<double>(callsForAll);
    }
    state.SetLabel("20,000 segments: load, cut, check, write");
}

/// Peak memory of a process that summarizes, beside one that only loads the vocabulary.
void memory(benchmark::State& state) {
    const GeneratedMeeting meeting(100'000, 1'440, 50'000);
    for ([[maybe_unused]] auto iteration : state) {
        const auto vocabulary = peakMiBOf([] { const CitingModel model; });
        double peak = 0;
        state.SetIterationTime(secondsOf([&] {
            peak = peakMiBOf([&] {
                CitingModel model;
                summarize(meeting, model);
            });
        }));
        state.counters["beside_model_MiB"] = peak - vocabulary;
        state.counters["vocabulary_MiB"] = vocabulary;
    }
    state.SetLabel("100,000 segments, 50,000 turns, whole run");
}

BENCHMARK(memory)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(cutting)->Arg(500)->Arg(20'000)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(cachedRun)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
}  // namespace meetingcore
