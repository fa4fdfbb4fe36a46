#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/JSON.h"

namespace meetingcore {

/// A custom field that the library offers for every meeting.
struct MeetingFieldDefinition {
    UUID id;  ///< identity of the field, also after it was renamed
    std::string name;

    /// The library's definitions with trimmed names. Throws MeetingError (invalidData) unless there are at most
    /// 20, with distinct ids and with names of 1 to 60 characters on one line that differ from each other and
    /// from the reserved ones by more than case and accents.
    static std::vector<MeetingFieldDefinition> validated(std::vector<MeetingFieldDefinition> definitions);

    bool operator==(const MeetingFieldDefinition&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingFieldDefinition> = json::record(
    json::field("id", &MeetingFieldDefinition::id), json::field("name", &MeetingFieldDefinition::name));

/// What one meeting says in one custom field.
struct MeetingFieldValue {
    UUID id;           ///< of the definition that it fills
    std::string name;  ///< the definition's name when the values were last brought in line with it
    std::string value;

    bool operator==(const MeetingFieldValue&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingFieldValue> =
    json::record(json::field("id", &MeetingFieldValue::id), json::field("name", &MeetingFieldValue::name),
                 json::field("value", &MeetingFieldValue::value));

/// The structured details of one meeting.
struct MeetingMetadata {
    static constexpr std::size_t maximumParticipants = 100;
    static constexpr std::size_t maximumParticipantCharacters = 100;

    std::vector<std::string> participants;  ///< display names, in the order added
    std::vector<MeetingFieldValue> fields;
    std::optional<std::vector<std::string>> transcriptionPhrases;  ///< words that recognition should favour

    /// Throws MeetingError (invalidData) for the first rule that is broken; changes nothing.
    void validate() const;

    /// The same metadata once it was found valid.
    MeetingMetadata validated() const;

    /// The metadata with one value for each definition, in their order and under their current names. Behind
    /// them follow the values of deleted fields that hold text, so that nothing that was typed is lost.
    MeetingMetadata resolving(std::span<const MeetingFieldDefinition> definitions) const;

    /// Adds a typed name with single blanks between its words, cut to 100 characters, unless it is empty, is
    /// there already (but for case and accents) or the list is full.
    void addParticipant(std::string_view name);

    bool operator==(const MeetingMetadata&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingMetadata> =
    json::record(json::field("participants", &MeetingMetadata::participants),
                 json::field("fields", &MeetingMetadata::fields),
                 json::field("transcriptionPhrases", &MeetingMetadata::transcriptionPhrases));

}  // namespace meetingcore
