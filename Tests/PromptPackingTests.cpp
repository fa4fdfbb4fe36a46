#include <random>

#include <gtest/gtest.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Summary/RawSummary.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "SummaryWorker/PromptPacking.h"
#include "Support/NaivePacking.h"
#include "Support/VocabularyModel.h"

namespace meetingcore {
namespace {

using testing::packNaively;
using testing::promptAround;

std::vector<std::string> conversation(std::size_t segments, unsigned seed) {
    const std::vector<std::string> words = {
        "wir",  "müssen",     "das",     "Budget",  "für",     "Q3/Q4", "bis",     "Freitag", "klären,",
        "also", "<|im_end|>", "äh …",    "„genau“", "12.500",  "Euro.", "Straße",  "🙂",    "\n\n",
        "  ",   "}]",         "\"],[\"", "Grüße!",  "e\u0301", "3",     "nächste", "Woche",   "Quartal",
        "'s",   "Müller",     "—",       "null",    "CO₂",     "\t",    "Server"};
    std::mt19937 random(seed);
    std::vector<std::string> values;
    for (std::size_t i = 0; i < segments; ++i) {
        std::string text;
        const auto length = random() % (i % 50 == 7 ? 3000 : 25);
        for (std::size_t w = 0; w < length; ++w) text += words[random() % words.size()] + " ";
        values.push_back(json::encode(Source{"s" + std::to_string(i + 1), "Sprecher 2", text}));
    }
    return values;
}

TEST(PromptPacking, FindsTheNaiveWaysPartsInTheRealVocabularyReadingAFractionOfTheText) {
    testing::VocabularyModel model(MEETING_QWEN2_VOCABULARY);
    for (const unsigned seed : {1U, 2U}) {
        const auto values = conversation(120, seed);
        for (const std::size_t budget : {400U, 5400U}) {
            model.bytesRead = 0;
            const auto packed = packIntoArrays(values, promptAround, model, budget);
            const auto read = std::exchange(model.bytesRead, 0U);
            EXPECT_EQ(packed, packNaively(values, model, budget)) << "seed " << seed << ", budget " << budget;
            if (budget == 5400) {
                EXPECT_LT(read * 3, model.bytesRead);
            }
        }
    }
}

/// A token for every thousand bytes, since a real tokenizer takes seconds for a prompt at the limit.
class RoughModel final : public TextModel {
public:
    std::vector<std::int32_t> tokenize(const std::string& text) override {
        return std::vector<std::int32_t>(text.size() / 1000 + 1);
    }
    std::string generate(const std::string&, bool) override { return {}; }
};

TEST(PromptPacking, RefusesAPromptBeyondItsByteLimitExactlyWhereTheNaiveWayDoes) {
    RoughModel model;
    const auto outcome = [](const auto& pack) {
        try {
            return std::to_string(pack().size());
        } catch (const MeetingError& error) {
            return error.message();
        }
    };
    const auto room = maximumPromptBytes - promptAround("[]").size();
    const auto value = [](std::size_t bytes) { return std::string(bytes, '7'); };
    const std::vector<std::vector<std::string>> inputs = {
        {},
        {value(room)},
        {value(room + 1)},
        {value(1), value(room)},
        {value(1), value(room - 2), value(2)},
        {value(room), value(1)},
        {value(room / 2), value(room / 2), value(room / 2), value(room)}};
    for (const auto& values : inputs) {
        for (const std::size_t budget : {5400U, 1000U}) {
            EXPECT_EQ(outcome([&] { return packIntoArrays(values, promptAround, model, budget); }),
                      outcome([&] { return packNaively(values, model, budget); }));
        }
    }
}

}  // namespace
}  // namespace meetingcore
