#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "SummaryWorker/TextModel.h"

struct llama_context;
struct llama_model;
struct llama_vocab;

namespace meetingcore {

class ConstrainedSampler;

/// One GGUF model behind llama.cpp, run on the CPU with four threads and a context window of 8192 tokens.
///
/// Answers are JSON objects of one of two shapes, held to by a grammar (see AnswerGrammar.h), chosen greedily
/// and therefore deterministic. The class knows nothing of prompts or transcripts.
///
/// Memory: the weights are mapped from the file, the window and the work buffers are allocated once. Nothing of
/// an answer survives its call. One instance per process, used by one thread. Writes nothing to the standard
/// streams.
class LanguageModel final : public TextModel {
public:
    /// llama.cpp ends the process where it meets what it did not expect, such as a model file that was damaged
    /// after its check. Instead of an abort with a trace on standard error, `report` is then called with the
    /// German message, on any thread, and the process ends with status 1. One setting for the process.
    static void onFatalFailure(void (*report)(const std::string& message));

    /// Loads `path`. Throws `MeetingError.notConfigured` when the file is missing or no usable model, and
    /// `invalidData` when the model's context cannot be created (for want of memory, say).
    explicit LanguageModel(const std::filesystem::path& path);

    /// The tokens of at most 2 MiB of UTF-8, at most 999,999. Control tokens are recognised by their text, so
    /// everything that comes from a user must be escaped before. Throws MeetingError (invalidData).
    std::vector<std::int32_t> tokenize(const std::string& text);

    /// The same limits in half the time: `tokenize` counts first.
    std::size_t countTokens(const std::string& text) override;

    /// Accepts prompts of at most 5700 tokens; longer ones are refused before anything is decoded. An answer
    /// must end with fewer than 2200 tokens (160 for a title) and 128,000 bytes. Throws
    /// MeetingError (invalidData).
    std::string generate(const std::string& prompt, bool titleOnly) override;

private:
    /// The process-wide part of llama.cpp. First member, so that it goes last: context, model, backend.
    struct Backend {
        Backend();
        ~Backend();
        Backend(const Backend&) = delete;
        Backend& operator=(const Backend&) = delete;
    };
    struct FreeModel {
        void operator()(llama_model* model) const;
    };
    struct FreeContext {
        void operator()(llama_context* context) const;
    };

    void readPrompt(std::vector<std::int32_t>& tokens);
    std::string writeAnswer(ConstrainedSampler& sampler, int tokenLimit);
    void appendPiece(std::int32_t token, std::string& answer) const;

    Backend backend_;
    std::unique_ptr<llama_model, FreeModel> model_;
    std::unique_ptr<llama_context, FreeContext> context_;
    const llama_vocab* vocab_ = nullptr;  ///< owned by `model_`
};

}  // namespace meetingcore
