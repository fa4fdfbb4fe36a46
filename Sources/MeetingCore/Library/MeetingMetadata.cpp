#include "MeetingCore/Library/MeetingMetadata.h"

#include <algorithm>
#include <array>

#include "MeetingCore/Library/SpeechConfiguration.h"
#include "MeetingCore/Platform/DistinctIDs.h"
#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

namespace {

constexpr std::size_t maximumDefinitions = 20;
constexpr std::size_t maximumFieldNameCharacters = 60;
constexpr std::size_t maximumFieldValueCharacters = 4000;
constexpr std::size_t maximumFieldValues = 100;

/// Headings that views and exports use themselves, in folded form.
constexpr auto reservedNames = std::to_array<std::string_view>(
    {"teilnehmer", "datum", "uhrzeit", "notizen", "transkript", "zusammenfassung"});

bool isBlank(std::string_view text) { return text::trimmed(text).empty(); }

bool containsLineBreak(std::string_view text) {
    constexpr auto breaks =
        std::to_array<std::string_view>({"\n", "\v", "\f", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"});
    return std::any_of(breaks.begin(), breaks.end(),
                       [&](auto lineBreak) { return text.find(lineBreak) != std::string_view::npos; });
}

bool isFieldName(std::string_view trimmed) {
    return !trimmed.empty() && !text::exceeds(trimmed, maximumFieldNameCharacters) &&
           !containsLineBreak(trimmed);
}

/// Whether the names differ from each other and from the reserved ones under folding.
bool areDistinctNames(const std::vector<MeetingFieldDefinition>& definitions) {
    std::vector<std::string> names(reservedNames.begin(), reservedNames.end());
    for (const auto& definition : definitions) names.push_back(text::folded(definition.name));
    std::sort(names.begin(), names.end());
    return std::adjacent_find(names.begin(), names.end()) == names.end();
}

bool isParticipant(std::string_view name) {
    return !isBlank(name) && !text::exceeds(name, MeetingMetadata::maximumParticipantCharacters);
}

bool isFieldValue(const MeetingFieldValue& field) {
    return !field.name.empty() && !text::exceeds(field.name, maximumFieldNameCharacters) &&
           !text::exceeds(field.value, maximumFieldValueCharacters);
}

}  // namespace

std::vector<MeetingFieldDefinition> MeetingFieldDefinition::validated(
    std::vector<MeetingFieldDefinition> definitions) {
    for (auto& definition : definitions) definition.name = text::trimmed(definition.name);
    const bool valid =
        definitions.size() <= maximumDefinitions && haveDistinctIDs(definitions) &&
        std::all_of(definitions.begin(), definitions.end(),
                    [](const MeetingFieldDefinition& definition) { return isFieldName(definition.name); }) &&
        areDistinctNames(definitions);
    if (!valid) {
        throw MeetingError::invalidData(
            "Bis zu 20 eindeutige Feldnamen mit 1–60 Zeichen verwenden. Teilnehmer, Datum, Uhrzeit und "
            "Inhaltsüberschriften sind bereits reserviert.");
    }
    return definitions;
}

void MeetingMetadata::validate() const {
    if (transcriptionPhrases) {
        // Of this configuration only the phrases can be wrong; the model has no say in them.
        static_cast<void>(
            SpeechConfiguration{SpeechModel::parakeet, "de-DE", *transcriptionPhrases, 2}.validated());
    }
    const bool valid = participants.size() <= maximumParticipants && fields.size() <= maximumFieldValues &&
                       std::all_of(participants.begin(), participants.end(), isParticipant) &&
                       haveDistinctIDs(fields) && std::all_of(fields.begin(), fields.end(), isFieldValue);
    if (!valid) throw MeetingError::invalidData("Meeting-Angaben sind zu lang oder ungültig.");
}

MeetingMetadata MeetingMetadata::validated() const {
    validate();
    return *this;
}

MeetingMetadata MeetingMetadata::resolving(std::span<const MeetingFieldDefinition> definitions) const {
    MeetingMetadata resolved{participants, {}, transcriptionPhrases};
    for (const auto& definition : definitions) {
        const auto found = std::find_if(fields.begin(), fields.end(),
                                        [&](const auto& field) { return field.id == definition.id; });
        resolved.fields.push_back(
            {definition.id, definition.name, found == fields.end() ? std::string() : found->value});
    }
    for (const auto& field : fields) {
        const bool defined = std::any_of(definitions.begin(), definitions.end(),
                                         [&](const auto& definition) { return definition.id == field.id; });
        if (!defined && !isBlank(field.value)) resolved.fields.push_back(field);
    }
    return resolved;
}

void MeetingMetadata::addParticipant(std::string_view name) {
    std::string joined;
    for (const auto word : text::words(name)) {
        if (!joined.empty()) joined += ' ';
        joined += word;
    }
    joined = std::string(text::prefix(joined, maximumParticipantCharacters));
    if (joined.empty() || participants.size() >= maximumParticipants) return;
    const auto folded = text::folded(joined);
    const bool known = std::any_of(participants.begin(), participants.end(),
                                   [&](const auto& existing) { return text::folded(existing) == folded; });
    if (!known) participants.push_back(std::move(joined));
}

}  // namespace meetingcore
