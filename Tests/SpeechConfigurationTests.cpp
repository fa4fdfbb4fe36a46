#include <cmath>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MeetingCore/Library/AudioInputSelection.h"
#include "MeetingCore/Library/MeetingMetadata.h"
#include "MeetingCore/Library/SpeechConfiguration.h"
#include "MeetingCore/Transcript/InferenceData.h"
#include "Support/Failure.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore {
namespace {

using ::testing::ElementsAre;
using testing::failureOf;

const std::string rangeMessage =
    "Bitte Deutsch oder Automatisch, Stärke 1–3 und höchstens 100 Begriffe wählen.";
const std::string phraseMessage = "Ein Begriff darf maximal 100 Zeichen und keine Steuerzeichen enthalten.";
const std::string metadataMessage = "Meeting-Angaben sind zu lang oder ungültig.";
const std::string definitionMessage =
    "Bis zu 20 eindeutige Feldnamen mit 1–60 Zeichen verwenden. Teilnehmer, Datum, Uhrzeit und "
    "Inhaltsüberschriften sind bereits reserviert.";

/// A character of four bytes and two scalars, so that no limit in characters can pass for one in bytes.
std::string characters(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += "o\xCC\x88";
    return text;
}

TEST(SpeechConfiguration, AcceptsItsRangesAndNothingBeyond) {
    struct Case {
        std::string language;
        float boost;
        std::size_t phrases;
        bool valid;
    };
    const Case cases[] = {{"de-DE", 1, 0, true},     {"auto", 3, 100, true},  {"en-US", 2, 0, false},
                          {"de-de", 2, 0, false},    {"", 2, 0, false},       {"auto", 0.99F, 0, false},
                          {"auto", 3.01F, 0, false}, {"auto", NAN, 0, false}, {"auto", INFINITY, 0, false},
                          {"auto", 2, 101, false}};
    for (const auto& [language, boost, phrases, valid] : cases) {
        const SpeechConfiguration configuration{SpeechModel::nemotron, language,
                                                std::vector<std::string>(phrases, "x"), boost};
        EXPECT_EQ(failureOf([&] { configuration.validated(); }), valid ? "no failure" : rangeMessage)
            << language << " " << boost << " " << phrases;
    }
}

TEST(SpeechConfiguration, TrimsPhrasesAndKeepsTheFirstOfEach) {
    const auto phrasesOf = [](std::vector<std::string> phrases) {
        return SpeechConfiguration{SpeechModel::parakeet, "auto", std::move(phrases), 2}.validated().phrases;
    };
    EXPECT_THAT(phrasesOf({"Müller", "müller", "  ", " ÄRGER\n", "Ärger", "Muller"}),
                ElementsAre("Müller", "ÄRGER", "Muller"));
    EXPECT_THAT(phrasesOf({" " + characters(100) + "\t"}), ElementsAre(characters(100)));
    for (const auto& phrase : {characters(101), std::string("a\tb"),
                               std::string("a\xE2\x80\x8D"
                                           "b")}) {
        EXPECT_EQ(failureOf([&] { phrasesOf({phrase}); }), phraseMessage) << phrase;
    }
}

TEST(SpeechConfiguration, IsReadFromTheMeetingAndFallsBackWithoutAFile) {
    const testing::TemporaryFolder root;
    const auto id = UUID::random();
    const auto folder = TranscriptStorage::sessionDirectory(root.path(), id);
    std::filesystem::create_directories(folder);
    const auto load = [&] { return SpeechConfiguration::forSession(id, root.path()); };
    EXPECT_EQ(load(), (SpeechConfiguration{SpeechModel::parakeet, "auto", {}, 2}));

    const auto file = folder / "speech-configuration.json";
    const SpeechConfiguration stored{SpeechModel::nemotron, "de-DE", {" Quartal "}, 2.1F};
    TranscriptStorage::save(stored, file);
    EXPECT_EQ(FileManager::system().read(file, 0, 999),
              R"({"model":"nemotron","language":"de-DE","phrases":[" Quartal "],"boost":2.1})");
    EXPECT_EQ(load(), (SpeechConfiguration{SpeechModel::nemotron, "de-DE", {"Quartal"}, 2.1F}));

    TranscriptStorage::save(SpeechConfiguration{SpeechModel::nemotron, "fr", {}, 2}, file);
    EXPECT_EQ(failureOf(load), rangeMessage);
    std::filesystem::resize_file(file, TranscriptStorage::maximumFileBytes + 1);
    EXPECT_EQ(failureOf(load), "Ergebnisdatei ist zu groß.");
    EXPECT_EQ(displayName(SpeechModel::nemotron), "Nemotron 3.5 ASR");
    EXPECT_EQ(displayName(SpeechModel::parakeet), "Parakeet TDT v3");
}

TEST(AudioInputSelection, TellsTheCapturedTracks) {
    const std::string off = "local.quillmoot.audio-off";
    EXPECT_THAT(AudioInputSelection(42, std::nullopt).sources(),
                ElementsAre(AudioSource::microphone, AudioSource::meeting));
    EXPECT_FALSE(AudioInputSelection(0, off).hasInput());
    MeetingSession session;
    session.microphoneID = off;
    session.applicationBundleID = "example.meeting";
    EXPECT_THAT(AudioInputSelection(session).sources(), ElementsAre(AudioSource::meeting));
    session.applicationBundleID = off;
    session.microphoneID = std::nullopt;
    EXPECT_THAT(AudioInputSelection(session).sources(), ElementsAre(AudioSource::microphone));
}

MeetingMetadata metadataWith(const std::string& participant, const std::string& fieldName,
                             const std::string& value) {
    return {{participant}, {{UUID::random(), fieldName, value}}, std::nullopt};
}

TEST(MeetingMetadata, AcceptsItsLimitsAndNothingBeyond) {
    const auto message = [](const MeetingMetadata& metadata) {
        return failureOf([&] { metadata.validated(); });
    };
    const auto valid = metadataWith(characters(100), characters(60), characters(4000));
    EXPECT_EQ(valid.validated(), valid);
    for (const auto& metadata : {metadataWith(" \n ", "f", "v"), metadataWith(characters(100) + " ", "f", "v"),
                                 metadataWith("p", "", "v"), metadataWith("p", characters(61), "v"),
                                 metadataWith("p", "f", characters(4001))}) {
        EXPECT_EQ(message(metadata), metadataMessage);
    }
    auto full = valid;
    full.participants.assign(100, "Anna");
    EXPECT_EQ(message(full), "no failure");
    full.participants.emplace_back("Anna");
    EXPECT_EQ(message(full), metadataMessage);
    auto doubled = valid;
    doubled.fields.push_back(doubled.fields[0]);
    EXPECT_EQ(message(doubled), metadataMessage);
    doubled.transcriptionPhrases = {{"a\tb"}};
    EXPECT_EQ(message(doubled), phraseMessage) << "the phrases are judged first";
    doubled.transcriptionPhrases->assign(101, "x");
    EXPECT_EQ(message(doubled), rangeMessage);
}

TEST(MeetingMetadata, BringsItsFieldsInLineWithTheDefinitions) {
    const auto renamed = UUID::random(), added = UUID::random(), deleted = UUID::random();
    const MeetingMetadata metadata{
        {"Anna"},
        {{deleted, "Alt", "bleibt"}, {renamed, "Kunde", "Nord"}, {UUID::random(), "Leer", " \n"}},
        {{"Quartal"}}};
    const std::vector<MeetingFieldDefinition> definitions{{added, "Ort"}, {renamed, "Auftraggeber"}};
    const MeetingMetadata expected{
        {"Anna"},
        {{added, "Ort", ""}, {renamed, "Auftraggeber", "Nord"}, {deleted, "Alt", "bleibt"}},
        {{"Quartal"}}};
    EXPECT_EQ(metadata.resolving(definitions), expected);
}

TEST(MeetingMetadata, AddsParticipantsThatAreNew) {
    MeetingMetadata metadata;
    for (const auto* name :
         {" Anna\nSchmidt ", "anna  SCHMIDT", "Ánna Schmidt", " \t", "Straße", "STRASSE", "Bo"}) {
        metadata.addParticipant(name);
    }
    metadata.addParticipant(characters(120));
    EXPECT_THAT(metadata.participants, ElementsAre("Anna Schmidt", "Straße", "Bo", characters(100)));
    metadata.participants.assign(100, "Anna");
    metadata.addParticipant("Bert");
    EXPECT_EQ(metadata.participants.size(), 100U);
}

TEST(MeetingFieldDefinition, NeedsNamesThatDifferByMoreThanCaseAndAccents) {
    const auto message = [](const std::vector<std::string>& names) {
        std::vector<MeetingFieldDefinition> definitions;
        definitions.reserve(names.size());
        for (const auto& name : names) definitions.push_back({UUID::random(), name});
        return failureOf([&] { MeetingFieldDefinition::validated(definitions); });
    };
    std::vector<std::string> twenty;
    for (char c = 'a'; c < 'a' + 20; ++c) twenty.emplace_back(1, c);
    for (const auto& names : {std::vector<std::string>{}, twenty, {characters(60), "Büro", "Bürø"}}) {
        EXPECT_EQ(message(names), "no failure");
    }
    auto tooMany = twenty;
    tooMany.emplace_back("z");
    for (const auto& names : std::vector<std::vector<std::string>>{tooMany,
                                                                   {"Kunde", "kunde"},
                                                                   {"Büro", "Buro"},
                                                                   {"Ärger", "arger"},
                                                                   {" Datum "},
                                                                   {"Zusammenfassung"},
                                                                   {"TEILNEHMER"},
                                                                   {""},
                                                                   {" \n "},
                                                                   {characters(61)},
                                                                   {"a\nb"},
                                                                   {"a\xE2\x80\xA9"
                                                                    "b"},
                                                                   {"a\xC2\x85"
                                                                    "b"}}) {
        EXPECT_EQ(message(names), definitionMessage) << names.front();
    }
    const auto id = UUID::random();
    EXPECT_EQ(failureOf([&] { MeetingFieldDefinition::validated({{id, "a"}, {id, "b"}}); }), definitionMessage);
    EXPECT_EQ(MeetingFieldDefinition::validated({{id, " Ort\n"}}),
              (std::vector<MeetingFieldDefinition>{{id, "Ort"}}));
}

}  // namespace
}  // namespace meetingcore
