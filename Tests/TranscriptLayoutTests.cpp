#include <limits>

#include <gmock/gmock.h>

#include "MeetingCore/Presentation/TranscriptLayout.h"
#include "MeetingCore/Presentation/TranscriptPresentation.h"
#include "Support/ExportSample.h"

namespace meetingcore {
namespace {

using testing::documentOf;
using ::testing::ElementsAre;
using testing::numberedID;
using testing::spoken;
using enum AudioSource;

std::vector<std::string> shapes(const std::vector<TranscriptBlock>& blocks) {
    std::vector<std::string> shapes;
    for (const auto& block : blocks) {
        shapes.push_back(block.speaker.speakerID.value_or("-") + "/" + std::to_string(block.colorIndex) + "/" +
                         std::to_string(block.segments.size()) + "/" + block.text);
    }
    return shapes;
}

TEST(TranscriptLayout, JoinsRunsOfOneSpeakerAndNumbersTheSpeakers) {
    const auto document =
        documentOf({spoken(1, 0, 1, meeting, "7", " eins\n"), spoken(2, 1, 2, meeting, "7", "zwei"),
                    spoken(3, 2, 3, meeting, {}, "drei"), spoken(4, 3, 4, microphone, {}, "vier"),
                    spoken(5, 4, 5, meeting, "7", "fünf")});
    const auto blocks = TranscriptLayout::blocks(document, false);
    EXPECT_THAT(shapes(blocks), ElementsAre("7/0/2/eins zwei", "-/1/1/drei", "-/2/1/vier", "7/0/1/fünf"));
    EXPECT_EQ(blocks[0].id(), numberedID(1));
    EXPECT_EQ(blocks[3].id(), numberedID(5));
}

TEST(TranscriptLayout, LeavesSegmentsWithoutTextOut) {
    auto document =
        documentOf({spoken(1, 0, 1, meeting, "1", " \u200b\n"), spoken(2, 1, 2, meeting, "2", "eins"),
                    spoken(3, 2, 3, meeting, "3", ""), spoken(4, 3, 3.5, meeting, "2", "zwei")});
    EXPECT_THAT(shapes(TranscriptLayout::blocks(document, false)), ElementsAre("2/0/2/eins zwei"));
    EXPECT_THAT(TranscriptLayout::blocks({}, false), ::testing::IsEmpty());
}

TEST(TranscriptLayout, ShowsTheRecognisedWordingOnRequest) {
    auto document =
        documentOf({spoken(1, 0, 1, meeting, "1", "berichtigt"), spoken(2, 1, 2, meeting, "1", "neu")});
    document.rawSegments = {spoken(1, 0, 1, meeting, {}, "erkannt ")};
    EXPECT_EQ(TranscriptLayout::blocks(document, false)[0].text, "berichtigt neu");
    EXPECT_EQ(TranscriptLayout::blocks(document, true)[0].text, "erkannt neu");
}

TEST(TranscriptLayout, BreaksParagraphsAtPausesAndAtTheEndOfLongSentences) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const std::string long449 = std::string(446, 'x') + "äöü";
    struct {
        const char* name;
        std::vector<std::pair<double, std::string>> pausesAndTexts;
        std::vector<std::size_t> paragraphs;
    } const cases[] = {
        {"pause", {{0, "a"}, {1.875, "b"}, {2, "c"}, {nan, "d"}}, {0, 2}},
        {"449 characters", {{0, long449.substr(1) + "."}, {0, "b"}}, {0}},
        {"450 characters", {{0, long449 + "."}, {0, "b"}}, {0, 1}},
        {"separators count", {{0, long449.substr(4)}, {0, "ab."}, {0, "c"}}, {0}},
        {"separators count", {{0, long449.substr(3)}, {0, "ab."}, {0, "c"}}, {0, 2}},
        {"no end of sentence", {{0, long449 + "xx"}, {0, "b"}, {0, "c?"}, {0, "d"}}, {0, 3}},
        {"starts again", {{0, long449 + "…"}, {0, "b."}, {0, "c"}}, {0, 1}},
        {"quotes",
         {{0, long449 + "“"}, {0, long449 + "»"}, {0, long449 + "\""}, {0, long449 + "!"}, {0, "e"}},
         {0, 1, 2, 3, 4}},
        {"other quote", {{0, long449 + "„"}, {0, "b"}}, {0}},
    };
    for (const auto& [name, parts, paragraphs] : cases) {
        TranscriptDocument document;
        double time = 0;
        unsigned number = 0;
        std::string expected;
        for (const auto& [pause, text] : parts) {
            time += std::isfinite(pause) ? pause : 0;
            document.segments.push_back(
                spoken(number, std::isfinite(pause) ? time : pause, time + 1, meeting, "1", text));
            time += 1;
            const bool breaks = std::find(paragraphs.begin(), paragraphs.end(), number) != paragraphs.end();
            expected += (number == 0 ? "" : breaks ? "\n\n" : " ") + text;
            ++number;
        }
        const auto blocks = TranscriptLayout::blocks(document, false);
        ASSERT_EQ(blocks.size(), 1U) << name;
        EXPECT_EQ(blocks[0].text, expected) << name;
        EXPECT_EQ(blocks[0].paragraphs, paragraphs) << name;
    }
}

TEST(SpeakerColors, GoRoundAmongIdentifiedSpeakers) {
    TranscriptDocument document;
    for (unsigned i = 1; i <= 11; ++i) {
        document.segments.push_back(spoken(i, i, i, i == 2 ? microphone : meeting, std::to_string(i), "x"));
    }
    document.segments.push_back(spoken(20, 20, 20, microphone, {}, "x"));
    document.segments.push_back(spoken(21, 21, 21, meeting, {}, "x"));
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
    using State = TranscriptProcessingState;
    const std::map<std::string, std::int64_t> busy{{"failed", 1}, {"running", 1}, {"pending", 1}};
    const TranscriptProcessing done{.loaded = true, .meetingState = "completed", .stats = {{"completed", 3}}};
    const auto with = [&](auto change) {
        auto changed = done;
        change(changed);
        return changed.resolve();
    };
    EXPECT_EQ(done.resolve(), State::complete);
    EXPECT_EQ(with([](auto& p) { p.loadFailed = true, p.loaded = false, p.recording = true; }), State::failed);
    EXPECT_EQ(with([](auto& p) { p.loaded = false, p.recording = true; }), State::loading);
    EXPECT_EQ(with([&](auto& p) { p.recording = true, p.stats = busy; }), State::recording);
    EXPECT_EQ(with([&](auto& p) { p.stats = busy; }), State::failed);
    EXPECT_EQ(with([](auto& p) {
                  p.stats = {{"failed", 0}, {"running", 1}, {"pending", 1}};
              }),
              State::processing);
    EXPECT_EQ(with([](auto& p) { p.stats = {{"pending", 1}}, p.meetingState = "paused"; }), State::waiting);
    EXPECT_EQ(with([](auto& p) { p.diarizationPending = true; }), State::waiting);
    for (const char* state : {"failed", "running", "pending"}) {
        EXPECT_EQ(with([&](auto& p) {
                      p.stats = {{state, 1}}, p.audioRemoved = true;
                  }),
                  State::partial)
            << state;
    }
    EXPECT_EQ(with([](auto& p) { p.diarizationPending = p.audioRemoved = true; }), State::partial);
    EXPECT_EQ(with([](auto& p) { p.audioRemoved = true; }), State::complete);
    EXPECT_EQ(with([](auto& p) { p.meetingState = "interrupted"; }), State::interrupted);
    EXPECT_EQ(with([](auto& p) { p.stats = {}, p.hasText = true; }), State::partial);
    EXPECT_EQ(with([](auto& p) { p.stats = {}; }), State::empty);
}

}  // namespace
}  // namespace meetingcore
