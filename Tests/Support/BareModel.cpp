#include "Support/BareModel.h"

#include <algorithm>
#include <stdexcept>

namespace meetingcore::testing {

BareModel::BareModel(const std::filesystem::path& path, bool vocabularyOnly) {
    llama_log_set([](ggml_log_level, const char*, void*) {}, nullptr);
    ggml_backend_load_all();
    auto modelParameters = llama_model_default_params();
    modelParameters.n_gpu_layers = 0;
    modelParameters.vocab_only = vocabularyOnly;
    model.reset(llama_model_load_from_file(path.c_str(), modelParameters));
    if (!model) throw std::runtime_error("cannot load " + path.string());
    vocab = llama_model_get_vocab(model.get());
    if (vocabularyOnly) return;
    auto parameters = llama_context_default_params();
    parameters.n_ctx = 8192;
    parameters.n_batch = 512;
    parameters.n_ubatch = 256;
    parameters.n_threads = 4;
    parameters.n_threads_batch = 4;
    context.reset(llama_init_from_model(model.get(), parameters));
    if (!context) throw std::runtime_error("cannot make a context for " + path.string());
}

std::vector<llama_token> BareModel::tokenize(const std::string& text) const {
    std::vector<llama_token> tokens(text.size() + 1);
    const auto count = llama_tokenize(vocab, text.data(), static_cast<int>(text.size()), tokens.data(),
                                      static_cast<int>(tokens.size()), true, true);
    if (count < 0) throw std::runtime_error("cannot tokenize");
    tokens.resize(static_cast<std::size_t>(count));
    return tokens;
}

void BareModel::decode(std::vector<llama_token> tokens) const {
    for (std::size_t start = 0; start < tokens.size(); start += 512) {
        const auto count = static_cast<int>(std::min<std::size_t>(512, tokens.size() - start));
        if (llama_decode(context.get(), llama_batch_get_one(tokens.data() + start, count)) != 0) {
            throw std::runtime_error("cannot decode");
        }
    }
}

Sampler plainChain(const llama_vocab* vocab, const char* grammar) {
    Sampler chain(llama_sampler_chain_init(llama_sampler_chain_default_params()), llama_sampler_free);
    if (grammar) llama_sampler_chain_add(chain.get(), llama_sampler_init_grammar(vocab, grammar, "root"));
    llama_sampler_chain_add(chain.get(), llama_sampler_init_greedy());
    return chain;
}

}  // namespace meetingcore::testing
