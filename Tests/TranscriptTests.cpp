#include <cmath>
#include <fstream>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Transcript/DiarizationCursor.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/Failure.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::failureOf;
using ::testing::HasSubstr;

constexpr auto microphone = AudioSource::microphone;
constexpr auto meeting = AudioSource::meeting;

TranscriptSegment segment(double start, double end, AudioSource source = meeting,
                          const std::string& text = "Ja.") {
    return {UUID::random(), start, end, source, {}, text};
}

AudioChunk chunk(double startSeconds, double seconds = 60, AudioSource source = meeting) {
    AudioChunk chunk;
    chunk.id = UUID::random();
    chunk.source = source;
    chunk.startSeconds = startSeconds;
    chunk.sampleCount = std::llround(seconds * 16'000);
    return chunk;
}

TEST(WorkerContracts, LeaveAbsentOptionalsOut) {
    const TranscriptSegment plain{UUID(), 0, 4.5, microphone, {}, "Guten Morgen"};
    const std::string text =
        R"({"id":"00000000-0000-0000-0000-000000000000","startSeconds":0,"endSeconds":4.5,"source":"microphone",)"
        R"("text":"Guten Morgen"})";
    EXPECT_EQ(json::encode(plain), text);
    EXPECT_EQ(json::decode<TranscriptSegment>(text, "x"), plain);
    const SpeakerTurn turn{"2", {}, 1, 2};
    EXPECT_EQ(json::encode(turn), R"({"speakerID":"2","startSeconds":1,"endSeconds":2})");
    EXPECT_EQ(json::decode<SpeakerTurn>(json::encode(turn), "x"), turn);
    const MeetingSummary summary{"Kurz", {}, {{"Tun", {UUID()}, "Anna", {}}}, {}};
    EXPECT_EQ(json::decode<MeetingSummary>(json::encode(summary), "x"), summary);
    EXPECT_THAT(json::encode(summary), HasSubstr(R"("owner":"Anna"})"));
}

TEST(SpeechResult, MustFitItsWindow) {
    // From 10 s to 130 s, with a last chunk that ends earlier than 60 s after its start.
    const TranscriptionWindow window{UUID::random(), meeting, {chunk(10), chunk(70, 60)}};
    using Change = void (*)(SpeechResult&);
    const std::vector<std::pair<Change, bool>> cases = {
        {[](SpeechResult&) {}, true},
        {[](SpeechResult& r) { r.segments.clear(); }, true},
        {[](SpeechResult& r) { r.version = 7; }, true},
        {[](SpeechResult& r) { r.windowID += "x"; }, false},
        {[](SpeechResult& r) { r.segments.push_back(r.segments.front()); }, false},
        {[](SpeechResult& r) { r.segments.front().source = microphone; }, false},
        {[](SpeechResult& r) { r.segments.front().text = ""; }, false},
        {[](SpeechResult& r) { r.segments.front().text = " "; }, true},
        {[](SpeechResult& r) { r.segments.front().startSeconds = 10 - 0.1; }, true},
        {[](SpeechResult& r) { r.segments.front().startSeconds = 9.89; }, false},
        {[](SpeechResult& r) { r.segments.front().endSeconds = 130.5; }, true},
        {[](SpeechResult& r) { r.segments.front().endSeconds = 130.5001; }, false},
        {[](SpeechResult& r) { r.segments.front().endSeconds = r.segments.front().startSeconds; }, true},
        {[](SpeechResult& r) { r.segments.front().endSeconds = 19.9; }, false},
        {[](SpeechResult& r) { r.segments.front().startSeconds = std::nan(""); }, false},
        {[](SpeechResult& r) { r.segments.front().endSeconds = HUGE_VAL; }, false},
        {[](SpeechResult& r) {
             r.words.assign(20'000, {"w", -1e9, std::nan("")});
         },
         true},
        {[](SpeechResult& r) { r.words.resize(20'001); }, false},
        {[](SpeechResult& r) {
             while (r.segments.size() < 20'000) r.segments.push_back(segment(20, 21));
         },
         true},
        {[](SpeechResult& r) {
             while (r.segments.size() < 20'001) r.segments.push_back(segment(20, 21));
         },
         false},
        {[](SpeechResult& r) {
             r.segments.front().text.clear();
             for (int i = 0; i < 20'000; ++i) r.segments.front().text += "e\u0301";
         },
         true},
        {[](SpeechResult& r) { r.segments.front().text.assign(20'001, 'x'); }, false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SpeechResult result{1, window.id(), {segment(20, 21), segment(20, 21)}, {}};
        cases[i].first(result);
        EXPECT_EQ(failureOf([&] { result.validate(window); }),
                  cases[i].second ? "no failure" : "Ungültige Zeitmarken oder Textsegmente vom Sprachmodell.")
            << "case " << i;
    }
}

TEST(DiarizationCursor, FillsGapsAndCutsOverlaps) {
    using Input = DiarizationCursor::Input;
    DiarizationCursor cursor{meeting, 60, {}};
    const std::vector<std::pair<double, std::optional<Input>>> cases = {
        {60, Input{0, 0}},
        {59.95, Input{0, 800}},
        {59.94, {}},
        {60.5, Input{8000, 0}},
        {60.00003, Input{0, 0}},
        {60.00004, Input{1, 0}},
        {86'400, Input{(86'400 - 60) * 16'000, 0}},
        {86'400.001, {}},
        {0, {}}};
    for (const auto& [start, input] : cases) {
        if (input) {
            EXPECT_EQ(cursor.input(chunk(start)), input) << start;
        } else {
            EXPECT_EQ(failureOf([&, at = start] { cursor.input(chunk(at)); }),
                      "Ungültige Diarisierungszeitachse.");
        }
    }
    EXPECT_EQ(cursor.position, 60);
    EXPECT_TRUE(cursor.fedIDs.empty());
}

TEST(DiarizationCursor, FeedsEveryChunkOnceAndChecksInItsOrder) {
    DiarizationCursor cursor{meeting, 0, {}};
    const auto first = chunk(0);
    cursor.commit(first);
    EXPECT_EQ(cursor.position, 60);
    EXPECT_EQ(cursor.input(first), std::nullopt);
    const auto earlier = chunk(10, 20);
    cursor.commit(earlier);
    EXPECT_EQ(cursor.position, 60);
    EXPECT_EQ(cursor.input(earlier), std::nullopt);  // before its place on the timeline is looked at

    auto invalid = first;
    invalid.source = microphone;
    EXPECT_EQ(failureOf([&] { cursor.input(invalid); }), "Falsche Tonspur für Sprechererkennung.");
    invalid.sampleCount = 0;
    EXPECT_EQ(failureOf([&] { cursor.input(invalid); }), "Ungültige Audioabschnitt-Metadaten.");
}

DiarizationResult diarization(std::vector<SpeakerTurn> turns, std::int64_t version = 2) {
    return {version, UUID::random(), UUID::random(), true, std::move(turns)};
}

TEST(TranscriptDocument, AssignsASegmentToTheOneTurnAtItsMidpoint) {
    const auto turns = diarization({{"1", {}, 0, 10},
                                    {"2", meeting, 10, 20},
                                    {"3", meeting, 15, 30},
                                    {"mic:1", microphone, 0, 100},
                                    {"4", {}, 40, 40},
                                    {"5", {}, 50, 60},
                                    {"5", {}, 50, 60}});
    const std::vector<std::tuple<double, double, AudioSource, std::string>> cases = {
        {0, 10, meeting, "1"},        {9, 11, meeting, "2"},  // the end belongs to the next turn
        {-1, 1, meeting, "1"},        {12, 18, meeting, ""},  // covered by two, at 15
        {10, 19.9, meeting, "2"},     {0, 59, meeting, "3"},        {20, 40, meeting, ""},
        {40, 40, meeting, ""},        {50, 52, meeting, ""},  // two turns of one speaker are two turns
        {-3, 1, meeting, ""},         {0, 10, microphone, "mic:1"}, {99, 101, microphone, ""},
        {1e308, 1.7e308, meeting, ""}};
    for (const auto& [start, end, source, speaker] : cases) {
        auto raw = segment(start, end, source);
        raw.speakerID = "carried along";
        auto expected = raw;
        expected.speakerID = speaker.empty() ? std::nullopt : std::optional(speaker);
        EXPECT_THAT(TranscriptDocument::merge(std::vector{raw}, turns, {}), ElementsAre(expected)) << start;
        expected.speakerID = {};
        EXPECT_THAT(TranscriptDocument::merge(std::vector{raw}, {}, {}), ElementsAre(expected));
    }
}

TEST(TranscriptDocument, AssignsAsTheNaiveWayOnRandomTurns) {
    std::mt19937 random(5);
    // Times on a coarse grid, so that equal boundaries are the rule.
    const auto time = [&] { return static_cast<double>(random() % 40) / 2; };
    for (int round = 0; round < 300; ++round) {
        std::vector<SpeakerTurn> turns;
        for (auto count = random() % 12; count > 0; --count) {
            std::optional<AudioSource> source;
            if (random() % 3 != 0) source = random() % 2 == 0 ? meeting : microphone;
            turns.push_back({std::to_string(turns.size()), source, time(), time()});
        }
        std::vector<TranscriptSegment> raw;
        for (int i = 0; i < 40; ++i) raw.push_back(segment(time(), time(), i % 2 == 0 ? meeting : microphone));
        const auto merged = TranscriptDocument::merge(raw, diarization(turns), {});
        for (std::size_t i = 0; i < raw.size(); ++i) {
            const double midpoint = (raw[i].startSeconds + raw[i].endSeconds) * 0.5;
            std::vector<std::string> speakers;
            for (const auto& turn : turns) {
                const bool matches = turn.source.value_or(meeting) == raw[i].source &&
                                     turn.startSeconds <= midpoint && midpoint < turn.endSeconds;
                if (matches) speakers.push_back(turn.speakerID);
            }
            ASSERT_EQ(merged[i].speakerID, speakers.size() == 1 ? std::optional(speakers[0]) : std::nullopt);
        }
    }
}

TEST(TranscriptDocument, AppliesCorrectionsUnderUpperCaseIdsOnly) {
    auto raw = segment(0, 1);
    raw.id = UUID::parse("AAAAAAAA-0000-4000-8000-00000000000B").value();
    TranscriptEdits edits;
    edits.correctedText = {{"AAAAAAAA-0000-4000-8000-00000000000B", ""}};
    EXPECT_EQ(TranscriptDocument::merge(std::vector{raw}, {}, edits).at(0).text, "");
    edits.correctedText = {{"aaaaaaaa-0000-4000-8000-00000000000b", "falsch"}};
    EXPECT_EQ(TranscriptDocument::merge(std::vector{raw}, {}, edits).at(0), raw);
}

TEST(TranscriptDocument, LabelsSpeakers) {
    TranscriptDocument document;
    auto heard = segment(0, 1, meeting);
    auto own = segment(0, 1, microphone);
    EXPECT_EQ(document.speakerLabel(heard), "Meeting-Ton");
    EXPECT_EQ(document.speakerLabel(own), "Ich · Mikrofon");
    document.diarization = diarization({}, 1);
    EXPECT_EQ(document.speakerLabel(own), "Ich · Mikrofon");
    document.diarization->version = 2;
    EXPECT_EQ(document.speakerLabel(own), "Mikrofon · unklar");
    document.diarization = {};
    document.requiresMicrophoneDiarization = true;
    EXPECT_EQ(document.speakerLabel(own), "Mikrofon · unklar");
    EXPECT_EQ(document.speakerLabel(heard), "Meeting-Ton");

    heard.speakerID = "1";
    own.speakerID = "mic:1";
    document.edits.speakerNames = {{"1", "Anna"}};
    EXPECT_EQ(document.speakerLabel(heard), "Sprecher 1");
    document.diarization = diarization({});
    EXPECT_EQ(document.speakerLabel(heard), "Sprecher 1");
    document.edits.speakerGeneration = document.diarization->generation;
    EXPECT_EQ(document.speakerLabel(heard), "Anna");
    EXPECT_EQ(document.speakerLabel(own), "Sprecher 1 · Mikrofon");
    document.diarization->generation = UUID::random();
    EXPECT_EQ(document.speakerLabel(heard), "Sprecher 1");
    document.diarization = {};
    EXPECT_EQ(document.speakerLabel(heard), "Sprecher 1");
}

TEST(TranscriptDocument, LabelsSpeakersWithoutANameByTheirId) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"mic:2", "Sprecher 2 · Mikrofon"},
        {"mic:+2", "Sprecher 2 · Mikrofon"},
        {"mic:-2", "Sprecher -2 · Mikrofon"},
        {"mic:02", "Sprecher 2 · Mikrofon"},
        {"mic:", "Sprecher mic:"},
        {"mic: 2", "Sprecher mic: 2"},
        {"mic:2 ", "Sprecher mic:2 "},
        {"mic:+", "Sprecher mic:+"},
        {"mic:+-2", "Sprecher mic:+-2"},
        {"mic:-+2", "Sprecher mic:-+2"},
        {"mic:2a", "Sprecher mic:2a"},
        {"mic:99999999999999999999", "Sprecher mic:99999999999999999999"},
        {"Mic:2", "Sprecher Mic:2"},
        {"3", "Sprecher 3"},
    };
    for (const auto& [id, label] : cases) EXPECT_EQ(TranscriptDocument::defaultSpeakerLabel(id), label);
}

TEST(TranscriptDocument, KnowsWhenSpeakerAssignmentIsPending) {
    struct Case {
        std::string diarization;  ///< its version, "" for none; "…" where not finished
        bool required;
        std::optional<AudioSource> raw;
        bool pending;
        bool microphoneDiarized;
    };
    const std::vector<Case> cases = {
        {"", false, {}, false, false},         {"", false, microphone, false, false},
        {"", false, meeting, true, false},     {"", true, {}, true, true},
        {"", true, microphone, true, true},    {"1", false, meeting, false, false},
        {"1", true, microphone, true, true},   {"2", true, meeting, false, true},
        {"2", false, microphone, false, true}, {"1…", false, {}, true, false},
        {"2…", true, meeting, true, true},
    };
    for (const auto& [kind, required, raw, pending, diarized] : cases) {
        TranscriptDocument document;
        document.requiresMicrophoneDiarization = required;
        if (raw) document.rawSegments = {segment(0, 1, *raw)};
        if (!kind.empty()) document.diarization = diarization({}, kind.front() - '0');
        if (kind.size() > 1) document.diarization->finished = false;
        EXPECT_EQ(document.diarizationPending(), pending) << kind << required;
        EXPECT_EQ(document.microphoneDiarized(), diarized) << kind << required;
    }
}

class TranscriptStorageTest : public ::testing::Test {
protected:
    TranscriptStorageTest() { fs::create_directories(meetingFolder()); }

    fs::path root() const { return folder_.path(); }
    fs::path meetingFolder() const { return root() / "Meetings" / session_.string(); }

    void addResult(const std::string& result) {
        const auto id = "job " + std::to_string(store_.jobCount());
        store_.enqueue({id, session_, "transcribe", "{}"});
        store_.finish(store_.claimNext(Date::now(), 60).value(), result, Date::now());
    }

    void addResult(const std::vector<TranscriptSegment>& segments, std::int64_t version = 1) {
        addResult(json::encode(SpeechResult{version, "w", segments, {}}));
    }

    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(meetingFolder() / name, std::ios::binary) << bytes;
    }

    TranscriptDocument load() { return TranscriptStorage::load(session_, root(), store_); }
    std::string loadFailure() {
        return failureOf([&] { load(); });
    }

    testing::TemporaryFolder folder_;
    UUID session_ = UUID::random();
    SQLiteJobStore store_{folder_.path() / "quillmoot.sqlite"};
};

TEST_F(TranscriptStorageTest, LoadsAnEmptyDocumentWhereThereIsNothing) {
    fs::remove(meetingFolder());
    const auto document = load();
    EXPECT_TRUE(document.segments.empty() && document.rawSegments.empty());
    EXPECT_FALSE(document.diarization || document.requiresMicrophoneDiarization);
    EXPECT_EQ(document.edits, TranscriptEdits{});
}

TEST_F(TranscriptStorageTest, MergesResultsTurnsAndCorrections) {
    const auto a = segment(5, 6, meeting, "a");
    const auto b = segment(0, 1, microphone, "b");
    const auto c = segment(5, 9, meeting, "c");
    const auto d = segment(5, 7, meeting, "d");
    addResult({c, a});
    addResult({d, b}, 2);
    auto turns = diarization({{"1", meeting, 5, 6}, {"2", {}, 7, 7}});
    turns.sessionID = session_;
    TranscriptStorage::save(turns, meetingFolder() / "diarization.json");
    TranscriptEdits edits;
    edits.correctedText = {{a.id.string(), "berichtigt"}};
    TranscriptStorage::save(edits, meetingFolder() / "transcript-edits.json");
    EXPECT_EQ(fs::status(meetingFolder() / "diarization.json").permissions(), fs::perms(0600));

    const auto document = load();
    EXPECT_THAT(document.rawSegments, ElementsAre(b, c, a, d));
    EXPECT_TRUE(document.requiresMicrophoneDiarization);
    EXPECT_EQ(document.diarization, turns);
    EXPECT_EQ(document.edits, edits);
    auto corrected = a;
    corrected.text = "berichtigt";
    corrected.speakerID = "1";
    EXPECT_THAT(document.segments, ElementsAre(b, c, corrected, d));
}

TEST_F(TranscriptStorageTest, RefusesResultsThatDoNotFit) {
    const auto twice = segment(0, 1);
    addResult({twice});
    addResult({segment(1, 2), twice});
    EXPECT_EQ(loadFailure(), "Doppelte Transkriptsegmente.");
    addResult({}, 3);
    EXPECT_EQ(loadFailure(), "Unbekannte Transkriptversion.");
    store_.forgetSession(session_);
    addResult({}, 0);
    EXPECT_EQ(loadFailure(), "Unbekannte Transkriptversion.");
    store_.forgetSession(session_);
    addResult("[]");
    EXPECT_EQ(loadFailure(), "Das Ergebnis eines Transkriptionsauftrags enthält einen unzulässigen Wert.");
}

TEST_F(TranscriptStorageTest, RefusesADiarizationThatDoesNotFit) {
    using Change = void (*)(DiarizationResult&);
    const std::string foreign = "Falsche Diarisierungssitzung.";
    const std::string times = "Ungültige Sprecherzeitmarken.";
    const std::vector<std::pair<Change, std::string>> cases = {
        {[](DiarizationResult&) {}, "no failure"},
        {[](DiarizationResult& d) {
             d.turns = {{"1", {}, 3, 3}};
         },
         "no failure"},
        {[](DiarizationResult& d) { d.sessionID = d.generation; }, foreign},
        {[](DiarizationResult& d) { d.version = 0; }, foreign},
        {[](DiarizationResult& d) {
             d.version = 3;
             d.turns.front().speakerID = "";
         },
         foreign},
        {[](DiarizationResult& d) { d.turns.front().speakerID = ""; }, times},
        {[](DiarizationResult& d) { d.turns.front().startSeconds = -0.1; }, times},
        {[](DiarizationResult& d) { d.turns.front().endSeconds = 0.5; }, times},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        auto changed = diarization({{"1", {}, 1, 2}}, 1);
        changed.sessionID = session_;
        cases[i].first(changed);
        TranscriptStorage::save(changed, meetingFolder() / "diarization.json");
        EXPECT_EQ(loadFailure(), cases[i].second) << "case " << i;
    }
    write("diarization.json", R"({"version":1,"sessionID":")" + session_.string() + R"("})");
    EXPECT_EQ(loadFailure(), "„diarization.json“ ist unvollständig: Das Feld „generation“ fehlt.");
    fs::remove(meetingFolder() / "diarization.json");
    write("transcript-edits.json", "");
    EXPECT_EQ(loadFailure(), "„transcript-edits.json“ ist kein gültiges JSON.");
}

TEST_F(TranscriptStorageTest, ReadsFilesOfUpTo64MiB) {
    constexpr std::size_t limit = 67'108'864;
    std::string edits = R"({"correctedText":{},"speakerNames":{}})";
    edits.resize(limit, ' ');
    write("transcript-edits.json", edits);
    EXPECT_EQ(loadFailure(), "no failure");
    edits.push_back(' ');
    write("transcript-edits.json", edits);
    EXPECT_EQ(loadFailure(), "Ergebnisdatei ist zu groß.");
    write("diarization.json", edits);
    EXPECT_EQ(failureOf([&] { TranscriptStorage::hasUnfinishedDiarization(root()); }),
              "Ergebnisdatei ist zu groß.");
}

TEST_F(TranscriptStorageTest, FindsAnUnfinishedDiarization) {
    fs::remove_all(root() / "Meetings");
    EXPECT_FALSE(TranscriptStorage::hasUnfinishedDiarization(root()));
    fs::create_directories(meetingFolder());
    fs::create_directories(root() / "Meetings" / "leer");
    std::ofstream(root() / "Meetings" / "Notiz.txt") << "kein Ordner";
    auto state = diarization({});
    TranscriptStorage::save(state, meetingFolder() / "diarization.json");
    EXPECT_FALSE(TranscriptStorage::hasUnfinishedDiarization(root()));
    state.finished = false;
    TranscriptStorage::save(state, meetingFolder() / "diarization.json");
    EXPECT_TRUE(TranscriptStorage::hasUnfinishedDiarization(root()));
}

}  // namespace
}  // namespace meetingcore
