#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "MeetingCore/Platform/Date.h"
#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/UUID.h"

namespace meetingcore {

/// The two tracks of a meeting, in this order.
enum class AudioSource { microphone, meeting };

template <>
inline constexpr auto json::names<AudioSource> = std::to_array<std::string_view>({"microphone", "meeting"});

/// The one audio format of the system: 16 kHz, mono, signed 16-bit little-endian PCM.
namespace audio {

inline constexpr std::int64_t sampleRate = 16'000;
inline constexpr std::int64_t maximumChunkSamples = 960'000;  ///< 60 s
inline constexpr std::int64_t maximumTrackSeconds = 86'400;   ///< 24 h
inline constexpr double timingToleranceSeconds = 0.05;        ///< for gaps and overlaps between chunks

}  // namespace audio

/// The metadata of one durable piece of a track. Stored beside its samples and as the payload of its
/// registration.
struct AudioChunk {
    std::int64_t schemaVersion = 1;
    UUID id;  ///< also the name of the chunk's folder
    UUID sessionID;
    AudioSource source = AudioSource::microphone;
    std::int64_t sequence = 0;  ///< running number within the track, from 0
    double startSeconds = 0;    ///< of the first sample, from the start of the recording
    std::int64_t sampleCount = 0;
    std::int64_t sampleRate = audio::sampleRate;

    double durationSeconds() const {
        return static_cast<double>(sampleCount) / static_cast<double>(sampleRate);
    }
    double endSeconds() const { return startSeconds + durationSeconds(); }

    /// Throws MeetingError (invalidData) unless the record is one that the store accepts.
    void validate() const;

    bool operator==(const AudioChunk&) const = default;
};

template <>
inline constexpr auto json::fields<AudioChunk> = json::record(
    json::field("schemaVersion", &AudioChunk::schemaVersion), json::field("id", &AudioChunk::id),
    json::field("sessionID", &AudioChunk::sessionID), json::field("source", &AudioChunk::source),
    json::field("sequence", &AudioChunk::sequence), json::field("startSeconds", &AudioChunk::startSeconds),
    json::field("sampleCount", &AudioChunk::sampleCount), json::field("sampleRate", &AudioChunk::sampleRate));

/// The manifest of one recording session, `session.json` in the session's folder.
struct MeetingSession {
    std::int64_t schemaVersion = 1;
    UUID id;  ///< also the name of the session's folder
    Date createdAt;
    std::string title;
    std::string applicationBundleID;          ///< the meeting application whose output is captured
    std::optional<std::string> microphoneID;  ///< the selected microphone
    bool consentConfirmed = false;            ///< the user confirmed that recording is permitted

    bool operator==(const MeetingSession&) const = default;
};

template <>
inline constexpr auto json::fields<MeetingSession> = json::record(
    json::field("schemaVersion", &MeetingSession::schemaVersion), json::field("id", &MeetingSession::id),
    json::field("createdAt", &MeetingSession::createdAt), json::field("title", &MeetingSession::title),
    json::field("applicationBundleID", &MeetingSession::applicationBundleID),
    json::field("microphoneID", &MeetingSession::microphoneID),
    json::field("consentConfirmed", &MeetingSession::consentConfirmed));

/// When and where on the clock a recording began.
struct RecordingClock {
    Date startedAt;                  ///< the recording's time zero
    std::string timeZoneIdentifier;  ///< IANA name, captured while recording: Europe/Berlin

    bool operator==(const RecordingClock&) const = default;
};

template <>
inline constexpr auto json::fields<RecordingClock> =
    json::record(json::field("startedAt", &RecordingClock::startedAt),
                 json::field("timeZoneIdentifier", &RecordingClock::timeZoneIdentifier));

}  // namespace meetingcore
