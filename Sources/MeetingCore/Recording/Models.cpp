#include "MeetingCore/Recording/Models.h"

#include <cmath>

#include "MeetingCore/Platform/JSONReader.h"

namespace meetingcore {

template AudioSource json::decode(std::string_view, const std::string&);
template AudioChunk json::decode(std::string_view, const std::string&);
template MeetingSession json::decode(std::string_view, const std::string&);
template RecordingClock json::decode(std::string_view, const std::string&);

void AudioChunk::validate() const {
    const bool valid = schemaVersion == 1 && sampleRate == audio::sampleRate && sampleCount > 0 &&
                       sampleCount <= audio::maximumChunkSamples && sequence >= 0 &&
                       std::isfinite(startSeconds) && startSeconds >= 0;
    if (!valid) throw MeetingError::invalidData("Ungültige Audioabschnitt-Metadaten.");
}

}  // namespace meetingcore
