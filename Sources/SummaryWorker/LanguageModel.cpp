#include "SummaryWorker/LanguageModel.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <exception>
#include <new>
#include <utility>

#include <llama.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Summary/RuntimeProfile.h"
#include "SummaryWorker/AnswerGrammar.h"
#include "SummaryWorker/ConstrainedSampler.h"
#include "SummaryWorker/PromptLimits.h"

namespace meetingcore {
namespace {

constexpr std::uint32_t contextTokens = 8192;
constexpr std::uint32_t logicalBatch = 512;
constexpr std::uint32_t physicalBatch = 256;
constexpr std::int32_t threadCount = 4;
constexpr int maxSummaryTokens = 2200;
constexpr int maxTitleTokens = 160;
constexpr std::size_t answerByteLimit = 128'000;
constexpr std::size_t pieceBytes = 512;

constexpr const char* loadFailure = "Qwen-Modell konnte nicht geladen werden.";
constexpr const char* generationFailure = "Lokale Textgenerierung fehlgeschlagen.";

static_assert(maximumPromptTokens + maxSummaryTokens < contextTokens);

/// Process-wide, as is llama.cpp's own setting behind it.
struct FatalFailure {
    void (*report)(const std::string& message) = nullptr;
    const char* message = loadFailure;
};
FatalFailure fatalFailure;

/// The C interface of llama.cpp reports most failures by value but lets C++ exceptions through as well.
template <typename Call>
auto orFail(const char* message, Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        throw MeetingError::invalidData(message);
    }
}

void decode(llama_context* context, std::int32_t* tokens, std::size_t count, const char* message) {
    const auto status = orFail(message, [&] {
        return llama_decode(context, llama_batch_get_one(tokens, static_cast<std::int32_t>(count)));
    });
    if (status != 0) throw MeetingError::invalidData(message);
}

std::int32_t tokenizeInto(const llama_vocab* vocab, const std::string& text,
                          std::vector<std::int32_t>& tokens) {
    return orFail("Tokenisierung fehlgeschlagen.", [&] {
        return llama_tokenize(vocab, text.data(), static_cast<std::int32_t>(text.size()),
                              tokens.empty() ? nullptr : tokens.data(),
                              static_cast<std::int32_t>(tokens.size()),
                              /*add_special=*/true, /*parse_special=*/true);
    });
}

}  // namespace

void LanguageModel::onFatalFailure(void (*report)(const std::string& message)) {
    fatalFailure.report = report;
    ggml_set_abort_callback([](const char*) {
        fatalFailure.report(fatalFailure.message);
        std::_Exit(1);
    });
}

LanguageModel::Backend::Backend() {
    llama_log_set([](ggml_log_level, const char*, void*) {}, nullptr);
    ggml_backend_load_all();
    llama_backend_init();
}

LanguageModel::Backend::~Backend() { llama_backend_free(); }

void LanguageModel::FreeModel::operator()(llama_model* model) const { llama_model_free(model); }

void LanguageModel::FreeContext::operator()(llama_context* context) const { llama_free(context); }

LanguageModel::LanguageModel(const std::filesystem::path& path) {
    fatalFailure.message = loadFailure;
    auto modelParameters = llama_model_default_params();
    modelParameters.n_gpu_layers = RuntimeProfile::summaryGPULayers;
    model_.reset(llama_model_load_from_file(path.c_str(), modelParameters));
    if (!model_) throw MeetingError::notConfigured(loadFailure);

    vocab_ = llama_model_get_vocab(model_.get());
    if (!vocab_) std::abort();

    auto contextParameters = llama_context_default_params();
    contextParameters.n_ctx = contextTokens;
    contextParameters.n_batch = logicalBatch;
    contextParameters.n_ubatch = physicalBatch;
    contextParameters.n_threads = threadCount;
    contextParameters.n_threads_batch = threadCount;
    context_.reset(llama_init_from_model(model_.get(), contextParameters));
    if (!context_) throw MeetingError::invalidData("LLM-Kontext konnte nicht erstellt werden.");
    fatalFailure.message = generationFailure;
}

std::size_t LanguageModel::countTokens(const std::string& text) {
    if (text.size() > maximumPromptBytes) throw MeetingError::invalidData(promptTooLarge);
    std::vector<std::int32_t> none;
    // Without a buffer the answer is the negated count.
    const auto negatedCount = tokenizeInto(vocab_, text, none);
    if (negatedCount > -1 || negatedCount < -static_cast<std::int32_t>(maximumTextTokens)) {
        throw MeetingError::invalidData("Tokenisierung fehlgeschlagen.");
    }
    return static_cast<std::size_t>(-negatedCount);
}

std::vector<std::int32_t> LanguageModel::tokenize(const std::string& text) {
    std::vector<std::int32_t> tokens(countTokens(text));
    const auto written = tokenizeInto(vocab_, text, tokens);
    if (written < 0) throw MeetingError::invalidData("Tokenpuffer reicht nicht aus.");
    tokens.resize(std::min(static_cast<std::size_t>(written), tokens.size()));
    return tokens;
}

std::string LanguageModel::generate(const std::string& prompt, bool titleOnly) {
    auto tokens = tokenize(prompt);
    if (tokens.size() > maximumPromptTokens) {
        throw MeetingError::invalidData("Text überschreitet das lokale Kontextfenster.");
    }
    llama_memory_clear(llama_get_memory(context_.get()), /*data=*/true);
    ConstrainedSampler sampler(vocab_, titleOnly ? titleGrammar : summaryGrammar);
    readPrompt(tokens);
    return writeAnswer(sampler, titleOnly ? maxTitleTokens : maxSummaryTokens);
}

void LanguageModel::readPrompt(std::vector<std::int32_t>& tokens) {
    for (std::size_t start = 0; start < tokens.size(); start += logicalBatch) {
        const auto count = std::min<std::size_t>(logicalBatch, tokens.size() - start);
        decode(context_.get(), tokens.data() + start, count, "LLM-Prompt konnte nicht ausgewertet werden.");
    }
}

std::string LanguageModel::writeAnswer(ConstrainedSampler& sampler, int tokenLimit) {
    std::string answer;
    for (int count = 1;; ++count) {
        auto token = sampler.sample(context_.get());
        if (llama_vocab_is_eog(vocab_, token)) return answer;
        appendPiece(token, answer);
        if (answer.size() >= answerByteLimit) throw MeetingError::invalidData("LLM-Ergebnis ist zu groß.");
        decode(context_.get(), &token, 1, generationFailure);
        if (count >= tokenLimit) {
            throw MeetingError::invalidData(
                "Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte nötig.");
        }
    }
}

void LanguageModel::appendPiece(std::int32_t token, std::string& answer) const {
    std::array<char, pieceBytes> piece{};
    const auto length =
        llama_token_to_piece(vocab_, token, piece.data(), static_cast<std::int32_t>(piece.size()),
                             /*lstrip=*/0, /*special=*/false);
    if (length < 0) throw MeetingError::invalidData("LLM-Textausgabe ist ungültig.");
    answer.append(piece.data(), std::min(static_cast<std::size_t>(length), piece.size()));
}

}  // namespace meetingcore
