#include <cmath>
#include <limits>

#include <gmock/gmock.h>

#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/TestRecording.h"

namespace meetingcore::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

template <class Call>
std::string messageOf(const Call& call) {
    try {
        call();
    } catch (const MeetingError& error) {
        return error.message();
    }
    return "";
}

constexpr const char* brokenFile = "WAV-Datei ist beschädigt oder hat ein unerwartetes Format.";
constexpr const char* outOfOrder = "Audiobuffer überlappen oder kommen in falscher Reihenfolge.";

TEST(WAV, WritesTheCanonicalBytes) {
    const std::vector<std::int16_t> samples{-2};
    EXPECT_EQ(WAV::encode(samples), std::string("RIFF\x26\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3E\0\0"
                                                "\0\x7D\0\0\x02\0\x10\0data\x02\0\0\0\xFE\xFF",
                                                46));
}

TEST(WAV, TakesOneTo960000Samples) {
    constexpr const char* refusal = "Ein WAV-Abschnitt muss 1 bis 960.000 Samples enthalten.";
    EXPECT_EQ(messageOf([] { WAV::encode({}); }), refusal);
    EXPECT_EQ(messageOf([] { WAV::encode(std::vector<std::int16_t>(960'001)); }), refusal);
    EXPECT_EQ(WAV::encode(std::vector<std::int16_t>(960'000)).size(), 1'920'044U);
}

TEST(WAV, RefusesEveryOtherHeaderAndLength) {
    const auto file = WAV::encode(std::vector<std::int16_t>{1, 2, 3});
    WAV::validate(file, 3);
    constexpr auto wrapsToThree = std::numeric_limits<std::int64_t>::min() + 3;
    for (const auto count : std::initializer_list<std::int64_t>{wrapsToThree, -1, 0, 2, 4}) {
        EXPECT_EQ(messageOf([&] { WAV::validate(file, count); }), brokenFile) << count;
    }
    for (std::size_t length = 0; length < file.size(); ++length) {
        EXPECT_EQ(messageOf([&] { WAV::validate(file.substr(0, length), 3); }), brokenFile) << length;
    }
    EXPECT_EQ(messageOf([&] { WAV::validate(file + '\0', 3); }), brokenFile);
    for (std::size_t bit = 0; bit < 8 * file.size(); ++bit) {
        auto flipped = file;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        const bool isHeader = bit / 8 < WAV::headerBytes;
        EXPECT_EQ(messageOf([&] { WAV::validate(flipped, 3); }), isHeader ? brokenFile : "") << bit;
    }
}

/// Makes an accumulator with chunks of `seconds` that writes down what it commits, and fails while told so.
struct Capture {
    explicit Capture(int seconds = 1)
        : accumulator(*PCMChunkAccumulator::make(UUID::random(), AudioSource::meeting, seconds,
                                                 [this](const AudioChunk& chunk, auto samples) {
                                                     ++attempts;
                                                     if (fails) throw MeetingError::storage("voll");
                                                     chunks.push_back(chunk);
                                                     all.insert(all.end(), samples.begin(), samples.end());
                                                 })) {}

    std::string append(std::size_t count, double start) {
        std::vector<std::int16_t> samples(count);
        for (auto& sample : samples) sample = static_cast<std::int16_t>(next++);
        return messageOf([&] { accumulator.append(samples, start); });
    }

    /// Start and length of what was committed.
    std::vector<std::pair<double, std::int64_t>> spans() const {
        std::vector<std::pair<double, std::int64_t>> spans;
        for (const auto& chunk : chunks) spans.emplace_back(chunk.startSeconds, chunk.sampleCount);
        return spans;
    }

    bool fails = false;
    int attempts = 0;
    int next = 0;
    std::vector<AudioChunk> chunks;
    std::vector<std::int16_t> all;
    PCMChunkAccumulator accumulator;
};

TEST(PCMChunkAccumulator, MakesChunksOfOneToSixtySeconds) {
    for (const auto& [seconds, accepted] :
         {std::pair{0, false}, {1, true}, {60, true}, {61, false}, {-1, false}}) {
        EXPECT_EQ(PCMChunkAccumulator::make({}, AudioSource::microphone, seconds, nullptr).has_value(),
                  accepted);
    }
}

TEST(PCMChunkAccumulator, CutsOneLongBufferIntoFullChunks) {
    Capture capture(60);
    EXPECT_EQ(capture.append(3'000'000, 0), "");
    EXPECT_THAT(capture.spans(),
                ElementsAre(std::pair(0.0, 960'000), std::pair(60.0, 960'000), std::pair(120.0, 960'000)));
    EXPECT_EQ(capture.chunks[2].sequence, 2);
    EXPECT_EQ(capture.accumulator.bufferedStartSeconds(), 180.0);
    EXPECT_EQ(capture.accumulator.bufferedEndSeconds(), 187.5);
    capture.accumulator.endSpan();
    ASSERT_EQ(capture.all.size(), 3'000'000U);
    for (std::size_t i = 0; i < capture.all.size(); ++i) {
        ASSERT_EQ(capture.all[i], static_cast<std::int16_t>(i));
    }
}

TEST(PCMChunkAccumulator, JudgesEachBufferByTheEndOfTheLast) {
    struct Case {
        double start;  // after a buffer from 1 to 1.1 s
        std::string refusal;
        std::size_t chunks;
    };
    const auto infinity = std::numeric_limits<double>::infinity();
    for (const auto& [start, refusal, chunks] :
         std::vector<Case>{{1.1, "", 0},
                           {1.14, "", 0},
                           {1.06, "", 0},
                           {1.16, "", 1},
                           {1.04, outOfOrder, 0},
                           {0, outOfOrder, 0},
                           {-0.1, "Ungültiger Audiotimestamp.", 0},
                           {infinity, "Ungültiger Audiotimestamp.", 0},
                           {std::nan(""), "Ungültiger Audiotimestamp.", 0}}) {
        Capture capture;
        capture.append(1600, 1);
        EXPECT_EQ(capture.append(160, start), refusal) << start;
        EXPECT_EQ(capture.chunks.size(), chunks) << start;
        EXPECT_EQ(capture.accumulator.bufferedStartSeconds(), chunks == 0 ? 1 : start);
        capture.accumulator.flush();
        EXPECT_EQ(capture.all.size(), refusal.empty() ? 1760U : 1600U) << start;
    }
}

TEST(PCMChunkAccumulator, ForgetsTheTimeAtTheEndOfASpan) {
    Capture capture;
    capture.append(1600, 5);
    capture.accumulator.endSpan();
    EXPECT_EQ(capture.append(1600, 2), "");
    capture.accumulator.flush();
    EXPECT_EQ(capture.append(0, 0), "") << "an empty buffer is no buffer";
    EXPECT_EQ(capture.append(1600, 2), outOfOrder) << "a flush is not the end of a span";
    EXPECT_THAT(capture.spans(), ElementsAre(std::pair(5.0, 1600), std::pair(2.0, 1600)));
}

TEST(PCMChunkAccumulator, OffersAFailedChunkAgainBeforeItTakesMore) {
    Capture capture;
    capture.fails = true;
    EXPECT_EQ(capture.append(16'000, 0), "voll");
    EXPECT_EQ(capture.append(16'000, 1), "voll");
    EXPECT_EQ(capture.attempts, 2);
    EXPECT_THAT(capture.chunks, IsEmpty());
    capture.fails = false;
    capture.next = 16'000;
    EXPECT_EQ(capture.append(16'000, 1), "");
    EXPECT_THAT(capture.spans(), ElementsAre(std::pair(0.0, 16'000), std::pair(1.0, 16'000)));
    EXPECT_EQ(capture.all[31'999], 31'999);
}

TEST(PCMChunkAccumulator, TellsWhereToGoOnAfterAFailureWithinABuffer) {
    Capture capture;
    capture.fails = true;
    EXPECT_EQ(capture.append(20'000, 3), "voll");
    EXPECT_EQ(capture.accumulator.bufferedEndSeconds(), 4.0);
    capture.fails = false;
    capture.next = 16'000;
    EXPECT_EQ(capture.append(4'000, 4), "");
    capture.accumulator.flush();
    EXPECT_THAT(capture.spans(), ElementsAre(std::pair(3.0, 16'000), std::pair(4.0, 4'000)));
    EXPECT_EQ(capture.all[19'999], 19'999);
}

}  // namespace
}  // namespace meetingcore::testing
