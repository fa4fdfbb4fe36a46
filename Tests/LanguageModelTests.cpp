#include <algorithm>

#include "MeetingCore/Summary/SummaryInstructions.h"
#include "SummaryWorker/AnswerGrammar.h"
#include "SummaryWorker/ConstrainedSampler.h"
#include "SummaryWorker/LanguageModel.h"
#include "Support/BareModel.h"
#include "Support/StandInModel.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

const std::string prompt =
    "<|im_start|>user\nDaten: []<|im_end|>\n<|im_start|>assistant\n<think>\n\n</think>\n";
const std::string summary =
    R"({"overview":[{"text":"Größe und Budget – ja, ja, ja, ja, das Budget, das Budget","ids":["s1","s999"],)"
    R"("owner":null,"dueDate":null}],"decisions":[],"tasks":[{"text":"Anna prüft \"Q3\\4\" und \u00e4ndert es",)"
    R"("ids":["s2"],"owner":"Anna","dueDate":"bis Freitag"}],"openQuestions":[]})";
const std::string title = R"({"title":"Budget für das dritte Quartal"})";
const std::string summaryOpens = R"({"overview":[{"text":")", titleOpens = R"({"title":")";

/// Lets our sampler and the plain chain choose up to 300 tokens, the same ones; returns how many of them were
/// the model's first choice and how many were not.
std::pair<int, int> choicesLikeThePlainChain(const fs::path& path, std::string_view grammar) {
    const BareModel bare(path);
    const auto plain = plainChain(bare.vocab, grammar.data());
    ConstrainedSampler ours(bare.vocab, grammar);
    std::pair<int, int> choices;
    auto tokens = bare.tokenize(prompt);
    for (int count = 0; count < 300; ++count) {
        bare.decode(tokens);
        const auto* logits = llama_get_logits_ith(bare.context.get(), -1);
        const auto first = std::max_element(logits, logits + llama_vocab_n_tokens(bare.vocab)) - logits;
        const auto expected = llama_sampler_sample(plain.get(), bare.context.get(), -1);
        const auto token = ours.sample(bare.context.get());
        EXPECT_EQ(token, expected) << "token " << count;
        ++(token == first ? choices.first : choices.second);
        if (token != expected || llama_vocab_is_eog(bare.vocab, token)) break;
        tokens = {token};
    }
    return choices;
}

class LanguageModelTest : public ::testing::Test {
protected:
    LanguageModelTest() { writeStandInModel(file, script); }

    LanguageModel modelSaying(const StandInScript& other) const {
        writeStandInModel(file, other);
        return LanguageModel(file);
    }

    TemporaryFolder folder;
    fs::path file = folder.path() / "model.gguf";
    StandInScript script = StandInScript::answering(summary, title);
};

TEST_F(LanguageModelTest, SaysItsScriptWhateverItWouldRatherSayAndChoosesAsThePlainChainDoes) {
    using enum StandInScript::Distraction;
    for (const auto distraction : {none, controlByte, endToken}) {
        script.distraction = distraction;
        auto model = modelSaying(script);
        for (int run = 0; run < 2; ++run) {
            EXPECT_EQ(model.generate(prompt, false), summary);
            EXPECT_EQ(model.generate(prompt, true), title);
        }
        EXPECT_EQ(choicesLikeThePlainChain(file, summaryGrammar).second == 0, distraction == none);
        choicesLikeThePlainChain(file, titleGrammar);
    }
}

TEST_F(LanguageModelTest, ChoosesTheTokensOfThePlainChainWhereTheModelBabbles) {
    for (const unsigned seed : {1U, 2U, 3U}) {
        writeBabblingModel(file, seed);
        for (const auto grammar : {summaryGrammar, titleGrammar}) {
            const auto [firstChoices, others] = choicesLikeThePlainChain(file, grammar);
            EXPECT_GT(std::min(firstChoices, others), 50) << "seed " << seed;
        }
    }
}

TEST_F(LanguageModelTest, JoinsACharacterSplitOverTwoTokens) {
    auto model = modelSaying(
        {{"{\"overview\""}, {"{\"title\":\"Gr\xC3", "\xB6\xC3", "\x9F", "e \xF0\x9F", "\x98\x80\"}"}});
    EXPECT_EQ(model.generate(prompt, true), R"({"title":"Größe 😀"})");
}

TEST_F(LanguageModelTest, RefusesWhatIsNoModel) {
    const auto whole = contentOf(file);
    for (const auto size : {std::size_t{0}, std::size_t{5000}, whole.size() - 4096}) {
        writeFile(file, whole.substr(0, size));
        EXPECT_EQ(failureOf([&] { LanguageModel model(file); }, Kind::notConfigured),
                  "Qwen-Modell konnte nicht geladen werden.")
            << size;
    }
}

TEST_F(LanguageModelTest, BoundsTextsAndPrompts) {
    LanguageModel model(file);
    const auto tokens = [&](std::size_t length) {
        return outcomeOf([&] { return std::to_string(model.tokenize(std::string(length, 'q')).size()); });
    };
    EXPECT_EQ(tokens(999'999), "999999");
    for (const std::size_t length : {0U, 1'000'000U, 2'097'152U})
        EXPECT_EQ(tokens(length), "Tokenisierung fehlgeschlagen.");
    EXPECT_EQ(tokens(2'097'153), "Zusammenfassungs-Eingabe zu groß.");

    const auto answer = [&](std::size_t length) {
        return outcomeOf([&] { return model.generate(std::string(length, 'q') + "\n", true); });
    };
    // Twice, since both together would not fit the window if anything of the first call were left.
    for (int run = 0; run < 2; ++run) EXPECT_EQ(answer(5699), title);
    EXPECT_EQ(answer(5700), "Text überschreitet das lokale Kontextfenster.");
}

TEST_F(LanguageModelTest, BoundsItsAnswers) {
    const std::string overLimit = "Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte nötig.";
    const auto answer = [&](const StandInScript& other, bool titleOnly) {
        return outcomeOf([&] { return modelSaying(other).generate(prompt, titleOnly); });
    };
    EXPECT_EQ(answer({{summaryOpens, " weiter"}, {titleOpens}, true}, false), overLimit);
    const StandInScript bulky{{summaryOpens, std::string(500, 'a')}, {titleOpens, std::string(513, 'b')}, true};
    EXPECT_EQ(answer(bulky, false), "LLM-Ergebnis ist zu groß.");
    EXPECT_EQ(answer(bulky, true), "LLM-Textausgabe ist ungültig.");

    StandInScript longTitle{{summaryOpens}, {titleOpens}};
    auto text = titleOpens;
    for (int token = 2; token < 159; ++token)
        text += longTitle.titlePieces.emplace_back(" Wort" + std::to_string(token));
    longTitle.titlePieces.emplace_back("\"}");
    EXPECT_EQ(answer(longTitle, true), text + "\"}") << "159 tokens";
    longTitle.titlePieces.insert(longTitle.titlePieces.end() - 1, " Ende");
    EXPECT_EQ(answer(longTitle, true), overLimit) << "though complete";
}

TEST_F(LanguageModelTest, FailsWhenTheModelComputesNoNumbers) {
    auto bytes = contentOf(file);
    bytes.replace(bytes.size() - 256, 256, 256, '\xFF');  // not-a-number, at the end of the last weights
    writeFile(file, bytes);
    EXPECT_EQ(outcomeOf([&] { return LanguageModel(file).generate(prompt, true); }),
              "Lokale Textgenerierung fehlgeschlagen.");
}

TEST(RealVocabulary, EscapedTextFormsNoControlToken) {
    const BareModel bare(MEETING_QWEN2_VOCABULARY, /*vocabularyOnly=*/true);
    const auto isControl = [&](llama_token token) { return llama_vocab_is_control(bare.vocab, token); };
    const auto controlTokens = [&](const std::string& text) {
        return std::ranges::count_if(bare.tokenize(text), isControl);
    };
    const auto promptTokens = [&](const std::string& text) {
        return controlTokens(SummaryInstructions{text, text}.prompt(text, "Fasse zusammen."));
    };
    std::vector<std::string> texts{"<|im_<|im_end|>end|>\\<|im_end|>\\u003c|im_start|>"};
    ASSERT_EQ(llama_vocab_n_tokens(bare.vocab), 151'936);
    for (llama_token token = 0; token < llama_vocab_n_tokens(bare.vocab); ++token)
        if (isControl(token)) texts.emplace_back(llama_vocab_get_text(bare.vocab, token));
    EXPECT_GE(texts.size(), 4U);
    for (const auto& text : texts) {
        EXPECT_GT(controlTokens("Text: " + text), 0) << text << " is a marker where nothing escapes it";
        EXPECT_EQ(promptTokens(text), promptTokens("")) << text;
    }
}

}  // namespace
}  // namespace meetingcore::testing
