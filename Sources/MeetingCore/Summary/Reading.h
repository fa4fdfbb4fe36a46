#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Summary/CueRules.h"
#include "MeetingCore/Summary/GermanText.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// What is known of one meeting while it is read. Refers to the document.
struct Reading {
    explicit Reading(const TranscriptDocument& of);
    ~Reading() = default;
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    /// The segment's sentences; none where nothing was said.
    std::span<const GermanSentence> sentencesOf(std::uint32_t segment) const;
    std::string passage(std::uint32_t segment, std::uint32_t begin, std::uint32_t end) const;
    /// Whether the passage's quote shows anything: speech may stand behind nothing but blanks.
    bool quotable(std::span<const std::uint32_t> cited) const;
    /// The sentence, with its neighbour in the segment where it says little: "Dann die kleine."
    std::string tellingPassage(std::uint32_t sentence) const;
    /// The lower-cased words of the label that the user gave the segment's speaker; none for a default label.
    std::vector<std::string> givenName(std::uint32_t segment) const;

    const TranscriptDocument& document;
    GermanText text;
    CueRules rules;
    std::vector<std::uint32_t> speakers;  ///< by segment: who speaks, 0 where that is unknown
    std::vector<bool> names;              ///< by word: whether it is somebody's name
    std::vector<double> centrality;       ///< by segment, see rankSegments()
};

/// "Frau", "Herr" and "Herrn", lower-cased.
bool isTitleOfAddress(std::string_view word);

}  // namespace meetingcore
