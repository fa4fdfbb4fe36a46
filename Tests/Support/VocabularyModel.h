#pragma once

#include <stdexcept>

#include "SummaryWorker/TextModel.h"
#include "Support/BareModel.h"

namespace meetingcore::testing {

/// A model file's vocabulary without its weights: counts tokens as the model does and counts what it read, but
/// has no answers.
class VocabularyModel final : public TextModel {
public:
    explicit VocabularyModel(const std::filesystem::path& file) : bare_(file, /*vocabularyOnly=*/true) {}

    std::size_t countTokens(const std::string& text) override {
        bytesRead += text.size();
        return bare_.tokenize(text).size();
    }
    std::string generate(const std::string&, bool) override { throw std::logic_error("no answers"); }

    std::size_t bytesRead = 0;

private:
    BareModel bare_;
};

}  // namespace meetingcore::testing
