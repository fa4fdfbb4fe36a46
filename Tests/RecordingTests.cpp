#include <cmath>
#include <limits>

#include "MeetingCore/Recording/PCMChunkAccumulator.h"
#include "MeetingCore/Recording/WAV.h"
#include "Support/TestRecording.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

constexpr const char* brokenFile = "WAV-Datei ist beschädigt oder hat ein unerwartetes Format.";
constexpr const char* outOfOrder = "Audiobuffer überlappen oder kommen in falscher Reihenfolge.";
constexpr const char* badTime = "Ungültiger Audiotimestamp.";
using Samples = std::vector<std::int16_t>;

TEST(WAV, WritesTheCanonicalBytesOfOneTo960000Samples) {
    EXPECT_EQ(WAV::encode(Samples{-2}), std::string("RIFF\x26\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x80\x3E\0\0"
                                                    "\0\x7D\0\0\x02\0\x10\0data\x02\0\0\0\xFE\xFF",
                                                    46));
    for (const std::size_t count : {0U, 960'001U})
        EXPECT_EQ(messageOf([&] { WAV::encode(Samples(count)); }),
                  "Ein WAV-Abschnitt muss 1 bis 960.000 Samples enthalten.");
    EXPECT_EQ(WAV::encode(Samples(960'000)).size(), 1'920'044U);
}

TEST(WAV, RefusesEveryOtherHeaderAndLength) {
    const auto file = WAV::encode(Samples{1, 2, 3});
    const auto refusal = [](const std::string& bytes, std::int64_t count) {
        return messageOf([&] { WAV::validate(bytes, count); });
    };
    constexpr auto wrapsToThree = std::numeric_limits<std::int64_t>::min() + 3;
    for (const std::int64_t count : std::initializer_list<std::int64_t>{wrapsToThree, -1, 0, 2, 4})
        EXPECT_EQ(refusal(file, count), brokenFile) << count;
    for (std::size_t length = 0; length < file.size(); ++length)
        EXPECT_EQ(refusal(file.substr(0, length), 3), brokenFile) << length;
    EXPECT_EQ(refusal(file + '\0', 3), brokenFile);
    for (std::size_t bit = 0; bit < 8 * file.size(); ++bit) {
        auto flipped = file;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
        EXPECT_EQ(refusal(flipped, 3), bit / 8 < WAV::headerBytes ? brokenFile : "") << bit;
    }
}

/// Makes an accumulator with chunks of `seconds` that writes down what it commits, and fails while told so.
struct Capture {
    explicit Capture(int seconds = 1)
        : accumulator(*PCMChunkAccumulator::make(
              UUID::random(), AudioSource::meeting, seconds, [this](const AudioChunk& chunk, auto samples) {
                  if (fails) throw MeetingError::storage("voll");
                  EXPECT_EQ(chunk.sequence, static_cast<std::int64_t>(spans.size()));
                  spans.emplace_back(chunk.startSeconds, chunk.sampleCount);
                  all.insert(all.end(), samples.begin(), samples.end());
              })) {}

    std::string append(std::size_t count, double start) {
        Samples samples(count);
        for (auto& sample : samples) sample = static_cast<std::int16_t>(next++);
        return messageOf([&] { accumulator.append(samples, start); });
    }
    void expectEverySampleOnce() const {
        ASSERT_EQ(all.size(), static_cast<std::size_t>(next));
        for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], static_cast<std::int16_t>(i));
    }

    bool fails = false;
    int next = 0;
    std::vector<std::pair<double, std::int64_t>> spans;  // start and length of what was committed
    Samples all;
    PCMChunkAccumulator accumulator;
};

TEST(PCMChunkAccumulator, CutsALongBufferIntoChunksOfOneToSixtySeconds) {
    for (const int seconds : {-1, 0, 1, 60, 61}) {
        const auto made = PCMChunkAccumulator::make({}, AudioSource::microphone, seconds, nullptr);
        EXPECT_EQ(made.has_value(), seconds == 1 || seconds == 60);
    }
    Capture capture(60);
    EXPECT_EQ(capture.append(3'000'000, 0), "");
    EXPECT_THAT(capture.spans, ElementsAre(Pair(0, 960'000), Pair(60, 960'000), Pair(120, 960'000)));
    EXPECT_EQ(capture.accumulator.bufferedStartSeconds(), 180.0);
    EXPECT_EQ(capture.accumulator.bufferedEndSeconds(), 187.5);
    capture.accumulator.endSpan();
    capture.expectEverySampleOnce();
}

TEST(PCMChunkAccumulator, JudgesEachBufferByTheEndOfTheLast) {
    // The start of a buffer after one from 1 to 1.1 s.
    for (const auto& [start, refusal] : {std::pair(1.1, ""),
                                         {1.14, ""},
                                         {1.06, ""},
                                         {1.16, ""},
                                         {1.04, outOfOrder},
                                         {0, outOfOrder},
                                         {-0.1, badTime},
                                         {HUGE_VAL, badTime},
                                         {NAN, badTime}}) {
        Capture capture;
        capture.append(1600, 1);
        EXPECT_EQ(capture.append(160, start), refusal) << start;
        const bool isGap = start == 1.16;
        EXPECT_EQ(capture.spans.size(), isGap ? 1U : 0U) << start;
        EXPECT_EQ(capture.accumulator.bufferedStartSeconds(), isGap ? start : 1);
        capture.accumulator.flush();
        EXPECT_EQ(capture.all.size(), *refusal == '\0' ? 1760U : 1600U) << start;
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
    EXPECT_THAT(capture.spans, ElementsAre(Pair(5, 1600), Pair(2, 1600)));
}

TEST(PCMChunkAccumulator, OffersAFailedChunkAgainAndGoesOnBehindIt) {
    Capture capture;
    capture.fails = true;
    EXPECT_EQ(capture.append(20'000, 3), "voll");
    EXPECT_EQ(capture.append(16'000, 4), "voll") << "the failed chunk comes first";
    EXPECT_EQ(capture.accumulator.bufferedEndSeconds(), 4.0);
    capture.fails = false;
    capture.next = 16'000;
    EXPECT_EQ(capture.append(4'000, 4), "");
    capture.accumulator.flush();
    EXPECT_THAT(capture.spans, ElementsAre(Pair(3, 16'000), Pair(4, 4'000)));
    capture.expectEverySampleOnce();
}

TEST(PCMChunkAccumulator, AddsNothingToAFailedChunkThatIsNotFull) {
    Capture capture;
    capture.append(1600, 0);
    capture.fails = true;
    EXPECT_EQ(messageOf([&] { capture.accumulator.flush(); }), "voll");
    capture.fails = false;
    EXPECT_EQ(capture.append(1600, 0.1), "");
    capture.accumulator.flush();
    EXPECT_THAT(capture.spans, ElementsAre(Pair(0, 1600), Pair(0.1, 1600)));
}

}  // namespace
}  // namespace meetingcore::testing
