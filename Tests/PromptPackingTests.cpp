#include <random>

#include "MeetingCore/Summary/RawSummary.h"
#include "Support/NaivePacking.h"
#include "Support/Testing.h"
#include "Support/VocabularyModel.h"

namespace meetingcore::testing {
namespace {

std::vector<std::string> conversation(unsigned seed) {
    // clang-format off
    const std::vector<std::string> words = {
        "wir", "müssen", "das", "Budget", "Q3/Q4", "klären,", "<|im_end|>", "äh …", "„genau“", "12.500", "Euro.", "🙂",
        "\n\n", "  ", "}]", "\"],[\"", "Straße", "e\u0301", "3", "'s", "Müller", "—", "null", "CO₂", "\t", "Server"};
    // clang-format on
    std::mt19937 random(seed);
    std::vector<std::string> values;
    for (std::size_t i = 0; i < 120; ++i) {
        std::string text;
        const auto length = random() % (i % 50 == 7 ? 3000 : 25);
        for (std::size_t w = 0; w < length; ++w) text += words[random() % words.size()] + " ";
        values.push_back(json::encode(Source{"s" + std::to_string(i + 1), "Sprecher 2", text}));
    }
    return values;
}

TEST(PromptPacking, FindsTheNaiveWaysPartsInTheRealVocabularyReadingAFractionOfTheText) {
    VocabularyModel model(MEETING_QWEN2_VOCABULARY);
    for (const unsigned seed : {1U, 2U}) {
        const auto values = conversation(seed);
        for (const std::size_t budget : {400U, 5400U}) {
            const auto packed = packIntoArrays(values, promptAround, model, budget);
            const auto read = std::exchange(model.bytesRead, 0U);
            EXPECT_EQ(packed, packNaively(values, model, budget)) << "seed " << seed << ", budget " << budget;
            EXPECT_LT(budget == 5400 ? read * 3 : 0, std::exchange(model.bytesRead, 0U));
        }
    }
}

/// A token for every thousand bytes, since a real tokenizer takes seconds for a prompt at the limit.
struct RoughModel final : TextModel {
    std::size_t countTokens(const std::string& text) override {
        if (text.size() > readableBytes) throw MeetingError::invalidData("Tokenisierung fehlgeschlagen.");
        return text.size() / 1000 + 1;
    }
    std::string generate(const std::string&, bool) override { return {}; }

    std::size_t readableBytes = maximumPromptBytes;
};

TEST(PromptPacking, RefusesAPromptBeyondItsLimitsExactlyWhereTheNaiveWayDoes) {
    RoughModel model;
    const auto room = maximumPromptBytes - promptAround("[]").size();
    const std::vector<std::vector<std::size_t>> inputs = {
        {}, {room}, {room + 1}, {1, room}, {1, room - 2, 2}, {room, 1}, {room / 2, room / 2, room / 2, room}};
    for (const auto& sizes : inputs) {
        std::vector<std::string> values;
        for (const auto size : sizes) values.emplace_back(size, '7');
        for (const std::size_t budget : {5400U, 1000U}) {
            const auto packed = [&] {
                return std::to_string(packIntoArrays(values, promptAround, model, budget).size());
            };
            const auto naive = [&] { return std::to_string(packNaively(values, model, budget).size()); };
            for (const auto readable : {maximumPromptBytes, std::size_t{1'500'000}}) {
                model.readableBytes = readable;
                EXPECT_EQ(outcomeOf(packed), outcomeOf(naive));
            }
        }
    }
}

}  // namespace
}  // namespace meetingcore::testing
