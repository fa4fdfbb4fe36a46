#include <functional>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "MeetingCore/Transcript/CaptionFile.h"
#include "MeetingCore/Transcript/ImportedFile.h"
#include "MeetingCore/Transcript/SpeakerTurnFile.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

/// "1-2.5 Anna: Hallo" for each caption, "?" where no speaker is named.
std::vector<std::string> shown(const CaptionFile& file) {
    std::vector<std::string> lines;
    for (const auto& caption : file.captions) {
        auto line = json::encode(std::vector{caption.startSeconds, caption.endSeconds});
        lines.push_back(line + " " + caption.speaker.value_or("?") + ": " + caption.text);
    }
    return lines;
}

std::vector<std::string> captionsOf(const std::string& bytes) {
    return shown(CaptionFile::parse(bytes, "Datei"));
}

TEST(CaptionFile, ReadsTheHabitsOfEachFormat) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> files = {
        {"\xEF\xBB\xBFWEBVTT - Titel\r\nKind: captions\r\n\r\nNOTE 1 -- 2\r\nnichts\r\n\r\nSTYLE\r\n::cue "
         "{}\r\n\r\n"
         "0b3f-11/12-0\r\n00:00:01.000 --> 00:00:02.500 align:start\r\n<v Meral "
         "Ayd\xC4\xB1n>Guten\r\nMorgen</v>\r\n",
         {"[1,2.5] Meral Aydın: Guten Morgen"}},
        {"WEBVTT\n\n00:01.5 --> 1:00:02.000\n<v.laut.x A &amp; B><i>5</i> &lt; 6,<00:00:01.700><c.gelb> "
         "a&#x2192;b&nbsp;&unbekannt; < 3 & <3\n\n00:09.000 --> 00:10.000\n<i> </i>\n",
         {"[1.5,3602] A & B: 5 < 6, a→b &unbekannt; < 3 & <3"}},
        {"WEBVTT\r\r00:10.000 --> 00:22.000\r<v A>Ja.</v> <v B>Genau.</v>hm!",
         {"[10,13] A: Ja.", "[13,19] B: Genau.", "[19,22] ?: hm!"}},
        {"WEBVTT\n\n1\n00:01.000 --> 00:02.000\nAnna Weber: Hallo\n\n2\n00:02.000 --> 00:03.000\nBernd: Fazit: "
         "gut\n\n"
         "3\n00:03.000 --> 00:04.000\nAnna Weber: Schön\n\n4\n00:04.000 --> 00:05.000\nBernd: ja\n",
         {"[1,2] Anna Weber: Hallo", "[2,3] Bernd: Fazit: gut", "[3,4] Anna Weber: Schön", "[4,5] Bernd: ja"}},
        {"1\n00:00:01,000 --> 00:00:02,500\n{\\an8}<i>Erste</i>\n<font color=\"red\">Zeile</font> <b\n"
         "2\n00:00:03.000 --> 00:00:04.000 X1:1\n7 &amp; <x>\n12\n\n00:00:05 --> 00:00:06\nFazit: ohne Zähler",
         {"[1,2.5] ?: Erste Zeile <b", "[3,4] ?: 7 &amp; <x> 12", "[5,6] ?: Fazit: ohne Zähler"}},
        {R"({"transcription": [{"timestamps": {"from": "x"}, "offsets": {"from": 1000, "to": 2500}, "text": " Guten Tag."},
             {"offsets": {"from": 3000, "to": 3000}, "text": " ja", "speaker": "?"}]})",
         {"[1,2.5] ?: Guten Tag.", "[3,3] ?: ja"}},
        {R"({"segments": [{"start": 1.5, "end": 2, "text": " Hallo", "speaker": "SPEAKER_00", "words": []},
             {"start": 2, "end": 3, "text": ""}], "language": "de"})",
         {"[1.5,2] SPEAKER_00: Hallo"}},
    };
    for (const auto& [bytes, expected] : files) EXPECT_EQ(captionsOf(bytes), expected) << bytes;
}

TEST(CaptionFile, KeepsTheTimesOfWordsThatHaveThem) {
    const auto tokens = CaptionFile::parse(
        R"({"transcription": [{"offsets": {"from": 0, "to": 900}, "text": " Guten Tag.", "tokens": [
        {"text": "[_BEG_]", "offsets": {"from": 0, "to": 0}}, {"text": " Gu", "offsets": {"from": 0, "to": 200}},
        {"text": "ten", "offsets": {"from": 200, "to": 400}}, {"text": " Tag"}]}]})",
        "x");
    EXPECT_THAT(tokens.captions.at(0).words,
                ElementsAre(CaptionWord{"Guten", 0, 0.4}, CaptionWord{"Tag", {}, {}}));
    const auto aligned = CaptionFile::parse(
        R"({"segments": [{"start": 0, "end": 9, "text": "a 3 b", "words": [{"word": "a", "start": 1, "end": 2,
        "score": 0.5}, {"word": "3"}, {"word": "b", "start": 5, "end": 4}]}]})",
        "x");
    EXPECT_THAT(aligned.captions.at(0).words,
                ElementsAre(CaptionWord{"a", 1, 2}, CaptionWord{"3", {}, {}}, CaptionWord{"b", {}, {}}));
}

TEST(CaptionFile, DoesWithoutWordsThatAreCutInsideACharacter) {
    const auto withTokens = [](const std::string& text, const std::string& first, const std::string& second) {
        return R"({"transcription": [{"offsets": {"from": 0, "to": 900}, "text": ")" + text +
               R"(", "tokens": [{"text": ")" + first + R"("}, {"text": ")" + second + R"("}]}]})";
    };
    const auto split = CaptionFile::parse(withTokens("Schön.", " Sch\xC3", "\xB6n."), "x");
    EXPECT_EQ(split.captions.at(0).text, "Schön.");
    EXPECT_THAT(split.captions.at(0).words, IsEmpty());
    EXPECT_EQ(
        CaptionFile::parse(withTokens("Schön \uFFFD", " Schön", " \uFFFD"), "x").captions.at(0).words.size(),
        2U)
        << "an honest replacement character";
    EXPECT_THAT(failureOf([&] { CaptionFile::parse(withTokens("Sch\xF6n.", " Sch\xF6", "n."), "x"); }),
                HasSubstr("Text ist kein gültiges UTF-8."))
        << "Latin-1";
    const std::string named =
        "{\"segments\":[{\"start\":1,\"end\":2,\"text\":\"Ja\",\"speaker\":\"J\xF6rg\"}]}";
    EXPECT_THAT(failureOf([&] { CaptionFile::parse(named, "x"); }), HasSubstr("Text ist kein gültiges UTF-8."));
}

TEST(CaptionFile, NamesEveryWrongPlace) {
    const auto longText = std::string(20'001, 'x');
    const std::vector<std::pair<std::string, std::string>> files = {
        {"WEBVTT\n\n00:61.000 --> 00:02.000\nx\n\n00:03.000 --> 00:02.000\ny\n\nverwaist\n\n00:01.000 --> "
         "1e9\n\xFF",
         "a.vtt, Zeile 3: Zeitangabe ist ungültig.\na.vtt, Zeile 6: Das Ende liegt vor dem Anfang.\n"
         "a.vtt, Zeile 9: Zeitangabe fehlt.\na.vtt, Zeile 11: Zeitangabe ist ungültig.\n"
         "a.vtt, Zeile 12: Text ist kein gültiges UTF-8."},
        {"1\r\n00:00:01,000 -->\r\nx\r\n\r\n00:00:01,0000 --> 00:00:02\r\n\r\n00:00:01 --> 00:00:02\r\n" +
             longText,
         "a.vtt, Zeile 2: Zeitangabe ist ungültig.\na.vtt, Zeile 5: Zeitangabe ist ungültig.\n"
         "a.vtt, Zeile 7: Text ist länger als 20.000 Zeichen."},
        {R"({"segments": [{"start": -1, "end": 2, "text": "a"}, {"end": 2, "text": "b"}, {"start": 1, "end": 2},
            {"start": 2, "end": 1, "text": "c"}]})",
         "a.vtt, Segment 1: Zeitangabe ist ungültig.\na.vtt, Segment 2: Zeitangabe fehlt.\n"
         "a.vtt, Segment 3: Text fehlt.\na.vtt, Segment 4: Das Ende liegt vor dem Anfang."},
        {R"({"segments": [{"start": NaN}]})", "a.vtt ist kein gültiges JSON (Feld „segments[0].start“)."},
        {R"({"text": "nur Text"})", "a.vtt enthält keine Transkription („transcription“ oder „segments“)."},
        {"WEBVTTX\n\nText", "a.vtt ist weder WebVTT noch SRT noch das JSON von whisper.cpp oder WhisperX."},
    };
    for (const auto& file : files) {
        EXPECT_EQ(failureOf([&] { CaptionFile::parse(file.first, "a.vtt"); }), file.second);
    }
    std::string many = "WEBVTT\n";
    for (int i = 0; i < 22; ++i) many += "\nx --> y\n";
    const auto message = failureOf([&] { CaptionFile::parse(many, "a"); });
    EXPECT_THAT(message, HasSubstr("Zeile 41: Zeitangabe ist ungültig.\n2 weitere Fehler."));
}

TEST(CaptionFile, ReadsTheLibrarysOwnSubtitlesBack) {
    TranscriptDocument document;
    const auto add = [&](double start, double end, const std::string& speaker, const std::string& text) {
        document.segments.push_back({UUID::random(), start, end, AudioSource::meeting, speaker, text});
    };
    add(1, 2, "1", "5 < 6 & mehr");
    add(3, 4, "2", "<v X> --x");
    add(61, 62, "2", "Ende: gut");
    document.diarization = DiarizationResult{1, UUID::random(), UUID::random(), true, {}};
    document.edits.speakerGeneration = document.diarization->generation;
    document.edits.speakerNames = {{"1", "A&B"}, {"2", "Cem"}};
    EXPECT_THAT(captionsOf(SubtitleExport::webVTT(document)),
                ElementsAre("[1,2] A&B: 5 < 6 & mehr", "[3,4] Cem: <v X> --x", "[61,62] Cem: Ende: gut"));
    EXPECT_THAT(
        captionsOf(SubtitleExport::subRip(document)),
        ElementsAre("[1,2] ?: A&B: 5 < 6 & mehr", "[3,4] ?: Cem: <v X> --x", "[61,62] ?: Cem: Ende: gut"));
}

TEST(ImportedFile, IsRefusedByNameWhateverTheReader) {
    const TemporaryFolder folder;
    const auto file = folder.path() / "Gespr\344ch.txt";  // a name in Latin-1
    const std::string name = "Gespr\uFFFDch.txt";
    const std::vector<std::function<void()>> readers{[&] { CaptionFile::read(file); },
                                                     [&] { SpeakerTurnFile::read(file); }};
    for (const auto& read : readers) {
        const auto failure = [&](Kind kind = Kind::invalidData) { return failureOf(read, kind); };
        fs::remove(file);
        EXPECT_EQ(failure(Kind::storage), "„" + name + "“ gibt es nicht.");
        fs::create_directory(file);
        EXPECT_EQ(failure(Kind::storage), "„" + name + "“ ist keine gewöhnliche Datei.");
        fs::remove(file);
        for (const auto* const bytes : {"\xFF\xFES", "\xFE\xFF"}) {
            writeFile(file, bytes);
            EXPECT_EQ(failure(), name + " ist UTF-16. Bitte als UTF-8 speichern.");
        }
        fs::resize_file(file, ImportedFile::maximumBytes + 1);
        EXPECT_EQ(failure(), name + " ist zu groß: Gelesen werden höchstens 64 MiB.");
        writeFile(file, "Text");
        EXPECT_THAT(failure(), StartsWith(name + " ist weder "));
    }
    fs::resize_file(file, ImportedFile::maximumBytes);
    EXPECT_EQ(ImportedFile::read(file, FileManager::system()).bytes.size(), ImportedFile::maximumBytes);
}

TEST(ImportedFile, HasTheSameLinesInEveryReader) {
    std::vector<std::string> lines;
    for (std::string_view text = "a\n\rb\r\n\r\nc\r\rd\n"; !text.empty();)
        lines.emplace_back(ImportedFile::takeLine(text));
    EXPECT_THAT(lines, ElementsAre("a", "", "b", "", "c", "", "d"));

    const std::string captions = "WEBVTT||00:01.000 --> 00:02.000|<v A>x||00:0x.000 --> 00:02.000|\xFF|";
    const std::string turns =
        ";; \xFF||SPEAKER f 1 1 2 <NA> <NA> A <NA>|SPKR-INFO f 1 <NA>||SPEAKER f 1 x 2 <NA> <NA> A "
        "<NA>|SPEAKER f 1 1 2 <NA> <NA> \xFF <NA>|";
    for (const auto* const end : {"\n", "\r\n", "\r"}) {
        for (const auto& table : {captions, turns}) {
            const auto bytes = "\xEF\xBB\xBF" + text::replacing(table, "|", end);
            EXPECT_EQ(failureOf([&] { SpeakerTurnFile::parse(bytes, "a"); }),
                      "a, Zeile 6: Zeitangabe ist ungültig.\na, Zeile 7: Text ist kein gültiges UTF-8.");
        }
    }
}

}  // namespace
}  // namespace meetingcore::testing
