#include "MeetingCore/Presentation/TranscriptPresentation.h"

#include <vector>

namespace meetingcore {

std::unordered_map<TranscriptSpeakerKey, SpeakerColorPreset> SpeakerColors::assignments(
    std::span<const TranscriptBlock> blocks, SpeakerColorPreset personal) {
    std::vector<SpeakerColorPreset> palette;
    for (std::size_t i = 0; i < json::names<SpeakerColorPreset>.size(); ++i) {
        const auto preset = static_cast<SpeakerColorPreset>(i);
        if (preset != personal && preset != SpeakerColorPreset::slate) palette.push_back(preset);
    }
    std::unordered_map<TranscriptSpeakerKey, SpeakerColorPreset> colors;
    std::size_t identified = 0;
    for (const auto& block : blocks) {
        const auto [entry, isNew] = colors.try_emplace(block.speaker, SpeakerColorPreset::slate);
        if (!isNew) continue;
        if (block.speaker.speakerID) {
            entry->second = palette[identified++ % palette.size()];
        } else if (block.speaker.source == AudioSource::microphone) {
            entry->second = personal;
        }
    }
    return colors;
}

TranscriptProcessing TranscriptProcessing::of(const MeetingEntry& meeting,
                                              std::map<std::string, std::int64_t> stats,
                                              const TranscriptDocument* document, bool audioRemoved) {
    return {.loaded = true,
            .loadFailed = document == nullptr,
            .recording = meeting.isBeingRecorded(),
            .meetingState = meeting.state,
            .stats = std::move(stats),
            .hasText = document != nullptr && !document->segments.empty(),
            .diarizationPending = document != nullptr && document->diarizationPending(),
            .audioRemoved = audioRemoved};
}

TranscriptProcessingState TranscriptProcessing::resolve() const {
    using State = TranscriptProcessingState;
    const auto has = [&](const char* state) {
        const auto found = stats.find(state);
        return found != stats.end() && found->second > 0;
    };
    if (loadFailed) return State::failed;
    if (!loaded) return State::loading;
    if (recording) return State::recording;
    if (audioRemoved) {
        if (has("failed") || has("pending") || has("running") || diarizationPending) return State::partial;
    } else {
        if (has("failed")) return State::failed;
        if (has("running")) return State::processing;
        if (has("pending") || diarizationPending) return State::waiting;
    }
    if (meetingState != "completed") return State::interrupted;
    if (has("completed")) return State::complete;
    return hasText ? State::partial : State::empty;
}

}  // namespace meetingcore
