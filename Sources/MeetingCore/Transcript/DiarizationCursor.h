#pragma once

#include <cstdint>
#include <optional>
#include <unordered_set>

#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// How far a diarizer has been fed with one track, so that every chunk is fed once and on a continuous
/// timeline.
struct DiarizationCursor {
    /// How to feed one chunk, in samples at 16 kHz.
    struct Input {
        std::int64_t silenceSamples = 0;  ///< silence to feed before the chunk
        std::int64_t dropSamples = 0;     ///< samples to skip at the chunk's start

        bool operator==(const Input&) const = default;
    };

    AudioSource source = AudioSource::microphone;
    double position = 0;  ///< seconds of the recording up to which audio has been fed
    std::unordered_set<UUID> fedIDs;

    /// How the chunk is to be fed; nothing when it was fed before. Throws MeetingError (invalidData) for a
    /// chunk of the other track or one that does not fit the timeline. Changes nothing.
    std::optional<Input> input(const AudioChunk& chunk) const;

    /// Records the chunk as fed.
    void commit(const AudioChunk& chunk);
};

}  // namespace meetingcore
