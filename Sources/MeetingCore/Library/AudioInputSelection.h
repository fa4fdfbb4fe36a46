#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// Which of the two tracks a recording captures.
struct AudioInputSelection {
    /// Stands in a session's manifest for the microphone or the application of a track that is switched off.
    static constexpr std::string_view disabledID = "local.quillmoot.audio-off";

    /// The process id that means that no meeting application is captured.
    static constexpr std::int32_t disabledApplicationPID = 0;

    bool microphoneEnabled = false;
    bool meetingEnabled = false;

    /// Without a microphone's id the system's own is meant, so the track is on.
    AudioInputSelection(std::int32_t applicationPID, const std::optional<std::string>& microphoneID);
    explicit AudioInputSelection(const MeetingSession& session);

    bool hasInput() const { return microphoneEnabled || meetingEnabled; }

    /// The captured tracks, the microphone first.
    std::vector<AudioSource> sources() const;

    bool operator==(const AudioInputSelection&) const = default;
};

}  // namespace meetingcore
