#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MeetingCore/Platform/JSON.h"

namespace meetingcore {

/// A custom field that the library offers for every meeting.
struct MeetingFieldDefinition {
    UUID id;  ///< identity of the field, also after it was renamed
    std::string name;

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
    std::vector<std::string> participants;  ///< display names, in the order added
    std::vector<MeetingFieldValue> fields;
    std::optional<std::vector<std::string>> transcriptionPhrases;  ///< words that recognition should favour

    bool operator==(const MeetingMetadata&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingMetadata> =
    json::record(json::field("participants", &MeetingMetadata::participants),
                 json::field("fields", &MeetingMetadata::fields),
                 json::field("transcriptionPhrases", &MeetingMetadata::transcriptionPhrases));

}  // namespace meetingcore
