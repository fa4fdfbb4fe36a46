#include "MeetingCore/Library/SpeakerIntake.h"
#include "MeetingCore/Library/TranscriptIntake.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Transcript/TranscriptEditing.h"
#include "Support/CrashingFileManager.h"
#include "Support/TestMeeting.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

constexpr auto microphone = AudioSource::microphone;
constexpr auto meeting = AudioSource::meeting;
const Date noon = Date::since1970(1'700'000'000);
const auto atNoon = [] { return noon; };

/// A meeting whose tracks were recorded: 0–100 s and, after a gap, 110–120 s, in windows 0–60, 60–100 and
/// 110–120.
class IntakeTest : public ::testing::Test, protected MeetingFolder {
protected:
    IntakeTest() {
        for (const auto source : {microphone, meeting})
            for (const auto& [start, seconds] : {std::pair(0, 60), {60, 40}, {110, 10}})
                record(start, std::int64_t{seconds} * audio::sampleRate, source);
        WorkScheduler::enqueue(chunks, database, true);
    }

    std::vector<TranscriptionWindow> windows(AudioSource source) const {
        auto all = WorkScheduler::windows(chunks, true);
        std::erase_if(all, [&](const auto& window) { return window.source != source; });
        return all;
    }

    TranscriptIntake::Report take(AudioSource source, const CaptionFile& file,
                                  TranscriptIntake::Existing existing = TranscriptIntake::Existing::refuse) {
        return TranscriptIntake::take(session, source, file, root.path(), database, existing, atNoon);
    }

    SpeakerIntake::Report takeSpeakers(AudioSource source, const std::string& bytes,
                                       const std::optional<std::string>& recording = {}, bool replace = false) {
        const std::vector<SpeakerIntake::Selection> track{{source, recording}};
        const auto existing = replace ? SpeakerIntake::Existing::replace : SpeakerIntake::Existing::refuse;
        return SpeakerIntake::take(session, SpeakerTurnFile::parse(bytes, "a.rttm"), track, root.path(),
                                   database, existing)
            .front();
    }

    /// "Sprecher 1: Hallo" for each segment.
    std::vector<std::string> lines() {
        std::vector<std::string> lines;
        const auto document = load();
        for (const auto& segment : document.segments) {
            lines.push_back(document.speakerLabel(segment) + ": " + segment.text);
        }
        return lines;
    }
};

CaptionFile captions(std::vector<Caption> list) {
    CaptionFile file{"a.vtt", "Zeile", std::move(list)};
    for (std::size_t i = 0; i < file.captions.size(); ++i) file.captions[i].place = i + 1;
    return file;
}

Caption caption(double start, double end, const std::string& text = "x", std::vector<CaptionWord> words = {}) {
    return {start, end, text, std::nullopt, std::move(words), 0};
}

TEST_F(IntakeTest, GivesCaptionsToTheWindowsTheyFallInto) {
    const std::vector<CaptionWord> words = {
        {"drei", {}, {}}, {"alte", 57, 58}, {"7", {}, {}}, {"neue", 60.5, 62}};
    const std::pair<Caption, std::vector<std::string>> cases[] = {
        // and the segments: "window [start,end] text"
        {caption(0, 2), {"0 [0,2] x"}},
        {caption(59, 60.5), {"0 [59,60.5] x"}},    // as far as a result may reach
        {caption(59, 60.75), {"0 [59,60.5] x"}},   // further: cut
        {caption(59, 61), {"1 [59.9,61] x"}},      // the middle is the border
        {caption(60, 60), {"1 [60,60] x"}},        // starts belong to windows, ends do not
        {caption(40, 200), {"1 [59.9,100.5] x"}},  // most of it
        {caption(57, 62, "drei alte 7 neue", words), {"0 [57,58] drei alte 7", "1 [60.5,62] neue"}},
        {caption(57, 60.25, "drei alte 7 neue", words), {"0 [57,60.25] drei alte 7 neue"}},
        {caption(101, 101.5), {"1 [100.5,100.5] x"}},  // in the gap, but near
        {caption(120.5, 124), {"2 [120.5,120.5] x"}},
    };
    const auto track = windows(meeting);
    for (const auto& [given, expected] : cases) {
        std::vector<std::string> placed;
        const auto results = TranscriptIntake::assign(captions({given}), track);
        for (std::size_t i = 0; i < results.size(); ++i)
            for (const auto& [id, start, end, source, speaker, text] : results[i].segments)
                placed.push_back(std::to_string(i) + " " + json::encode(std::vector{start, end}) + " " + text);
        EXPECT_EQ(placed, expected) << given.startSeconds;
        EXPECT_EQ(results, TranscriptIntake::assign(captions({given}), track));
    }
    const auto failure = [&](const CaptionFile& file) {
        return failureOf([&] { TranscriptIntake::assign(file, track); });
    };
    EXPECT_EQ(failure(captions({caption(103, 105), caption(1, 2), caption(122, 123)})),
              "a.vtt, Zeile 1: Die Zeit liegt außerhalb der Aufnahme.\n"
              "a.vtt, Zeile 3: Die Zeit liegt außerhalb der Aufnahme.");
    EXPECT_EQ(
        failure(captions(std::vector<Caption>(20'003, caption(1, 2)))),
        "a.vtt, Zeile 20001: Bis hierher fallen mehr als 20.000 Untertitel oder Wörter in einen Abschnitt "
        "der Aufnahme.");
}

TEST_F(IntakeTest, FinishesTheTrackAndLeavesTheOtherAlone) {
    const auto file = captions({caption(61, 62, "zwei"), caption(1, 2, "eins"), caption(1, 2, "eins")});
    const auto report = take(meeting, file);
    EXPECT_EQ(report.windows, 3U);
    EXPECT_EQ(report.finished, 3U);
    EXPECT_EQ(report.segments, 3U);
    EXPECT_THAT(lines(), ElementsAre("Meeting-Ton: eins", "Meeting-Ton: eins", "Meeting-Ton: zwei"));
    EXPECT_FALSE(load().diarizationPending());
    for (const auto& window : windows(microphone))
        EXPECT_TRUE(database.claim(window.id(), noon, 1)) << window.id();
    EXPECT_EQ(take(meeting, file).finished, 0U);
}

TEST_F(IntakeTest, CompletesWhatWasInterruptedAndRefusesWhatDiffers) {
    const auto file = captions({caption(1, 2, "eins"), caption(61, 62, "zwei")});
    const auto track = windows(meeting);
    const auto results = TranscriptIntake::assign(file, track);
    const auto finish = [&](std::size_t i) {
        database.finish(database.claim(track[i].id(), noon, 1).value(), json::encode(results[i]), noon);
    };
    finish(0);
    const auto failed = database.claim(track[2].id(), noon, 1).value();
    database.fail(failed, "kaputt", noon);
    const auto foreign = database.claim(track[1].id(), noon, 60).value();
    const std::string busy = "Ein Auftrag ist noch belegt. Bitte nach Ablauf der Sperre erneut versuchen.";
    EXPECT_EQ(failureOf([&] { take(meeting, file); }, Kind::database), busy);
    EXPECT_EQ(database.jobStats(session).at("failed"), 1);  // nothing was touched
    database.renew(foreign, noon, 60);                      // the other worker keeps its lease
    database.fail(foreign, "Absturz", noon);
    EXPECT_EQ(take(meeting, file).finished, 2U);

    const auto changed = captions({caption(1, 2, "eins"), caption(61, 62, "neu")});
    const auto outside = captions({caption(1, 2, "neu"), caption(300, 301)});
    EXPECT_EQ(failureOf([&] { take(meeting, changed); }), "Diese Tonspur ist schon transkribiert.");
    EXPECT_THAT(failureOf([&] { take(meeting, outside, TranscriptIntake::Existing::replace); }),
                HasSubstr("Zeile 2"));
    EXPECT_THAT(lines(), ElementsAre("Meeting-Ton: eins", "Meeting-Ton: zwei"));
    const auto kept = load().segments[0].id;
    const auto corrected = load().segments[1].id;
    EXPECT_EQ(take(meeting, changed, TranscriptIntake::Existing::replace).finished, 1U);
    EXPECT_THAT(lines(), ElementsAre("Meeting-Ton: eins", "Meeting-Ton: neu"));
    EXPECT_EQ(load().segments[0].id, kept);
    EXPECT_NE(load().segments[1].id, corrected);  // a correction of the old text must not hit the new one
}

TEST(TranscriptIntake, KeepsTheWindowsOfItsJobsWhereAChunkIsLost) {
    MeetingFolder other;
    for (int i = 0; i < 6; ++i) other.record(20.0 * i, std::int64_t{20} * audio::sampleRate, meeting);
    const auto file = captions({caption(1, 2, "eins"), caption(30, 31, "zwei"), caption(90, 91, "drei")});
    for (const auto finished : {2U, 0U}) {
        const auto report = TranscriptIntake::take(other.session, meeting, file, other.root.path(),
                                                   other.database, TranscriptIntake::Existing::refuse, atNoon);
        EXPECT_EQ(report.windows, 2U);
        EXPECT_EQ(report.finished, finished);
        EXPECT_EQ(other.database.jobs(other.session).size(), 2U);
        EXPECT_EQ(other.load().segments.size(), 3U);
        fs::remove_all(other.folder / (other.chunks[1].id.string() + ".chunk"));
    }
}

bool isCutOff(const std::function<void()>& call) {
    try {
        call();
        return false;
    } catch (const PowerCut&) {
        return true;
    }
}

TEST_F(IntakeTest, CompletesTheTrackWhereverItWasStopped) {
    const auto file = captions({caption(1, 2, "eins"), caption(61, 62, "zwei"), caption(111, 112, "drei")});
    bool stopped = true;
    for (int last = 0; stopped; ++last) {
        int calls = 0;
        const auto takeWith = [&](const std::function<Date()>& clock) {
            TranscriptIntake::take(session, meeting, file, root.path(), database,
                                   TranscriptIntake::Existing::refuse, clock);
        };
        stopped = isCutOff([&] { takeWith([&] { return calls++ == last ? throw PowerCut{} : noon; }); });
        takeWith([] { return noon.advanced(10.5); });  // the lease of the stopped import has ended
        EXPECT_THAT(lines(), ElementsAre("Meeting-Ton: eins", "Meeting-Ton: zwei", "Meeting-Ton: drei"))
            << last;
        EXPECT_EQ(database.jobStats(session)["completed"], 3);
        database.restartSession(session);
        EXPECT_LT(last, 9);
    }
}

TEST_F(IntakeTest, TurnsOfBothTracksBecomeSpeakers) {
    take(microphone, captions({caption(1, 3, "ich"), caption(11, 13, "unklar")}));
    take(meeting, captions({caption(4, 6, "wir"), caption(7, 9, "alle")}));
    EXPECT_THAT(lines(), ElementsAre("Ich · Mikrofon: ich", "Meeting-Ton: wir", "Meeting-Ton: alle",
                                     "Ich · Mikrofon: unklar"));
    const auto corrected = load().segments[1].id.string();
    TranscriptStorage::save(TranscriptEdits{{{corrected, "Wir!"}}, {{"9", "alt"}}, UUID::random()}, editsFile);

    const auto report =
        takeSpeakers(meeting,
                     ";; Kommentar\nSPKR-INFO f 1 <NA> <NA> <NA> unknown Bernd <NA>\n"
                     "SPEAKER f 1 6.5 3 <NA> <NA> SPEAKER_01 <NA> <NA>\n"
                     "SPEAKER f 1 4 1.5 <NA> <NA> Bernd <NA>\r\nSPEAKER f 1 4.5 1 <NA> <NA> Bernd <NA>\n");
    EXPECT_EQ(report.speakers, 2U);
    EXPECT_EQ(report.named, 1U);
    EXPECT_EQ(report.turns, 2U);  // Bernd's two overlap
    EXPECT_EQ(load().diarization->version, 1);
    EXPECT_THAT(lines(), ElementsAre("Ich · Mikrofon: ich", "Bernd: Wir!", "Sprecher 2: alle",
                                     "Ich · Mikrofon: unklar"));
    EXPECT_FALSE(load().edits.speakerNames.contains("9"));

    auto named = load().edits;  // the user names the one whom the file does not
    named.speakerNames["2"] = "Cem";
    TranscriptStorage::save(named, editsFile);
    const std::string voices =
        "WEBVTT\n\n00:01.000 --> 00:03.000\n<v Anna>ich\n\n00:10.500 --> 00:13.000\n<v Dora>ja\n\n"
        "00:11.000 --> 00:13.500\n<v Anna>nein\n";
    for (int repeat = 0; repeat < 2; ++repeat) {
        EXPECT_EQ(takeSpeakers(microphone, voices).turns, 3U);
        EXPECT_THAT(lines(), ElementsAre("Anna: ich", "Bernd: Wir!", "Cem: alle", "Mikrofon · unklar: unklar"));
        EXPECT_FALSE(load().diarizationPending());
    }
    EXPECT_EQ(load().diarization->version, 2);
    EXPECT_EQ(load().diarization->turns.front(), (SpeakerTurn{"mic:1", microphone, 1, 3}));

    const auto rename = [&](const char* from, const char* to) {
        TranscriptEditing::nameSpeaker(session, from, to, root.path(), database);
    };
    rename("Anna", "");  // the user's last word stays
    EXPECT_FALSE(takeSpeakers(microphone, voices).changed);
    EXPECT_EQ(lines().front(), "Sprecher 1 · Mikrofon: ich");
    for (const auto* const name : {"Anna", "Ann-Kathrin"}) {
        EXPECT_FALSE(takeSpeakers(microphone, voices, {}, true).changed);
        EXPECT_EQ(lines().front(), std::string(name) + ": ich");
        rename(name, "Ann-Kathrin");
    }
    const auto kept = load();
    const std::string anew = "SPEAKER f 1 4 6 <NA> <NA> Eva <NA> <NA>";
    EXPECT_THAT(failureOf([&] { takeSpeakers(meeting, anew); }),
                HasSubstr("Der Meeting-Ton hat schon Sprecher."));
    EXPECT_THAT(failureOf([&] { SpeakerIntake::declareNone(session, root.path(), database); }),
                HasSubstr("hat schon Sprecher."));
    EXPECT_EQ(load().diarization, kept.diarization);
    EXPECT_EQ(load().edits, kept.edits);
    takeSpeakers(meeting, anew, {}, true);  // Bernd's and Cem's numbers are free
    EXPECT_THAT(lines(),
                ElementsAre("Ann-Kathrin: ich", "Eva: Wir!", "Eva: alle", "Mikrofon · unklar: unklar"));
    EXPECT_FALSE(load().edits.speakerNames.contains("2"));

    writeFile(turnsFile, "{");
    EXPECT_THAT(failureOf([&] { takeSpeakers(meeting, anew); }), HasSubstr("„diarization.json“"));
    takeSpeakers(meeting, anew, {}, true);
    EXPECT_EQ(load().diarization->turns.size(), 1U);
}

TEST_F(IntakeTest, NamesOfTheOtherTrackOutliveAStoppedImport) {
    take(microphone, captions({caption(1, 3, "ich")}));
    take(meeting, captions({caption(4, 6, "wir")}));
    takeSpeakers(meeting, "SPEAKER f 1 4 2 <NA> <NA> Bernd <NA>");
    const auto before = load();
    const std::vector<SpeakerIntake::Selection> track{{microphone, {}}};
    bool stopped = true;
    for (std::size_t change = 0; stopped; ++change) {
        TranscriptStorage::save(before.edits, editsFile);
        TranscriptStorage::save(*before.diarization, turnsFile);
        CrashingFileManager files(folder);
        files.cutPowerAt(change);
        const auto file = SpeakerTurnFile::parse("SPEAKER f 1 1 2 <NA> <NA> Anna <NA>", "a");
        stopped = isCutOff([&] {
            SpeakerIntake::take(session, file, track, root.path(), database, SpeakerIntake::Existing::refuse,
                                files);
        });
        SpeakerIntake::take(session, file, track, root.path(), database);
        EXPECT_THAT(lines(), ElementsAre("Anna: ich", "Bernd: wir")) << change;
        EXPECT_TRUE(stopped || change > 4);
    }
}

TEST_F(IntakeTest, RefusesSpeakersThatItCannotPlace) {
    const std::string two =
        "SPEAKER links 1 0 1 <NA> <NA> A <NA> <NA>\nSPEAKER rechts 1 2 1 <NA> <NA> B <NA> <NA>\n";
    EXPECT_EQ(takeSpeakers(meeting, two, "rechts").turns, 1U);
    const auto before = load().diarization;
    const std::vector<std::pair<std::string, std::string>> files = {
        {two, "a.rttm enthält mehrere Aufnahmen: „links“, „rechts“. Bitte eine davon angeben."},
        {"SPEAKER f 1 121.5 1 <NA> <NA> A <NA>\nSPEAKER f 1 120.9 1 <NA> <NA> A\aB <NA>\n"
         "SPEAKER f 1 1 1 <NA> <NA> " +
             std::string(101, 'x') + " <NA>\nSPEAKER f 1 2 1 <NA> <NA> 1 <NA>\n",
         "a.rttm, Zeile 1: Die Zeit liegt außerhalb der Aufnahme.\n"
         "a.rttm, Zeile 2: Ein Sprechername darf keine Steuerzeichen enthalten.\n"
         "a.rttm, Zeile 3: Ein Sprechername darf höchstens 100 Zeichen haben und muss gültiges UTF-8 sein."},
        {"SPEAKER f 1 x 1 <NA> <NA> A <NA>\n\nSPEAKER f 1 -1 1 <NA> <NA> A <NA>\nSPEAKER f 1 1e308 1e308 - - A "
         "-\n"
         "SPEAKER f 1 1 1 <NA> <NA> <NA> <NA>\nSPEAKER f 1 1 1 <NA>\nSprecher 1\n",
         "a.rttm, Zeile 1: Zeitangabe ist ungültig.\na.rttm, Zeile 3: Zeitangabe ist ungültig.\n"
         "a.rttm, Zeile 4: Zeitangabe ist ungültig.\na.rttm, Zeile 5: Der Sprecher fehlt.\n"
         "a.rttm, Zeile 6: Die Zeile hat nicht neun oder zehn Felder.\n"
         "a.rttm, Zeile 7: Die Zeile ist kein RTTM-Eintrag."},
        {"WEBVTT\n\n00:01.000 --> 00:03.000\nohne\n", "a.rttm nennt keine Sprecher."},
        {"Sprecher 1\n",
         "a.rttm ist weder RTTM noch WebVTT noch SRT noch das JSON von whisper.cpp oder WhisperX."},
    };
    for (const auto& file : files) {
        EXPECT_EQ(failureOf([&] { takeSpeakers(meeting, file.first); }), file.second);
    }
    EXPECT_EQ(failureOf([&] { takeSpeakers(meeting, two, "oben"); }), "a.rttm enthält keine Aufnahme „oben“.");
    EXPECT_EQ(load().diarization, before);
}

TEST_F(IntakeTest, SettlesASpeakerlessMeetingOfEitherVersion) {
    for (const std::int64_t version : {1, 2}) {
        auto result = TranscriptIntake::assign(captions({caption(1, 2)}), windows(meeting)).front();
        result.version = version;
        if (version == 2) database.restartSession(session);
        database.finish(database.claim(result.windowID, noon, 1).value(), json::encode(result), noon);
        EXPECT_TRUE(load().diarizationPending());
        SpeakerIntake::declareNone(session, root.path(), database);
        EXPECT_FALSE(load().diarizationPending());
        EXPECT_EQ(load().diarization->version, version);
    }
}

}  // namespace
}  // namespace meetingcore::testing
