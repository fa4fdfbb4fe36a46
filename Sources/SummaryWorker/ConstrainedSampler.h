#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <llama.h>

namespace meetingcore {

/// Picks the next token of one answer: the most probable token that a grammar allows, the one with the smallest
/// id among equals. The tokens are those of llama.cpp's sampler chain of grammar and greedy choice, reached
/// faster.
///
/// Applying a grammar to a whole vocabulary costs milliseconds per token, yet a model that knows the format
/// mostly prefers a token that the grammar allows. So the model's own first choice is checked alone: where the
/// grammar accepts it, nothing else can win, because the grammar only ever removes candidates. Otherwise the
/// whole chain decides.
///
/// One object serves one answer and remembers how much of it is written. Not thread-safe.
class ConstrainedSampler {
public:
    /// `vocab` must outlive the sampler; `grammar` is a NUL-terminated GBNF text with the root rule "root".
    /// Throws `MeetingError.invalidData` when llama.cpp refuses the grammar.
    ConstrainedSampler(const llama_vocab* vocab, std::string_view grammar);

    /// The next token for the last position that `context` decoded, already accepted into the grammar's state.
    /// Throws `MeetingError.invalidData` when no token can follow: the model computed no numbers, or its
    /// vocabulary has nothing that the grammar allows.
    llama_token sample(llama_context* context);

private:
    struct FreeSampler {
        void operator()(llama_sampler* sampler) const { llama_sampler_free(sampler); }
    };

    std::optional<llama_token> allowedFirstChoice(const float* logits) const;
    std::optional<llama_token> choiceOfWholeChain(const float* logits);

    std::unique_ptr<llama_sampler, FreeSampler> chain_;
    llama_sampler* grammar_ = nullptr;  ///< owned by `chain_`
    llama_token tokenCount_;
    std::vector<llama_token_data> candidates_;
};

}  // namespace meetingcore
