#include <cmath>
#include <random>

#include "MeetingCore/Recording/SQLiteConnection.h"
#include "MeetingCore/Transcript/DiarizationCursor.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

constexpr auto microphone = AudioSource::microphone;
constexpr auto meeting = AudioSource::meeting;

TranscriptSegment segment(double start, double end, AudioSource source = meeting,
                          const std::string& text = "Ja.") {
    return {UUID::random(), start, end, source, {}, text};
}

AudioChunk chunk(double start, std::int64_t seconds = 60) {
    return testChunk({}, 0, start, seconds * 16'000, meeting);
}

DiarizationResult diarization(std::vector<SpeakerTurn> turns, std::int64_t version = 2) {
    return {version, UUID::random(), UUID::random(), true, std::move(turns)};
}

TEST(SpeechResult, MustFitItsWindow) {
    const TranscriptionWindow window{UUID::random(), meeting, {chunk(10), chunk(70)}};  // until 130 s
    const auto failure = [&](const std::function<void(SpeechResult&, TranscriptSegment & first)>& change) {
        SpeechResult result{1, window.id(), {segment(20, 21), segment(20, 21)}, {}};
        change(result, result.segments.front());
        return failureOf([&] { result.validate(window); });
    };
    const std::string valid = noFailure;
    const std::string invalid = "Ungültige Zeitmarken oder Textsegmente vom Sprachmodell.";
    const std::tuple<double, double, std::string> times[] = {
        {9.9, 130.5, valid}, {20, 20, valid},    {9.89, 20, invalid},    {20, 130.5001, invalid},
        {20, 19.9, invalid}, {NAN, 20, invalid}, {20, HUGE_VAL, invalid}};
    for (const auto& [start, end, expected] : times) {
        EXPECT_EQ(failure([&, &from = start, &to = end](auto&, auto& first) {
                      first.startSeconds = from;
                      first.endSeconds = to;
                  }),
                  expected)
            << start << " " << end;
    }
    auto text = repeated("e\u0301", 20'000);
    for (const std::size_t count : {20'000U, 20'001U}) {
        const auto& expected = count == 20'000U ? valid : invalid;
        EXPECT_EQ(failure([&](auto&, auto& first) { first.text = text; }), expected);
        EXPECT_EQ(failure([&](auto& r, auto&) { r.words.assign(count, {"w", -1e9, NAN}); }), expected);
        EXPECT_EQ(failure([&](auto& r, auto&) {
                      while (r.segments.size() < count) r.segments.push_back(segment(20, 21));
                  }),
                  expected);
        text += "x";
    }
    EXPECT_EQ(failure([](auto& r, auto&) { r.segments.clear(), r.version = 7; }), valid);
    EXPECT_EQ(failure([](auto&, auto& first) { first.text = " "; }), valid);
    EXPECT_EQ(failure([](auto&, auto& first) { first.text = ""; }), invalid);
    EXPECT_EQ(failure([](auto&, auto& first) { first.source = microphone; }), invalid);
    EXPECT_EQ(failure([](auto& r, auto& first) { r.segments[1] = first; }), invalid);
    EXPECT_EQ(failure([](auto& r, auto&) { r.windowID += "x"; }), invalid);
}

TEST(DiarizationCursor, FillsGapsAndCutsOverlaps) {
    using Input = DiarizationCursor::Input;
    const DiarizationCursor cursor{meeting, 60, {}};
    const std::pair<double, Input> cases[] = {{60, {0, 0}},       {59.95, {0, 800}},
                                              {60.5, {8000, 0}},  {60.00003, {0, 0}},
                                              {60.00004, {1, 0}}, {86'400, {1'381'440'000, 0}}};
    for (const auto& [start, input] : cases) EXPECT_EQ(cursor.input(chunk(start)), input) << start;
    for (const double start : {59.94, 86'400.001, 0.0})
        EXPECT_EQ(failureOf([&] { cursor.input(chunk(start)); }), "Ungültige Diarisierungszeitachse.");
}

TEST(DiarizationCursor, FeedsEveryChunkOnceAndChecksInItsOrder) {
    DiarizationCursor cursor{meeting, 0, {}};
    auto first = chunk(0);
    for (const auto& fed : {first, chunk(10, 20)}) {
        cursor.commit(fed);
        EXPECT_EQ(cursor.position, 60);
        EXPECT_EQ(cursor.input(fed), std::nullopt);  // before its place on the timeline is looked at
    }
    first.source = microphone;
    EXPECT_EQ(failureOf([&] { cursor.input(first); }), "Falsche Tonspur für Sprechererkennung.");
    first.sampleCount = 0;
    EXPECT_EQ(failureOf([&] { cursor.input(first); }), "Ungültige Audioabschnitt-Metadaten.");
}

/// The speaker of the only turn that covers the segment's midpoint, found by looking at all of them.
std::optional<std::string> onlySpeaker(const TranscriptSegment& segment,
                                       const std::vector<SpeakerTurn>& turns) {
    const double midpoint = segment.startSeconds / 2 + segment.endSeconds / 2;
    std::vector<std::string> speakers;
    for (const auto& turn : turns) {
        const bool matches = turn.source.value_or(meeting) == segment.source && turn.startSeconds <= midpoint &&
                             midpoint < turn.endSeconds;
        if (matches) speakers.push_back(turn.speakerID);
    }
    return speakers.size() == 1 ? std::optional(speakers[0]) : std::nullopt;
}

TEST(TranscriptDocument, AssignsASegmentToTheOneTurnAtItsMidpoint) {
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
        std::vector<TranscriptSegment> raw{segment(1e308, 1.7e308), segment(-3, 1)};
        for (int i = 0; i < 40; ++i) raw.push_back(segment(time(), time(), i % 2 == 0 ? meeting : microphone));
        for (auto& carrying : raw) carrying.speakerID = "carried along";
        const auto merged = TranscriptDocument::merge(raw, diarization(turns), {});
        const auto alone = TranscriptDocument::merge(raw, {}, {});
        for (std::size_t i = 0; i < raw.size(); ++i) {
            ASSERT_EQ(merged[i].speakerID, onlySpeaker(raw[i], turns));
            ASSERT_EQ(alone[i].speakerID, std::nullopt);
        }
    }
}

TEST(TranscriptDocument, AppliesCorrectionsUnderUpperCaseIdsOnly) {
    auto raw = segment(0, 1);
    raw.id = UUID::parse("AAAAAAAA-0000-4000-8000-00000000000B").value();
    TranscriptEdits edits;
    edits.correctedText = {{"aaaaaaaa-0000-4000-8000-00000000000b", "falsch"}};
    EXPECT_THAT(TranscriptDocument::merge(std::vector{raw}, {}, edits), ElementsAre(raw));
    edits.correctedText["AAAAAAAA-0000-4000-8000-00000000000B"] = "";
    EXPECT_EQ(TranscriptDocument::merge(std::vector{raw}, {}, edits).at(0).text, "");
}

TEST(TranscriptDocument, LabelsSpeakers) {
    TranscriptDocument document;
    auto heard = segment(0, 1, meeting), own = segment(0, 1, microphone);
    const auto labels = [&] { return document.speakerLabel(heard) + "|" + document.speakerLabel(own); };
    EXPECT_EQ(labels(), "Meeting-Ton|Ich · Mikrofon");
    document.diarization = diarization({}, 1);
    EXPECT_EQ(labels(), "Meeting-Ton|Ich · Mikrofon");
    document.diarization->version = 2;
    EXPECT_EQ(labels(), "Meeting-Ton|Mikrofon · unklar");
    document.diarization = {};
    document.requiresMicrophoneDiarization = true;
    EXPECT_EQ(labels(), "Meeting-Ton|Mikrofon · unklar");
    heard.speakerID = "1";
    own.speakerID = "mic:1";
    document.edits.speakerNames = {{"1", "Anna"}};
    const std::string unnamed = "Sprecher 1|Sprecher 1 · Mikrofon";
    EXPECT_EQ(labels(), unnamed);
    document.diarization = diarization({});
    EXPECT_EQ(labels(), unnamed);
    document.edits.speakerGeneration = document.diarization->generation;
    EXPECT_EQ(labels(), "Anna|Sprecher 1 · Mikrofon");
    document.diarization->generation = UUID::random();
    EXPECT_EQ(labels(), unnamed);
    for (const auto& id : split("mic:2|mic:+2|mic:02"))
        EXPECT_EQ(TranscriptDocument::defaultSpeakerLabel(id), "Sprecher 2 · Mikrofon");
    EXPECT_EQ(TranscriptDocument::defaultSpeakerLabel("mic:-2"), "Sprecher -2 · Mikrofon");
    for (const auto& id :
         split("mic:|mic: 2|mic:2 |mic:+|mic:+-2|mic:-+2|mic:2a|mic:99999999999999999999|Mic:2|3"))
        EXPECT_EQ(TranscriptDocument::defaultSpeakerLabel(id), "Sprecher " + id);
}

TEST(TranscriptDocument, KnowsWhenSpeakerAssignmentIsPending) {
    // The diarization's version (0 for none, negative where it is not finished), whether one of the microphone
    // is required, whose segments there are; and whether speakers are pending, and the microphone's are told
    // apart.
    using Case = std::tuple<int, bool, std::optional<AudioSource>, bool, bool>;
    // clang-format off
    const Case cases[] = {
        {0, false, {}, false, false},      {0, false, microphone, false, false}, {0, false, meeting, true, false},
        {0, true, {}, true, true},         {0, true, microphone, true, true},    {1, false, meeting, false, false},
        {1, true, microphone, true, true}, {2, true, meeting, false, true},      {2, false, microphone, false, true},
        {-1, false, {}, true, false},      {-2, true, meeting, true, true}};
    // clang-format on
    for (const auto& [version, required, raw, pending, diarized] : cases) {
        TranscriptDocument document;
        document.requiresMicrophoneDiarization = required;
        if (raw) document.rawSegments = {segment(0, 1, *raw)};
        if (version != 0) document.diarization = diarization({}, std::abs(version));
        if (version < 0) document.diarization->finished = false;
        EXPECT_EQ(document.diarizationPending(), pending) << version << required;
        EXPECT_EQ(document.microphoneDiarized(), diarized) << version << required;
    }
}

class TranscriptStorageTest : public ::testing::Test, protected MeetingFolder {
protected:
    using MeetingFolder::addResult;
    void addResult(const std::vector<TranscriptSegment>& segments, std::int64_t version = 1) {
        addResult(json::encode(SpeechResult{version, "w", segments, {}}));
    }
    std::string loadFailure() {
        return failureOf([&] { load(); });
    }
    bool hasUnfinished() const { return TranscriptStorage::hasUnfinishedDiarization(root.path()); }
};

TEST_F(TranscriptStorageTest, MergesResultsTurnsAndCorrections) {
    EXPECT_TRUE(load().segments.empty() && !load().diarization && load().edits == TranscriptEdits{});
    const auto a = segment(5, 6, meeting, "a"), b = segment(0, 1, microphone, "b");
    const auto c = segment(5, 9, meeting, "c"), d = segment(5, 7, meeting, "d");
    addResult({c, a});
    EXPECT_FALSE(load().requiresMicrophoneDiarization);
    addResult({d, b}, 2);
    auto turns = diarization({{"1", meeting, 5, 6}, {"2", {}, 7, 7}});
    turns.sessionID = session;
    TranscriptStorage::save(turns, turnsFile);
    TranscriptEdits edits;
    edits.correctedText = {{a.id.string(), "berichtigt"}};
    TranscriptStorage::save(edits, editsFile);
    const auto document = load();
    EXPECT_THAT(document.rawSegments, ElementsAre(b, c, a, d));
    EXPECT_TRUE(document.requiresMicrophoneDiarization);
    EXPECT_EQ(document.diarization, turns);
    EXPECT_EQ(document.edits, edits);
    auto corrected = a;
    corrected.text = "berichtigt";
    corrected.speakerID = "1";
    EXPECT_THAT(document.segments, ElementsAre(b, c, corrected, d));

    // Another program may have enqueued them in another order than the rows have.
    SQLiteConnection(root.path() / "quillmoot.sqlite")
        .execute("UPDATE jobs SET created_at=1 WHERE id='window 1'");
    EXPECT_THAT(load().rawSegments, ElementsAre(b, d, c, a));
}

TEST_F(TranscriptStorageTest, RefusesResultsThatDoNotFit) {
    const auto twice = segment(0, 1);
    addResult({twice});
    addResult({segment(1, 2), twice});
    EXPECT_EQ(loadFailure(), "Doppelte Transkriptsegmente.");
    for (const auto version : {3, 0}) {
        addResult({}, version);
        EXPECT_EQ(loadFailure(), "Unbekannte Transkriptversion.");
        database.forgetSession(session);
    }
    addResult("[]");
    EXPECT_EQ(loadFailure(), "Das Ergebnis eines Transkriptionsauftrags enthält einen unzulässigen Wert.");
}

TEST_F(TranscriptStorageTest, RefusesADiarizationThatDoesNotFit) {
    using Change = void (*)(DiarizationResult&, SpeakerTurn&);
    const std::string foreign = "Falsche Diarisierungssitzung.", times = "Ungültige Sprecherzeitmarken.";
    const std::pair<Change, std::string> cases[] = {
        {[](auto&, auto& turn) { turn.endSeconds = 1; }, noFailure},
        {[](auto& d, auto&) { d.sessionID = d.generation; }, foreign},
        {[](auto& d, auto&) { d.version = 0; }, foreign},
        {[](auto& d, auto& turn) { d.version = 3, turn.speakerID = ""; }, foreign},
        {[](auto&, auto& turn) { turn.speakerID = ""; }, times},
        {[](auto&, auto& turn) { turn.startSeconds = -0.1; }, times},
        {[](auto&, auto& turn) { turn.endSeconds = 0.5; }, times}};
    for (const auto& [change, failure] : cases) {
        auto changed = diarization({{"1", {}, 1, 2}}, 1);
        changed.sessionID = session;
        change(changed, changed.turns.front());
        TranscriptStorage::save(changed, turnsFile);
        EXPECT_EQ(loadFailure(), failure);
    }
    writeFile(turnsFile, R"({"version":1,"sessionID":")" + session.string() + R"("})");
    EXPECT_EQ(loadFailure(), "„diarization.json“ ist unvollständig: Das Feld „generation“ fehlt.");
}

TEST_F(TranscriptStorageTest, ReadsFilesOfUpTo64MiB) {
    std::string edits = R"({"correctedText":{},"speakerNames":{}})";
    edits.resize(67'108'864, ' ');
    writeFile(editsFile, edits);
    EXPECT_EQ(loadFailure(), noFailure);
    for (const auto& file : {editsFile, turnsFile}) writeFile(file, edits + ' ');
    for (const auto& failure : {loadFailure(), failureOf([&] { hasUnfinished(); })})
        EXPECT_EQ(failure, "Ergebnisdatei ist zu groß.");
}

TEST_F(TranscriptStorageTest, FindsAnUnfinishedDiarization) {
    fs::remove_all(folder.parent_path());
    EXPECT_FALSE(hasUnfinished());
    for (const auto& path : {folder, folder.parent_path() / "leer"}) fs::create_directories(path);
    writeFile(folder.parent_path() / "Notiz.txt", "kein Ordner");
    auto state = diarization({});
    for (const bool finished : {true, false}) {
        state.finished = finished;
        TranscriptStorage::save(state, turnsFile);
        EXPECT_EQ(hasUnfinished(), !finished);
    }
}

}  // namespace
}  // namespace meetingcore::testing
