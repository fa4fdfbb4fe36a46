#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Comparison.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "RealShapeModel.h"
#include "SummaryWorker/AnswerGrammar.h"
#include "SummaryWorker/ConstrainedSampler.h"
#include "SummaryWorker/LanguageModel.h"
#include "Support/BareModel.h"

namespace {

using namespace meetingcore;
using benchmarks::interleaved;
using benchmarks::ModelShape;
using benchmarks::secondsOf;
using testing::BareModel;

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
            3,
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
        state.SetIterationTime(result.ours);
        state.counters["plain_chain_ms"] = result.baseline * 1e3;
        state.counters["ours/plain"] = result.ratio;
    }
    state.SetLabel("per token, vocabulary " + std::to_string(llama_vocab_n_tokens(bare.vocab)) +
                   ", answer of " + std::to_string(tokens.size()) + " tokens, 3 rounds");
}

std::string promptOf(int words) {
    std::string prompt = "<|im_start|>user\n";
    for (int word = 0; word < words; ++word) prompt += " budget";
    return prompt + "<|im_end|>\n<|im_start|>assistant\n";
}

constexpr int titleTokens = 160;

/// Reads the prompt and writes as many tokens as a title that never ends, unconstrained.
void generateBare(const BareModel& bare, const std::string& prompt) {
    llama_memory_clear(llama_get_memory(bare.context.get()), true);
    const auto greedy = testing::plainChain(bare.vocab, nullptr);
    bare.decode(bare.tokenize(prompt));
    for (int count = 0; count < titleTokens; ++count) {
        bare.decode({llama_sampler_sample(greedy.get(), bare.context.get(), -1)});
    }
}

void generateOurs(LanguageModel& model, const std::string& prompt) {
    try {
        model.generate(prompt, /*titleOnly=*/true);
    } catch (const MeetingError& error) {
        if (error.message().find("Ausgabelimit") != std::string::npos) return;
    }
    throw std::runtime_error("the random model ended its answer before the limit");
}

void generation(benchmark::State& state) {
    const auto path = benchmarks::cachedModel({}, MEETING_QWEN2_VOCABULARY);
    LanguageModel model(path);
    const BareModel bare(path);
    const auto prompt = promptOf(static_cast<int>(state.range(0)));
    for ([[maybe_unused]] auto iteration : state) {
        const auto result = interleaved(
            2, [&] { return secondsOf([&] { generateOurs(model, prompt); }); },
            [&] { return secondsOf([&] { generateBare(bare, prompt); }); });
        state.SetIterationTime(result.ours);
        state.counters["bare_loop_s"] = result.baseline;
        state.counters["ours/bare"] = result.ratio;
    }
    state.SetLabel("qwen3, 36 blocks, Q4_K_M; prompt of " + std::to_string(bare.tokenize(prompt).size()) +
                   " tokens, 160 written, 2 rounds");
}

BENCHMARK_CAPTURE(constrainedSampling, first_choice_allowed, true)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(constrainedSampling, first_choice_refused, false)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(generation)->Arg(16)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
