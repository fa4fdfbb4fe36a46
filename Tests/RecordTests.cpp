#include <cmath>

#include "MeetingCore/Recording/Models.h"
#include "MeetingCore/Recording/WindowPlanner.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

UUID uuid(int number) {
    return UUID::parse("AAAAAAAA-BBBB-4CCC-8DDD-00000000000" + std::to_string(number)).value();
}

AudioChunk chunk(int number, double startSeconds) {
    return {1, uuid(number), uuid(0), AudioSource::microphone, number, startSeconds, 960'000, 16'000};
}

TEST(Models, ChunkAndSessionKeepTheStoredForm) {
    auto odd = chunk(7, 60.5);
    odd.schemaVersion = 9;  // decoding checks nothing but the form
    const std::string chunkText =
        R"({"schemaVersion":9,"id":"AAAAAAAA-BBBB-4CCC-8DDD-000000000007","sessionID":"AAAAAAAA-BBBB-4CCC-8DDD-000000000000",)"
        R"("source":"microphone","sequence":7,"startSeconds":60.5,"sampleCount":960000,"sampleRate":16000})";
    EXPECT_EQ(json::encode(odd), chunkText);
    EXPECT_EQ(json::decode<AudioChunk>(chunkText, "x"), odd);
    EXPECT_EQ(odd.endSeconds(), 120.5);

    const auto start = Date::since1970(1'700'000'000.25);
    const MeetingSession session{1, uuid(0), start, "Planung", "com.example.talk", {}, true};
    const std::string sessionText =
        R"({"schemaVersion":1,"id":"AAAAAAAA-BBBB-4CCC-8DDD-000000000000","createdAt":721692800.25,"title":"Planung",)"
        R"("applicationBundleID":"com.example.talk","consentConfirmed":true})";
    EXPECT_EQ(json::encode(session), sessionText);
    EXPECT_EQ(json::decode<MeetingSession>(sessionText, "x"), session);
}

TEST(Models, ValidatesChunks) {
    using Change = void (*)(AudioChunk&);
    // clang-format off
    const Change valid[] = {[](auto& c) { c.startSeconds = -0.0; }, [](auto& c) { c.sampleCount = 1; }};
    const Change invalid[] = {
        [](auto& c) { c.sampleCount = 960'001; },      [](auto& c) { c.sampleCount = 0; },
        [](auto& c) { c.sampleCount = -1; },           [](auto& c) { c.sampleRate = 48'000; },
        [](auto& c) { c.schemaVersion = 2; },          [](auto& c) { c.schemaVersion = 0; },
        [](auto& c) { c.startSeconds = -0.001; },      [](auto& c) { c.sequence = -1; },
        [](auto& c) { c.startSeconds = std::nan(""); }, [](auto& c) { c.startSeconds = HUGE_VAL; }};
    // clang-format on
    const auto failure = [](Change change) {
        auto changed = chunk(0, 0);
        change(changed);
        return failureOf([&] { changed.validate(); });
    };
    for (const auto change : valid) EXPECT_EQ(failure(change), noFailure);
    for (const auto change : invalid) EXPECT_EQ(failure(change), "Ungültige Audioabschnitt-Metadaten.");
}

/// The sequence numbers of the chunks in each window, or what the planner refuses them with.
std::string planned(const std::vector<AudioChunk>& chunks, double target, bool flush) {
    std::string windows;
    const auto failure = failureOf([&] {
        for (const auto& window : WindowPlanner::plan(chunks, target, flush)) {
            windows += windows.empty() ? "" : " ";
            for (const auto& part : window.chunks) windows += std::to_string(part.sequence);
        }
    });
    return failure == noFailure ? windows : failure;
}

TEST(WindowPlanner, FillsWindowsToTheirTargetAndClosesThemAtGaps) {
    const std::vector<AudioChunk> minutes = {chunk(2, 120), chunk(0, 0), chunk(1, 60)};
    EXPECT_EQ(planned(minutes, 120, false), "01");
    EXPECT_EQ(planned(minutes, 120, true), "01 2");
    EXPECT_EQ(planned(minutes, 60, false), "0 1 2");
    EXPECT_EQ(planned(minutes, 61, false), "01");  // the chunk that crosses the target stays whole
    EXPECT_EQ(planned({}, 60, true), "");
    // After a gap the duration counts from zero again.
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 100), chunk(2, 160)}, 120, false), "0 12");
    const std::string overlap = "Überlappende Audioabschnitte sind nicht zulässig.";
    for (const auto& [second, flush, expected] :
         std::vector<std::tuple<double, bool, std::string>>{{60.05, false, "01"},
                                                            {60.06, false, "0"},
                                                            {60.06, true, "0 1"},
                                                            {59.96, false, "01"},
                                                            {59.94, false, overlap}})
        EXPECT_EQ(planned({chunk(0, 0), chunk(1, second)}, 120, flush), expected) << second;
    // The end of the previous chunk counts, also where that chunk ended an earlier window.
    EXPECT_EQ(planned({chunk(0, 0), chunk(1, 30)}, 60, true), overlap);
}

TEST(WindowPlanner, ChecksInItsOrder) {
    auto invalid = chunk(1, 60), otherTrack = chunk(2, 120), otherSession = chunk(3, 180);
    invalid.sampleRate = 8'000;
    otherTrack.source = AudioSource::meeting;
    otherSession.sessionID = uuid(9);
    const std::string mixed = "Ein Fenster darf nur eine Spur einer Sitzung enthalten.";
    for (const double target : {0.0, -1.0, HUGE_VAL, std::nan("")})
        EXPECT_EQ(planned({}, target, true), "Die Fensterlänge muss positiv sein.");
    EXPECT_EQ(planned({otherTrack, invalid, invalid}, 60, true),
              "Doppelte Audioabschnitte im Verarbeitungsfenster.");
    EXPECT_EQ(planned({chunk(0, 0), otherTrack, invalid}, 60, true), "Ungültige Audioabschnitt-Metadaten.");
    EXPECT_EQ(planned({chunk(0, 0), otherTrack}, 60, true), mixed);
    EXPECT_EQ(planned({chunk(0, 0), otherSession, chunk(4, 1)}, 60, true), mixed);
}

TEST(WindowPlanner, NamesAWindowByItsFirstAndLastChunk) {
    const TranscriptionWindow window{uuid(0), AudioSource::microphone, {chunk(1, 0), chunk(2, 120)}};
    EXPECT_EQ(window.id(),
              "AAAAAAAA-BBBB-4CCC-8DDD-000000000000:microphone:AAAAAAAA-BBBB-4CCC-8DDD-000000000001:"
              "AAAAAAAA-BBBB-4CCC-8DDD-000000000002:v1");
    EXPECT_EQ(window.endSeconds(), 180);
    EXPECT_THAT(json::encode(window), StartsWith(R"({"sessionID":"AAAAAAAA-BBBB-4CCC-8DDD-000000000000",)"
                                                 R"("source":"microphone","chunks":[{"schemaVersion":1,)"));
}

}  // namespace
}  // namespace meetingcore::testing
