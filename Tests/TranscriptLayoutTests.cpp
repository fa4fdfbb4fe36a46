#include <limits>

#include "MeetingCore/Presentation/TranscriptPresentation.h"
#include "Support/ExportSample.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

using enum AudioSource;

std::vector<std::string> shapes(const TranscriptDocument& document, bool original = false) {
    std::vector<std::string> shapes;
    for (const auto& block : TranscriptLayout::blocks(document, original)) {
        EXPECT_EQ(block.id(), block.segments.at(0).id);
        shapes.push_back(block.speaker.speakerID.value_or("-") + "/" + std::to_string(block.colorIndex) + "/" +
                         std::to_string(block.segments.size()) + "/" + block.text);
    }
    return shapes;
}

TEST(TranscriptLayout, JoinsRunsOfOneSpeakerAndLeavesSegmentsWithoutTextOut) {
    auto document =
        documentOf({spoken(1, 0, 1, meeting, "8", " \u200b\n"), spoken(2, 0, 1, meeting, "7", " eins\n"),
                    spoken(3, 1, 1, meeting, "9", ""), spoken(4, 1, 2, meeting, "7", "zwei"),
                    spoken(5, 2, 3, meeting, {}, "drei"), spoken(6, 3, 4, microphone, {}, "vier"),
                    spoken(7, 4, 5, meeting, "7", "fünf")});
    EXPECT_THAT(shapes(document), ElementsAre("7/0/2/eins zwei", "-/1/1/drei", "-/2/1/vier", "7/0/1/fünf"));
    EXPECT_THAT(shapes({}), ElementsAre());
    document.rawSegments = {spoken(4, 1, 2, meeting, {}, "erkannt ")};
    EXPECT_EQ(shapes(document, /*original=*/true)[0], "7/0/2/eins erkannt");
}

TEST(TranscriptLayout, BreaksParagraphsAtPausesAndAtTheEndOfLongSentences) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const std::string x449 = std::string(446, 'x') + "äöü";
    const struct {
        std::vector<std::pair<double, std::string>> pausesAndTexts;
        std::vector<std::size_t> paragraphs;
    } cases[] = {
        // clang-format off
        {{{0, "a"}, {1.875, "b"}, {2, "c"}, {nan, "d"}}, {0, 2}},
        {{{0, x449.substr(1) + "."}, {0, "b"}}, {0}}, {{{0, x449 + "."}, {0, "b"}}, {0, 1}},
        // the blank between two segments counts
        {{{0, x449.substr(4)}, {0, "ab."}, {0, "c"}}, {0}}, {{{0, x449.substr(3)}, {0, "ab."}, {0, "c"}}, {0, 2}},
        {{{0, x449 + "xx"}, {0, "b"}, {0, "c?"}, {0, "d"}}, {0, 3}}, {{{0, x449 + "…"}, {0, "b."}, {0, "c"}}, {0, 1}},
        {{{0, x449 + "“"}, {0, x449 + "»"}, {0, x449 + "\""}, {0, x449 + "!"}, {0, "e"}}, {0, 1, 2, 3, 4}},
        {{{0, x449 + "„"}, {0, "b"}}, {0}}};
    // clang-format on
    for (const auto& [parts, paragraphs] : cases) {
        TranscriptDocument document;
        std::string expected;
        double time = 0;
        for (unsigned number = 0; const auto& [pause, text] : parts) {
            const double start = time + pause;
            time = std::isnan(start) ? time : start + 1;
            document.segments.push_back(spoken(number, start, time, meeting, "1", text));
            const bool breaks = std::ranges::find(paragraphs, number) != paragraphs.end();
            expected += (number++ == 0 ? "" : breaks ? "\n\n" : " ") + text;
        }
        const auto blocks = TranscriptLayout::blocks(document, false);
        ASSERT_EQ(blocks.size(), 1U) << expected;
        EXPECT_EQ(blocks[0].text, expected);
        EXPECT_EQ(blocks[0].paragraphs, paragraphs) << expected;
    }
}

TEST(SpeakerColors, GoRoundAmongIdentifiedSpeakers) {
    TranscriptDocument document;
    for (unsigned i = 1; i <= 11; ++i)
        document.segments.push_back(spoken(i, i, i, i == 2 ? microphone : meeting, std::to_string(i), "x"));
    for (const auto source : {microphone, meeting})
        document.segments.push_back(spoken(20, 20, 20, source, {}, "x"));
    const auto blocks = TranscriptLayout::blocks(document, false);
    const auto colors = [&](SpeakerColorPreset personal) {
        const auto assigned = SpeakerColors::assignments(blocks, personal);
        std::string names;
        for (const auto& block : blocks) names += std::string(json::nameOf(assigned.at(block.speaker))) + " ";
        return names;
    };
    EXPECT_EQ(colors(SpeakerColorPreset::ocean),
              "sage violet amber rose teal indigo clay olive sage violet amber ocean slate ");
    EXPECT_EQ(colors(SpeakerColorPreset::slate),
              "ocean sage violet amber rose teal indigo clay olive ocean sage slate slate ");
}

TEST(TranscriptProcessingState, TakesTheFirstThatApplies) {
    using enum TranscriptProcessingState;
    // clang-format off
    const std::pair<std::string, TranscriptProcessingState> cases[] = {
        {"completed", complete}, {"unreadable unloaded recording", failed}, {"unloaded recording", loading},
        {"recording failed running pending", recording}, {"failed running pending", failed},
        {"running pending", processing}, {"pending interrupted", waiting}, {"completed speakers", waiting},
        {"removed failed", partial}, {"removed running", partial}, {"removed pending", partial},
        {"removed completed speakers", partial}, {"removed completed", complete},
        {"completed interrupted", interrupted}, {"text", partial}, {"", empty}};
    // clang-format on
    for (const auto& [words, expected] : cases) {
        const auto has = [&text = words](const char* word) { return text.find(word) != std::string::npos; };
        TranscriptProcessing given{.loaded = !has("unloaded"),
                                   .loadFailed = has("unreadable"),
                                   .recording = has("recording"),
                                   .meetingState = has("interrupted") ? "interrupted" : "completed",
                                   .stats = {},
                                   .hasText = has("text"),
                                   .diarizationPending = has("speakers"),
                                   .audioRemoved = has("removed")};
        for (const auto* job : {"failed", "running", "pending", "completed"})
            given.stats[job] = has(job) ? 1 : 0;
        EXPECT_EQ(given.resolve(), expected) << words;
    }
}

}  // namespace
}  // namespace meetingcore::testing
