#include <cmath>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/SpeechConfiguration.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/WindowPlanner.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

UUID uuid(int number) {
    return UUID::parse("AAAAAAAA-BBBB-4CCC-8DDD-00000000000" + std::to_string(number)).value();
}

AudioChunk chunk(int number, double startSeconds) {
    return {1, uuid(number), uuid(0), AudioSource::microphone, number, startSeconds, 960'000, 16'000};
}

/// In `text`, # stands for all but the last digit of an identifier.
template <class Record>
void expectStoredAs(const Record& record, const std::string& text) {
    const auto stored = text::replacing(text, "#", "AAAAAAAA-BBBB-4CCC-8DDD-00000000000");
    EXPECT_EQ(json::encode(record), stored);
    EXPECT_EQ(json::decode<Record>(stored, "x"), record);
}

TEST(Records, KeepTheirStoredForms) {
    using enum AudioSource;
    const auto date = Date::since1970(1'700'000'000.25);
    // Decoding checks nothing but the form.
    expectStoredAs(AudioChunk{9, uuid(7), uuid(0), microphone, 6, 60.5, 960'000, 16'000},
                   R"({"schemaVersion":9,"id":"#7","sessionID":"#0","source":"microphone","sequence":6,)"
                   R"("startSeconds":60.5,"sampleCount":960000,"sampleRate":16000})");
    expectStoredAs(MeetingSession{1, uuid(0), date, "Planung", "com.example.talk", {}, true},
                   R"({"schemaVersion":1,"id":"#0","createdAt":721692800.25,"title":"Planung",)"
                   R"("applicationBundleID":"com.example.talk","consentConfirmed":true})");
    expectStoredAs(SessionEvent{uuid(0), date, "paused", "Mikrofon/leise"},
                   R"({"id":"#0","date":721692800.25,"kind":"paused","detail":"Mikrofon\/leise"})");
    expectStoredAs(TranscriptSegment{uuid(0), 0, 4.5, meeting, {}, "Hallo"},
                   R"({"id":"#0","startSeconds":0,"endSeconds":4.5,"source":"meeting","text":"Hallo"})");
    expectStoredAs(SpeakerTurn{"2", {}, 1, 2}, R"({"speakerID":"2","startSeconds":1,"endSeconds":2})");
    expectStoredAs(MeetingSummary{"Kurz", {}, {{"Tun", {uuid(0)}, "Anna", {}}}, {}},
                   R"({"overview":"Kurz","decisions":[],"tasks":[{"text":"Tun","sourceSegmentIDs":["#0"],)"
                   R"("owner":"Anna"}],"openQuestions":[]})");
    const EvidenceSummary summary{{}, {}, {{"Tun", {uuid(0)}, "Budget", "Anna", {}}}, {}};
    expectStoredAs(
        SummaryArtifact{1, "ab", date, summary, SummaryInstructions{"a/b", "c"}},
        R"({"version":1,"transcriptFingerprint":"ab","createdAt":721692800.25,"summary":{"overview":[],)"
        R"("decisions":[],"tasks":[{"text":"Tun","sourceSegmentIDs":["#0"],"quote":"Budget",)"
        R"("owner":"Anna"}],"openQuestions":[]},"instructions":{"basePrompt":"a\/b","meetingPrompt":"c"}})");
    expectStoredAs(SpeechConfiguration{SpeechModel::nemotron, "de-DE", {" Quartal "}, 2.1F},
                   R"({"model":"nemotron","language":"de-DE","phrases":[" Quartal "],"boost":2.1})");
    expectStoredAs(RecordingClock{date, "Europe/Berlin"},
                   R"({"startedAt":721692800.25,"timeZoneIdentifier":"Europe\/Berlin"})");
    EXPECT_THAT(json::encode(TranscriptionWindow{UUID(), meeting, {chunk(1, 0)}}),
                HasSubstr(R"(","source":"meeting","chunks":[{"schemaVersion":1,)"));
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
}

}  // namespace
}  // namespace meetingcore::testing
