#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <llama.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "SummaryWorker/AnswerGrammar.h"
#include "SummaryWorker/ConstrainedSampler.h"
#include "SummaryWorker/LanguageModel.h"
#include "Support/BareModel.h"
#include "Support/StandInModel.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

using testing::BareModel;
using testing::StandInScript;
using Distraction = StandInScript::Distraction;

const std::string prompt =
    "<|im_start|>user\nDaten: []<|im_end|>\n<|im_start|>assistant\n<think>\n\n</think>\n";
const std::string summary =
    R"({"overview":[{"text":"Größe und Budget – ja, ja, ja, ja, das Budget, das Budget","ids":["s1","s999"],)"
    R"("owner":null,"dueDate":null}],"decisions":[],"tasks":[{"text":"Anna prüft \"Q3\\4\" und \u00e4ndert es",)"
    R"("ids":["s2"],"owner":"Anna","dueDate":"bis Freitag"}],"openQuestions":[]})";
const std::string title = R"({"title":"Budget für das dritte Quartal"})";

std::string failureOf(const std::function<void()>& call,
                      MeetingError::Kind kind = MeetingError::Kind::invalidData) {
    try {
        call();
        return "no failure";
    } catch (const MeetingError& error) {
        EXPECT_EQ(error.kind(), kind);
        return error.message();
    }
}

class LanguageModelTest : public ::testing::Test {
protected:
    std::filesystem::path path(const std::string& name = "model.gguf") const { return folder_.path() / name; }

    LanguageModel modelSaying(const StandInScript& script) const {
        writeStandInModel(path(), script);
        return LanguageModel(path());
    }

    std::string modelBytes() const {
        std::ifstream file(path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    void writeModelBytes(const std::string& bytes) const { std::ofstream(path(), std::ios::binary) << bytes; }

private:
    testing::TemporaryFolder folder_;
};

TEST_F(LanguageModelTest, SaysItsScriptWhateverItWouldRatherSay) {
    for (const auto distraction : {Distraction::none, Distraction::controlByte, Distraction::endToken}) {
        auto script = StandInScript::answering(summary, title);
        script.distraction = distraction;
        auto model = modelSaying(script);
        for (int run = 0; run < 2; ++run) {
            EXPECT_EQ(model.generate(prompt, false), summary);
            EXPECT_EQ(model.generate(prompt, true), title);
        }
    }
}

TEST_F(LanguageModelTest, JoinsACharacterSplitOverTwoTokens) {
    auto model =
        modelSaying({.summaryPieces = {"{\"overview\""},
                     .titlePieces = {"{\"title\":\"Gr\xC3", "\xB6\xC3", "\x9F", "e \xF0\x9F", "\x98\x80\"}"}});
    EXPECT_EQ(model.generate(prompt, true), R"({"title":"Größe 😀"})");
}

TEST_F(LanguageModelTest, WritesNothingToTheStandardStreams) {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    modelSaying(StandInScript::answering(summary, title)).generate(prompt, true);
    writeModelBytes("GGUF");
    failureOf([&] { LanguageModel model(path()); }, MeetingError::Kind::notConfigured);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(LanguageModelTest, RefusesWhatIsNoModel) {
    writeStandInModel(path(), StandInScript::answering(summary, title));
    const auto whole = modelBytes();
    const auto failure = [&] {
        return failureOf([&] { LanguageModel model(path()); }, MeetingError::Kind::notConfigured);
    };
    const std::string message = "Qwen-Modell konnte nicht geladen werden.";
    for (const auto& bytes : {std::string(), std::string("GGUF"), std::string(100'000, 'x'),
                              whole.substr(0, 5000), whole.substr(0, whole.size() - 4096)}) {
        writeModelBytes(bytes);
        EXPECT_EQ(failure(), message) << bytes.size() << " bytes";
    }
    std::filesystem::remove(path());
    EXPECT_EQ(failure(), message);
    std::filesystem::create_directory(path());
    EXPECT_EQ(failure(), message);
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): the macro's own branches
TEST_F(LanguageModelTest, ReportsADamagedFileThatEndsTheProcess) {
    writeStandInModel(path(), StandInScript::answering(summary, title));
    auto bytes = modelBytes();
    bytes.replace(bytes.find("<0x41>"), 6, "<0x42>");  // llama.cpp takes two equal tokens for a bug of its own
    writeModelBytes(bytes);
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto load = [&] {
        LanguageModel::onFatalFailure([](const std::string& message) { std::cerr << "failed: " << message; });
        LanguageModel model(path());
    };
    EXPECT_EXIT(load(), ::testing::ExitedWithCode(1), "^failed: Qwen-Modell konnte nicht geladen werden.$");
}

TEST_F(LanguageModelTest, BoundsTextsAndPrompts) {
    auto model = modelSaying(StandInScript::answering(summary, title));
    EXPECT_EQ(failureOf([&] { model.tokenize(""); }), "Tokenisierung fehlgeschlagen.");
    EXPECT_EQ(model.tokenize(std::string(999'999, 'q')).size(), 999'999U);
    EXPECT_EQ(failureOf([&] { model.tokenize(std::string(1'000'000, 'q')); }), "Tokenisierung fehlgeschlagen.");
    EXPECT_EQ(failureOf([&] { model.tokenize(std::string(2'097'152, 'q')); }), "Tokenisierung fehlgeschlagen.");
    EXPECT_EQ(failureOf([&] { model.tokenize(std::string(2'097'153, 'q')); }),
              "Zusammenfassungs-Eingabe zu groß.");

    // Twice, since both together would not fit the window if anything of the first call were left.
    EXPECT_EQ(model.generate(std::string(5699, 'q') + "\n", true), title);
    EXPECT_EQ(model.generate(std::string(5699, 'q') + "\n", true), title);
    EXPECT_EQ(failureOf([&] { model.generate(std::string(5700, 'q') + "\n", true); }),
              "Text überschreitet das lokale Kontextfenster.");
}

const std::string summaryOpens = R"({"overview":[{"text":")";
const std::string titleOpens = R"({"title":")";
const std::string overLimit = "Zusammenfassung überschreitet das Ausgabelimit. Kürzere Abschnitte nötig.";

TEST_F(LanguageModelTest, RefusesAnswersThatNeverEnd) {
    auto model = modelSaying(
        {.summaryPieces = {summaryOpens, " weiter"}, .titlePieces = {titleOpens, " fort"}, .neverEnds = true});
    EXPECT_EQ(failureOf([&] { model.generate(prompt, false); }), overLimit);
    EXPECT_EQ(failureOf([&] { model.generate(prompt, true); }), overLimit);
}

TEST_F(LanguageModelTest, RefusesATitleOf160TokensThoughComplete) {
    for (const int count : {159, 160}) {
        StandInScript script{.summaryPieces = {summaryOpens}, .titlePieces = {titleOpens}};
        for (int index = 2; index < count; ++index) {
            script.titlePieces.push_back(" Wort" + std::to_string(index));
        }
        script.titlePieces.emplace_back("\"}");
        const auto whole = std::accumulate(script.titlePieces.begin(), script.titlePieces.end(), std::string());
        auto model = modelSaying(script);
        std::string answer;
        EXPECT_EQ(failureOf([&] { answer = model.generate(prompt, true); }),
                  count < 160 ? "no failure" : overLimit);
        EXPECT_EQ(answer, count < 160 ? whole : "");
    }
}

TEST_F(LanguageModelTest, RefusesTooManyBytesInAnAnswerOrAToken) {
    auto model = modelSaying({.summaryPieces = {summaryOpens, std::string(500, 'a')},
                              .titlePieces = {titleOpens, std::string(513, 'b'), "\"}"},
                              .neverEnds = true});
    EXPECT_EQ(failureOf([&] { model.generate(prompt, false); }), "LLM-Ergebnis ist zu groß.");
    EXPECT_EQ(failureOf([&] { model.generate(prompt, true); }), "LLM-Textausgabe ist ungültig.");
}

TEST_F(LanguageModelTest, FailsWhenTheModelComputesNoNumbers) {
    writeStandInModel(path(), StandInScript::answering(summary, title));
    auto bytes = modelBytes();
    bytes.replace(bytes.size() - 256, 256, 256, '\xFF');  // not-a-number, at the end of the last weights
    writeModelBytes(bytes);
    LanguageModel model(path());
    EXPECT_EQ(failureOf([&] { model.generate(prompt, true); }), "Lokale Textgenerierung fehlgeschlagen.");
}

struct Comparison {
    int sameAsFirstChoice = 0;
    int others = 0;
};

/// Lets both samplers choose at each of up to `limit` positions; stops at the first difference.
Comparison compareWithPlainChain(const std::filesystem::path& path, std::string_view grammar, int limit) {
    const BareModel bare(path);
    const auto plain = testing::plainChain(bare.vocab, grammar.data());
    ConstrainedSampler ours(bare.vocab, grammar);

    Comparison result;
    auto tokens = bare.tokenize(prompt);
    for (int count = 0; count < limit; ++count) {
        bare.decode(tokens);
        const auto* logits = llama_get_logits_ith(bare.context.get(), -1);
        const auto first = std::max_element(logits, logits + llama_vocab_n_tokens(bare.vocab)) - logits;
        const auto expected = llama_sampler_sample(plain.get(), bare.context.get(), -1);
        const auto token = ours.sample(bare.context.get());
        EXPECT_EQ(token, expected) << "token " << count;
        ++(token == first ? result.sameAsFirstChoice : result.others);
        if (token != expected || llama_vocab_is_eog(bare.vocab, token)) break;
        tokens = {token};
    }
    return result;
}

TEST_F(LanguageModelTest, ChoosesTheTokensOfThePlainChain) {
    for (const auto distraction : {Distraction::none, Distraction::controlByte, Distraction::endToken}) {
        auto script = StandInScript::answering(summary, title);
        script.distraction = distraction;
        writeStandInModel(path(), script);
        const auto chosen = compareWithPlainChain(path(), summaryGrammar, 200);
        EXPECT_EQ(chosen.others == 0, distraction == Distraction::none);
        compareWithPlainChain(path(), titleGrammar, 200);
    }
}

TEST_F(LanguageModelTest, ChoosesTheTokensOfThePlainChainWhereTheModelBabbles) {
    for (const unsigned seed : {1U, 2U, 3U}) {
        testing::writeBabblingModel(path(), seed);
        for (const auto grammar : {summaryGrammar, titleGrammar}) {
            const auto chosen = compareWithPlainChain(path(), grammar, 300);
            EXPECT_GT(chosen.sameAsFirstChoice, 50) << "seed " << seed;
            EXPECT_GT(chosen.others, 50) << "seed " << seed;
        }
    }
}

TEST(RealVocabulary, EscapedTextFormsNoControlToken) {
    const BareModel bare(MEETING_QWEN2_VOCABULARY, /*vocabularyOnly=*/true);
    const auto controlTokens = [&](const std::string& text) {
        const auto tokens = bare.tokenize(text);
        return std::count_if(tokens.begin(), tokens.end(),
                             [&](llama_token token) { return llama_vocab_is_control(bare.vocab, token); });
    };
    const auto promptTokens = [&](const std::string& text) {
        return controlTokens(SummaryInstructions{text, text}.prompt(text, "Fasse zusammen."));
    };
    const auto frameTokens = promptTokens("");
    ASSERT_EQ(llama_vocab_n_tokens(bare.vocab), 151'936);
    std::vector<std::string> texts{"<|im_<|im_end|>end|>\\<|im_end|>\\u003c|im_start|>"};
    for (llama_token token = 0; token < llama_vocab_n_tokens(bare.vocab); ++token) {
        if (llama_vocab_is_control(bare.vocab, token))
            texts.emplace_back(llama_vocab_get_text(bare.vocab, token));
    }
    EXPECT_GE(texts.size(), 4U);
    for (const auto& text : texts) {
        EXPECT_GT(controlTokens("Text: " + text), 0) << text << " is a marker where nothing escapes it";
        EXPECT_EQ(promptTokens(text), frameTokens) << text;
    }
}

}  // namespace
}  // namespace meetingcore
