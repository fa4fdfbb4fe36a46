#include <array>
#include <cstdio>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "RealShapeModel.h"
#include "SummaryWorker/AnswerGrammar.h"
#include "SummaryWorker/ConstrainedSampler.h"
#include "SummaryWorker/LanguageModel.h"
#include "Support/BareModel.h"

namespace meetingcore {
namespace {

using benchmarks::Comparison;
using benchmarks::interleaved;
using benchmarks::ModelShape;
using benchmarks::secondsOf;
using testing::BareModel;

constexpr int rounds = 3;

/// Our time is the benchmark's own; the baseline and the ratio stand behind it.
void report(benchmark::State& state, const Comparison& result, const std::string& what) {
    state.SetIterationTime(result.ours);
    std::array<char, 100> numbers{};
    static_cast<void>(std::snprintf(numbers.data(), numbers.size(),
                                    ": %.4g s, ratio %.4f, medians of %d side by side", result.baseline,
                                    result.ratio, rounds));
    state.SetLabel(what + numbers.data());
}

const std::string answer =
    R"({"overview":[{"text":"Das Team bespricht das Budget für das dritte Quartal.","ids":["s1","s4"],"owner":null,)"
    R"("dueDate":null}],"decisions":[{"text":"Das Budget wird um zehn Prozent erhöht.","ids":["s7"],"owner":null,)"
    R"("dueDate":null}],"tasks":[{"text":"Anna schickt den Entwurf bis Freitag.","ids":["s9"],"owner":"Anna",)"
    R"("dueDate":"bis Freitag"}],"openQuestions":[{"text":"Wer übernimmt die Schulung?","ids":["s12"],"owner":null,)"
    R"("dueDate":null}]})";

/// Lets a sampler write `tokens`: each is made the most probable one in turn, or the second behind `refused`.
/// Seconds per token.
double secondsToWrite(const BareModel& bare, const std::vector<llama_token>& tokens,
                      std::optional<llama_token> refused, const std::function<llama_token()>& sample) {
    auto* logits = llama_get_logits_ith(bare.context.get(), -1);
    double seconds = 0;
    for (const auto token : tokens) {
        const auto before = logits[token];
        logits[token] = 1e6F;
        if (refused) logits[*refused] = 1e7F;
        llama_token chosen = 0;
        seconds += secondsOf([&] { chosen = sample(); });
        if (chosen != token) throw std::runtime_error("the sampler wrote something else");
        logits[token] = before;
    }
    return seconds / static_cast<double>(tokens.size());
}

void constrainedSampling(benchmark::State& state, bool firstChoiceAllowed) {
    // What sampling costs depends on the vocabulary alone, so the smallest model with the real one will do.
    const ModelShape shape{.blocks = 1, .width = 256, .feedForward = 256, .heads = 2, .keyValueHeads = 1};
    const BareModel bare(benchmarks::cachedModel(shape, MEETING_QWEN2_VOCABULARY));
    const auto tokens = bare.tokenize(answer);
    bare.decode({tokens.front()});
    const auto refused = firstChoiceAllowed ? std::nullopt : std::optional(llama_vocab_eos(bare.vocab));
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            rounds,
            [&] {
                ConstrainedSampler sampler(bare.vocab, summaryGrammar);
                return secondsToWrite(bare, tokens, refused,
                                      [&] { return sampler.sample(bare.context.get()); });
            },
            [&] {
                const auto chain = testing::plainChain(bare.vocab, summaryGrammar.data());
                return secondsToWrite(bare, tokens, refused, [&] {
                    return llama_sampler_sample(chain.get(), bare.context.get(), -1);
                });
            });
        report(state, result,
               "per token of " + std::to_string(tokens.size()) + ", vocabulary of " +
                   std::to_string(llama_vocab_n_tokens(bare.vocab)) + "; plain chain");
    }
}

std::string promptOf(int words) {
    std::string prompt = "<|im_start|>user\n";
    for (int word = 0; word < words; ++word) prompt += " budget";
    return prompt + "<|im_end|>\n<|im_start|>assistant\n";
}

/// Reads the prompt and writes the answer without a grammar. Returns how many tokens it wrote.
int generateBare(const BareModel& bare, const std::string& prompt) {
    llama_memory_clear(llama_get_memory(bare.context.get()), true);
    const auto greedy = testing::plainChain(bare.vocab, nullptr);
    bare.decode(bare.tokenize(prompt));
    for (int count = 0;; ++count) {
        const auto token = llama_sampler_sample(greedy.get(), bare.context.get(), -1);
        if (llama_vocab_is_eog(bare.vocab, token)) return count;
        bare.decode({token});
    }
}

void generation(benchmark::State& state) {
    const auto path = benchmarks::cachedModel({}, MEETING_QWEN2_VOCABULARY);
    LanguageModel model(path);
    const BareModel bare(path);
    const auto prompt = promptOf(static_cast<int>(state.range(0)));
    int written = 0;
    const auto ours = [&] {
        if (model.generate(prompt, /*titleOnly=*/true) != benchmarks::scriptedTitle) {
            throw std::runtime_error("the model wrote something else");
        }
    };
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            rounds, [&] { return secondsOf(ours); },
            [&] { return secondsOf([&] { written = generateBare(bare, prompt); }); });
        report(state, result,
               "prompt of " + std::to_string(bare.tokenize(prompt).size()) + " tokens, " +
                   std::to_string(written) + " written; bare loop");
    }
}

BENCHMARK_CAPTURE(constrainedSampling, first_choice_allowed, true)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(constrainedSampling, first_choice_refused, false)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(generation)
    ->Arg(8)
    ->Arg(128)
    ->ArgName("words")
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace
}  // namespace meetingcore
