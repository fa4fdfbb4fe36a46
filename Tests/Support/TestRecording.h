#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "MeetingCore/Recording/Models.h"

namespace meetingcore::testing {

inline MeetingSession testSession() {
    return {1, UUID::random(), Date::since1970(1'700'000'000.25), "Wochenrunde", "example.meeting", {}, true};
}

inline AudioChunk testChunk(const UUID& session, std::int64_t sequence, double startSeconds,
                            std::int64_t sampleCount, AudioSource source = AudioSource::microphone) {
    return {1, UUID::random(), session, source, sequence, startSeconds, sampleCount, audio::sampleRate};
}

/// Samples that follow from the chunk's number in its track, so that whoever finds the chunk can tell whether
/// they are its own. None is zero.
inline std::vector<std::int16_t> samplesOf(const AudioChunk& chunk) {
    std::mt19937 random(static_cast<std::uint32_t>(chunk.sequence));
    std::vector<std::int16_t> samples(static_cast<std::size_t>(chunk.sampleCount));
    for (auto& sample : samples) sample = static_cast<std::int16_t>(random() % 32'767 + 1);
    return samples;
}

}  // namespace meetingcore::testing
