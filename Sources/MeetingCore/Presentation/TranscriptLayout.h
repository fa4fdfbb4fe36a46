#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// Who speaks, as far as track and diarization tell. Without a speaker, each track has a key of its own.
struct TranscriptSpeakerKey {
    AudioSource source = AudioSource::microphone;
    std::optional<std::string> speakerID;

    static TranscriptSpeakerKey of(const TranscriptSegment& segment) {
        return {segment.source, segment.speakerID};
    }

    bool operator==(const TranscriptSpeakerKey&) const = default;
};

/// A run of segments of one speaker, set in paragraphs.
struct TranscriptBlock {
    TranscriptSpeakerKey speaker;
    std::size_t colorIndex = 0;               ///< the speaker's number in order of first occurrence, from 0
    std::vector<TranscriptSegment> segments;  ///< in transcript order, never empty
    std::string text;                         ///< the paragraphs, with an empty line between them
    std::vector<std::size_t> paragraphs{};    ///< the index of each paragraph's first segment; starts with 0

    const TranscriptSegment& firstSegment() const { return segments.front(); }

    /// The identity of the block is that of its first segment.
    const UUID& id() const { return firstSegment().id; }

    bool operator==(const TranscriptBlock&) const = default;
};

namespace TranscriptLayout {

/// The document as blocks, one per run of segments of the same speaker. `original` selects the recognised
/// wording instead of the user's corrections.
///
/// A paragraph ends at a pause of two seconds or, once it has 450 characters, at the end of a sentence. A
/// segment without text in the chosen wording is left out, as if it were not there.
std::vector<TranscriptBlock> blocks(const TranscriptDocument& document, bool original);

}  // namespace TranscriptLayout
}  // namespace meetingcore

template <>
struct std::hash<meetingcore::TranscriptSpeakerKey> {
    std::size_t operator()(const meetingcore::TranscriptSpeakerKey& key) const noexcept {
        return std::hash<std::optional<std::string>>{}(key.speakerID) * 2 +
               static_cast<std::size_t>(key.source);
    }
};
