#include "SummaryWorker/ConstrainedSampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {
namespace {

llama_token_data_array viewOf(llama_token_data* data, std::size_t size) {
    return {.data = data, .size = size, .selected = -1, .sorted = false};
}

/// The grammar marks a refused candidate with minus infinity. Not-a-number is no choice of the model either.
bool isChoice(const llama_token_data& candidate) { return candidate.logit > -INFINITY; }

[[noreturn]] void failGeneration() {
    throw MeetingError::invalidData("Lokale Textgenerierung fehlgeschlagen.");
}

}  // namespace

ConstrainedSampler::ConstrainedSampler(const llama_vocab* vocab, std::string_view grammar)
    : chain_(llama_sampler_chain_init(llama_sampler_chain_default_params())),
      tokenCount_(llama_vocab_n_tokens(vocab)) {
    if (chain_) grammar_ = llama_sampler_init_grammar(vocab, grammar.data(), "root");
    if (!grammar_) throw MeetingError::invalidData("JSON-Grammatik konnte nicht erstellt werden.");
    llama_sampler_chain_add(chain_.get(), grammar_);
    llama_sampler_chain_add(chain_.get(), llama_sampler_init_greedy());
}

llama_token ConstrainedSampler::sample(llama_context* context) {
    try {
        const float* logits = llama_get_logits_ith(context, -1);
        if (!logits) failGeneration();
        auto token = allowedFirstChoice(logits);
        if (!token) token = choiceOfWholeChain(logits);
        if (!token) failGeneration();
        llama_sampler_accept(chain_.get(), *token);
        return *token;
    } catch (const MeetingError&) {
        throw;
    } catch (const std::exception&) {
        failGeneration();
    }
}

std::optional<llama_token> ConstrainedSampler::allowedFirstChoice(const float* logits) const {
    // Strictly greater wins, so the first of equals stays, as in llama.cpp's greedy sampler.
    const auto first = static_cast<llama_token>(std::max_element(logits, logits + tokenCount_) - logits);
    llama_token_data candidate{.id = first, .logit = logits[first], .p = 0};
    auto alone = viewOf(&candidate, 1);
    llama_sampler_apply(grammar_, &alone);
    if (!isChoice(candidate)) return std::nullopt;
    return first;
}

std::optional<llama_token> ConstrainedSampler::choiceOfWholeChain(const float* logits) {
    candidates_.resize(static_cast<std::size_t>(tokenCount_));
    for (llama_token token = 0; token < tokenCount_; ++token) {
        candidates_[static_cast<std::size_t>(token)] = {.id = token, .logit = logits[token], .p = 0};
    }
    auto all = viewOf(candidates_.data(), candidates_.size());
    llama_sampler_apply(chain_.get(), &all);
    // `llama_sampler_sample` would go on and accept a refused token here, which ends the process.
    if (all.selected < 0 || !isChoice(all.data[all.selected])) return std::nullopt;
    return all.data[all.selected].id;
}

}  // namespace meetingcore
