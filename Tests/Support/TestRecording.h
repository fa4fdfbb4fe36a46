#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "MeetingCore/Recording/Models.h"

namespace meetingcore::testing {

inline MeetingSession testSession() {
    MeetingSession session;
    session.id = UUID::random();
    session.createdAt = Date::since1970(1'700'000'000.25);
    session.title = "Wochenrunde";
    session.applicationBundleID = "example.meeting";
    session.consentConfirmed = true;
    return session;
}

inline AudioChunk testChunk(const UUID& session, std::int64_t sequence, double startSeconds,
                            std::int64_t sampleCount, AudioSource source = AudioSource::microphone) {
    AudioChunk chunk;
    chunk.id = UUID::random();
    chunk.sessionID = session;
    chunk.source = source;
    chunk.sequence = sequence;
    chunk.startSeconds = startSeconds;
    chunk.sampleCount = sampleCount;
    return chunk;
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
