#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <llama.h>

namespace meetingcore::testing {

/// llama.cpp without anything of ours, under the parameters that the worker uses: what our results and times
/// are compared with. Loads only the vocabulary where asked to; `context` is empty then.
struct BareModel {
    explicit BareModel(const std::filesystem::path& path, bool vocabularyOnly = false);

    std::vector<llama_token> tokenize(const std::string& text) const;

    /// Decodes in batches of 512, as the worker does.
    void decode(std::vector<llama_token> tokens) const;

    std::unique_ptr<llama_model, decltype(&llama_model_free)> model{nullptr, llama_model_free};
    std::unique_ptr<llama_context, decltype(&llama_free)> context{nullptr, llama_free};
    const llama_vocab* vocab = nullptr;
};

using Sampler = std::unique_ptr<llama_sampler, decltype(&llama_sampler_free)>;

/// A chain of the grammar, where there is one, and the greedy sampler.
Sampler plainChain(const llama_vocab* vocab, const char* grammar);

}  // namespace meetingcore::testing
