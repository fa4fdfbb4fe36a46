#include "MeetingCore/Summary/SummaryArtifact.h"

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

template SummaryArtifact json::decode(std::string_view, const std::string&);
template MeetingTitleArtifact json::decode(std::string_view, const std::string&);

namespace {

constexpr std::size_t maximumTitleCharacters = 80;

}  // namespace

std::string SummaryArtifact::fingerprint(const TranscriptDocument& document) {
    NamedTranscript named{document.segments, {}};
    named.labels.reserve(document.segments.size());
    for (const auto& segment : document.segments) named.labels.push_back(document.speakerLabel(segment));
    return SHA256::hex(json::encode(named, json::Keys::sorted));
}

std::string SummaryArtifact::fingerprint(std::span<const TranscriptSegment> segments) {
    return SHA256::hex(json::encode(segments, json::Keys::sorted));
}

MeetingTitleArtifact MeetingTitleArtifact::make(std::string transcriptFingerprint, std::string_view title) {
    const auto trimmed = text::trimmed(title);
    if (trimmed.empty() || text::exceeds(trimmed, maximumTitleCharacters) || trimmed == defaultMeetingTitle ||
        text::containsControl(trimmed)) {
        throw MeetingError::invalidData("Das Modell hat keinen gültigen kurzen Meeting-Titel geliefert.");
    }
    return {std::move(transcriptFingerprint), std::string(trimmed)};
}

}  // namespace meetingcore
