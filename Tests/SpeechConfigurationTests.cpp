#include <cmath>

#include "MeetingCore/Library/AudioInputSelection.h"
#include "MeetingCore/Library/MeetingMetadata.h"
#include "MeetingCore/Library/SpeechConfiguration.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/Testing.h"

namespace meetingcore::testing {
namespace {

const std::string rangeMessage =
    "Bitte Deutsch oder Automatisch, Stärke 1–3 und höchstens 100 Begriffe wählen.";
const std::string phraseMessage = "Ein Begriff darf maximal 100 Zeichen und keine Steuerzeichen enthalten.";
const std::string metadataMessage = "Meeting-Angaben sind zu lang oder ungültig.";
const std::string definitionMessage =
    "Bis zu 20 eindeutige Feldnamen mit 1–60 Zeichen verwenden. Teilnehmer, Datum, Uhrzeit und "
    "Inhaltsüberschriften sind bereits reserviert.";

/// A character of four bytes and two scalars, so that no limit in characters can pass for one in bytes.
std::string characters(std::size_t count) { return repeated("o\xCC\x88", count); }

TEST(SpeechConfiguration, AcceptsItsRangesAndNothingBeyond) {
    const auto message = [](const std::string& language, float boost, std::size_t phrases) {
        const std::vector<std::string> list(phrases, "x");
        return messageOf([&] {
            SpeechConfiguration{SpeechModel::nemotron, language, list, boost}.validated();
        });
    };
    EXPECT_EQ(message("de-DE", 1, 0) + message("auto", 3, 100), "");
    for (const auto* const language : {"en-US", "de-de", ""}) EXPECT_EQ(message(language, 2, 0), rangeMessage);
    for (const float boost : {0.99F, 3.01F, NAN, INFINITY}) EXPECT_EQ(message("auto", boost, 0), rangeMessage);
    EXPECT_EQ(message("auto", 2, 101), rangeMessage);
}

TEST(SpeechConfiguration, TrimsPhrasesAndKeepsTheFirstOfEach) {
    const auto phrasesOf = [](std::vector<std::string> phrases) {
        return SpeechConfiguration{SpeechModel::parakeet, "auto", std::move(phrases), 2}.validated().phrases;
    };
    EXPECT_THAT(phrasesOf({"Müller", "müller", "  ", " ÄRGER\n", "Ärger", "Muller"}),
                ElementsAre("Müller", "ÄRGER", "Muller"));
    EXPECT_THAT(phrasesOf({" " + characters(100) + "\t"}), ElementsAre(characters(100)));
    for (const auto& phrase : split("a\tb|a\u200Db|" + characters(101)))
        EXPECT_EQ(failureOf([&] { phrasesOf({phrase}); }), phraseMessage) << phrase;
}

TEST(SpeechConfiguration, IsReadFromTheMeetingAndFallsBackWithoutAFile) {
    const TemporaryFolder root;
    const auto id = UUID::random();
    const auto file = layout::meetingFolder(root.path(), id) / "speech-configuration.json";
    fs::create_directories(file.parent_path());
    const auto load = [&] { return SpeechConfiguration::forSession(id, root.path()); };
    EXPECT_EQ(load(), (SpeechConfiguration{SpeechModel::parakeet, "auto", {}, 2}));
    TranscriptStorage::save(SpeechConfiguration{SpeechModel::nemotron, "de-DE", {" Quartal "}, 2.1F}, file);
    EXPECT_EQ(load(), (SpeechConfiguration{SpeechModel::nemotron, "de-DE", {"Quartal"}, 2.1F}));
    TranscriptStorage::save(SpeechConfiguration{SpeechModel::nemotron, "fr", {}, 2}, file);
    EXPECT_EQ(failureOf(load), rangeMessage);
    fs::resize_file(file, maximumRecordBytes + 1);
    EXPECT_EQ(failureOf(load), "Ergebnisdatei ist zu groß.");
    EXPECT_EQ(displayName(SpeechModel::nemotron), "Nemotron 3.5 ASR");
    EXPECT_EQ(displayName(SpeechModel::parakeet), "Parakeet TDT v3");
}

TEST(AudioInputSelection, TellsTheCapturedTracks) {
    const std::string off = "local.quillmoot.audio-off";
    const auto microphone = AudioSource::microphone, meeting = AudioSource::meeting;
    EXPECT_THAT(AudioInputSelection(42, std::nullopt).sources(), ElementsAre(microphone, meeting));
    EXPECT_FALSE(AudioInputSelection(0, off).hasInput());
    MeetingSession session;
    session.applicationBundleID = off;
    EXPECT_THAT(AudioInputSelection(session).sources(), ElementsAre(microphone));
    session.applicationBundleID = "example.meeting";
    session.microphoneID = off;
    EXPECT_THAT(AudioInputSelection(session).sources(), ElementsAre(meeting));
}

TEST(MeetingMetadata, AcceptsItsLimitsAndNothingBeyond) {
    const auto with = [](const std::string& participant, const std::string& name, const std::string& value) {
        return MeetingMetadata{{participant}, {{UUID::random(), name, value}}, std::nullopt};
    };
    const auto message = [](const MeetingMetadata& metadata) {
        return messageOf([&] { metadata.validated(); });
    };
    auto valid = with(characters(100), characters(60), characters(4000));
    EXPECT_EQ(valid.validated(), valid);
    for (const auto& metadata :
         {with(" \n ", "f", "v"), with(characters(100) + " ", "f", "v"), with("p", "", "v"),
          with("p", characters(61), "v"), with("p", "f", characters(4001))})
        EXPECT_EQ(message(metadata), metadataMessage);
    valid.participants.assign(100, "Anna");
    EXPECT_EQ(message(valid), "");
    valid.participants.emplace_back("Anna");
    EXPECT_EQ(message(valid), metadataMessage);
    valid.participants.pop_back();
    valid.fields.push_back(valid.fields[0]);
    EXPECT_EQ(message(valid), metadataMessage);
    valid.transcriptionPhrases = {{"a\tb"}};
    EXPECT_EQ(message(valid), phraseMessage) << "the phrases are judged first";
}

TEST(MeetingMetadata, BringsItsFieldsInLineWithTheDefinitions) {
    const auto renamed = UUID::random(), added = UUID::random(), deleted = UUID::random();
    const MeetingMetadata metadata{
        {"Anna"},
        {{deleted, "Alt", "bleibt"}, {renamed, "Kunde", "Nord"}, {UUID::random(), "Leer", " \n"}},
        {{"Q"}}};
    const MeetingMetadata expected{
        {"Anna"}, {{added, "Ort", ""}, {renamed, "Auftraggeber", "Nord"}, {deleted, "Alt", "bleibt"}}, {{"Q"}}};
    EXPECT_EQ(metadata.resolving({{{added, "Ort"}, {renamed, "Auftraggeber"}}}), expected);
}

TEST(MeetingMetadata, AddsParticipantsThatAreNew) {
    MeetingMetadata metadata;
    for (const auto& name :
         split(" Anna\nSchmidt |anna  SCHMIDT|Ánna Schmidt| \t|Straße|STRASSE|" + characters(120)))
        metadata.addParticipant(name);
    EXPECT_THAT(metadata.participants, ElementsAre("Anna Schmidt", "Straße", characters(100)));
    metadata.participants.assign(100, "Anna");
    metadata.addParticipant("Bert");
    EXPECT_EQ(metadata.participants.size(), 100U);
}

TEST(MeetingFieldDefinition, NeedsNamesThatDifferByMoreThanCaseAndAccents) {
    const auto message = [](const std::string& names) {
        std::vector<MeetingFieldDefinition> definitions;
        for (const auto& name : split(names)) definitions.push_back({UUID::random(), name});
        return messageOf([&] { MeetingFieldDefinition::validated(definitions); });
    };
    const std::string twenty = "a|b|c|d|e|f|g|h|i|j|k|l|m|n|o|p|q|r|s|t";
    EXPECT_EQ(message("") + message(twenty) + message(characters(60) + "|Büro|Bürø"), "");
    for (const std::string& names : std::initializer_list<std::string>{
             twenty + "|u", characters(61), "Kunde|kunde", "Büro|Buro", "Ärger|arger", " Datum ",
             "Zusammenfassung", "TEILNEHMER", "|", " \n ", "a\nb", "a\u2029b", "a\u0085b"})
        EXPECT_EQ(message(names), definitionMessage) << names;
    const auto id = UUID::random();
    EXPECT_EQ(failureOf([&] { MeetingFieldDefinition::validated({{id, "a"}, {id, "b"}}); }), definitionMessage);
    EXPECT_EQ(MeetingFieldDefinition::validated({{id, " Ort\n"}}).front().name, "Ort");
}

}  // namespace
}  // namespace meetingcore::testing
