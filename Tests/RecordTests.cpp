#include <cmath>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Recording/Models.h"
#include "MeetingCore/Recording/WindowPlanner.h"
#include "Support/Failure.h"

namespace meetingcore {
namespace {

using ::testing::ElementsAre;
using testing::failureOf;
using ::testing::HasSubstr;

UUID uuid(int number) {
    const auto digits = std::to_string(number);
    return UUID::parse("AAAAAAAA-BBBB-4CCC-8DDD-" + std::string(12 - digits.size(), '0') + digits).value();
}

AudioChunk chunk(int number, double startSeconds, double seconds = 60) {
    AudioChunk chunk;
    chunk.id = uuid(number);
    chunk.sessionID = uuid(0);
    chunk.sequence = number;
    chunk.startSeconds = startSeconds;
    chunk.sampleCount = std::llround(seconds * 16'000);
    return chunk;
}

TEST(Models, ChunkAndSessionKeepTheStoredForm) {
    const std::string chunkText =
        R"({"schemaVersion":1,"id":"AAAAAAAA-BBBB-4CCC-8DDD-000000000007","sessionID":"AAAAAAAA-BBBB-4CCC-8DDD-000000000000",)"
        R"("source":"microphone","sequence":7,"startSeconds":60.5,"sampleCount":960000,"sampleRate":16000})";
    EXPECT_EQ(json::encode(chunk(7, 60.5)), chunkText);
    EXPECT_EQ(json::decode<AudioChunk>(chunkText, "x"), chunk(7, 60.5));
    EXPECT_EQ(chunk(7, 60.5, 30).endSeconds(), 90.5);

    MeetingSession session{1,  uuid(0), Date::since1970(1'700'000'000.25), "Planung", "com.example.talk",
                           {}, true};
    const std::string sessionText =
        R"({"schemaVersion":1,"id":"AAAAAAAA-BBBB-4CCC-8DDD-000000000000","createdAt":721692800.25,"title":"Planung",)"
        R"("applicationBundleID":"com.example.talk","consentConfirmed":true})";
    EXPECT_EQ(json::encode(session), sessionText);
    EXPECT_EQ(json::decode<MeetingSession>(sessionText, "x"), session);
    session.microphoneID = "usb";
    EXPECT_EQ(json::decode<MeetingSession>(json::encode(session), "x"), session);
}

TEST(Models, DecodingAChunkChecksNothingButItsForm) {
    auto odd = chunk(1, 0);
    odd.schemaVersion = 9;
    odd.sampleRate = 48'000;
    EXPECT_EQ(json::decode<AudioChunk>(json::encode(odd), "x"), odd);
}

TEST(Models, ValidatesChunks) {
    using Change = void (*)(AudioChunk&);
    const std::vector<std::pair<Change, bool>> cases = {
        {[](AudioChunk&) {}, true},
        {[](AudioChunk& c) { c.startSeconds = -0.0; }, true},
        {[](AudioChunk& c) { c.sampleCount = 1; }, true},
        {[](AudioChunk& c) { c.sampleCount = 960'001; }, false},
        {[](AudioChunk& c) { c.sampleCount = 0; }, false},
        {[](AudioChunk& c) { c.sampleCount = -1; }, false},
        {[](AudioChunk& c) { c.sampleRate = 48'000; }, false},
        {[](AudioChunk& c) { c.schemaVersion = 2; }, false},
        {[](AudioChunk& c) { c.schemaVersion = 0; }, false},
        {[](AudioChunk& c) { c.sequence = -1; }, false},
        {[](AudioChunk& c) { c.startSeconds = -0.001; }, false},
        {[](AudioChunk& c) { c.startSeconds = std::nan(""); }, false},
        {[](AudioChunk& c) { c.startSeconds = HUGE_VAL; }, false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        auto changed = chunk(0, 0);
        cases[i].first(changed);
        EXPECT_EQ(failureOf([&] { changed.validate(); }),
                  cases[i].second ? "no failure" : "Ungültige Audioabschnitt-Metadaten.")
            << "case " << i;
    }
}

/// The sequence numbers of the chunks in each window.
std::vector<std::vector<std::int64_t>> planned(const std::vector<AudioChunk>& chunks, double target,
                                               bool flush) {
    std::vector<std::vector<std::int64_t>> windows;
    for (const auto& window : WindowPlanner::plan(chunks, target, flush)) {
        windows.emplace_back();
        for (const auto& part : window.chunks) windows.back().push_back(part.sequence);
    }
    return windows;
}

TEST(WindowPlanner, FillsWindowsToTheirTargetAndHoldsTheRestBack) {
    const std::vector<AudioChunk> minutes = {chunk(0, 0), chunk(1, 60), chunk(2, 120)};
    using Plan = std::vector<std::vector<std::int64_t>>;
    EXPECT_EQ(planned(minutes, 120, false), (Plan{{0, 1}}));
    EXPECT_EQ(planned(minutes, 120, true), (Plan{{0, 1}, {2}}));
    EXPECT_EQ(planned(minutes, 60, false), (Plan{{0}, {1}, {2}}));
    EXPECT_EQ(planned(minutes, 61, false), (Plan{{0, 1}}));  // the chunk that crosses the target stays whole
    EXPECT_EQ(planned({minutes[2], minutes[0], minutes[1]}, 120, true), (Plan{{0, 1}, {2}}));
    EXPECT_EQ(planned({}, 60, true), Plan{});
    // After a gap the duration counts from zero again.
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 100), chunk(2, 160)}, 120, false), (Plan{{0}, {1, 2}}));
}

TEST(WindowPlanner, ClosesWindowsAtGapsAndRefusesOverlaps) {
    using Plan = std::vector<std::vector<std::int64_t>>;
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 60.04)}, 120, false), (Plan{{0, 1}}));
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 60.05)}, 120, false), (Plan{{0, 1}}));
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 60.06)}, 120, false), (Plan{{0}}));
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 60.06)}, 120, true), (Plan{{0}, {1}}));
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 59.96)}, 120, false), (Plan{{0, 1}}));
    EXPECT_EQ(failureOf([] {
                  planned({chunk(0, 0), chunk(1, 59.94)}, 120, false);
              }),
              "Überlappende Audioabschnitte sind nicht zulässig.");
    // The end of the previous chunk counts, also where that chunk ended an earlier window.
    EXPECT_EQ(failureOf([] {
                  planned({chunk(0, 0), chunk(1, 30)}, 60, true);
              }),
              "Überlappende Audioabschnitte sind nicht zulässig.");
}

TEST(WindowPlanner, ChecksInItsOrder) {
    auto invalid = chunk(1, 60);
    invalid.sampleRate = 8'000;
    auto otherTrack = chunk(2, 120);
    otherTrack.source = AudioSource::meeting;
    auto otherSession = chunk(3, 180);
    otherSession.sessionID = uuid(9);
    const auto length = "Die Fensterlänge muss positiv sein.";
    const auto doubled = "Doppelte Audioabschnitte im Verarbeitungsfenster.";
    const auto metadata = "Ungültige Audioabschnitt-Metadaten.";
    const auto mixed = "Ein Fenster darf nur eine Spur einer Sitzung enthalten.";
    const auto failure = [](const std::vector<AudioChunk>& chunks, double target = 60) {
        return failureOf([&] { WindowPlanner::plan(chunks, target, true); });
    };
    for (const double target : {0.0, -1.0, HUGE_VAL, std::nan("")}) EXPECT_EQ(failure({}, target), length);
    EXPECT_EQ(failure({otherTrack, invalid, invalid}), doubled);
    EXPECT_EQ(failure({chunk(0, 0), otherTrack, invalid}), metadata);
    EXPECT_EQ(failure({chunk(0, 0), otherTrack}), mixed);
    EXPECT_EQ(failure({chunk(0, 0), otherSession, chunk(4, 1)}), mixed);
}

TEST(WindowPlanner, NamesAWindowByItsFirstAndLastChunk) {
    auto first = chunk(0, 0);
    auto last = chunk(2, 120);
    first.source = last.source = AudioSource::meeting;
    const auto window = WindowPlanner::plan(std::vector{last, first}, 60, true).front();
    EXPECT_EQ(window.id(),
              "AAAAAAAA-BBBB-4CCC-8DDD-000000000000:meeting:AAAAAAAA-BBBB-4CCC-8DDD-000000000000:"
              "AAAAAAAA-BBBB-4CCC-8DDD-000000000000:v1");
    const TranscriptionWindow both{uuid(0), AudioSource::microphone, {first, last}};
    EXPECT_THAT(both.id(), HasSubstr(":microphone:AAAAAAAA-BBBB-4CCC-8DDD-000000000000:"
                                     "AAAAAAAA-BBBB-4CCC-8DDD-000000000002:v1"));
    EXPECT_EQ(both.startSeconds(), 0);
    EXPECT_EQ(both.endSeconds(), 180);
    EXPECT_THAT(json::encode(both),
                ::testing::StartsWith(R"({"sessionID":"AAAAAAAA-BBBB-4CCC-8DDD-000000000000",)"
                                      R"("source":"microphone","chunks":[{"schemaVersion":1,)"));
}

}  // namespace
}  // namespace meetingcore
