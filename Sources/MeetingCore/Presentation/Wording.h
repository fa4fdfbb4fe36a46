#pragma once

#include <string_view>
#include <unordered_map>

#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// Finds the text of a document's segments in one of its two wordings. Refers to the document.
class Wording {
public:
    /// `original` selects what was recognised, else the user's corrections count.
    Wording(const TranscriptDocument& document, bool original) {
        if (!original) return;
        recognised_.reserve(document.rawSegments.size());
        for (const auto& raw : document.rawSegments) recognised_.try_emplace(raw.id, raw.text);
    }

    /// The segment's own text where nothing else is known for it.
    std::string_view of(const TranscriptSegment& segment) const {
        const auto found = recognised_.find(segment.id);
        return found == recognised_.end() ? std::string_view(segment.text) : found->second;
    }

private:
    std::unordered_map<UUID, std::string_view> recognised_;
};

}  // namespace meetingcore
