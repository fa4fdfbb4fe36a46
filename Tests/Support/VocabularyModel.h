#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>

#include <llama.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "SummaryWorker/TextModel.h"

namespace meetingcore::testing {

/// A model file's vocabulary without its weights: counts tokens as the model does and counts what it read, but
/// has no answers.
class VocabularyModel final : public TextModel {
public:
    explicit VocabularyModel(const std::filesystem::path& file) {
        llama_log_set([](ggml_log_level, const char*, void*) {}, nullptr);
        auto parameters = llama_model_default_params();
        parameters.vocab_only = true;
        model_.reset(llama_model_load_from_file(file.c_str(), parameters));
        if (!model_) throw std::runtime_error("no vocabulary in " + file.string());
    }

    std::vector<std::int32_t> tokenize(const std::string& text) override {
        bytesRead += text.size();
        const auto* const vocab = llama_model_get_vocab(model_.get());
        std::vector<std::int32_t> tokens(text.size() + 1);
        const auto count = llama_tokenize(vocab, text.data(), static_cast<std::int32_t>(text.size()),
                                          tokens.data(), static_cast<std::int32_t>(tokens.size()), true, true);
        if (count < 1) throw MeetingError::invalidData("Tokenisierung fehlgeschlagen.");
        tokens.resize(static_cast<std::size_t>(count));
        return tokens;
    }

    std::string generate(const std::string&, bool) override {
        throw std::logic_error("a vocabulary has no answers");
    }

    std::size_t bytesRead = 0;

private:
    struct Free {
        void operator()(llama_model* model) const { llama_model_free(model); }
    };

    std::unique_ptr<llama_model, Free> model_;
};

}  // namespace meetingcore::testing
