#include "MeetingCore/Transcript/DiarizationCursor.h"

#include <algorithm>
#include <cmath>

namespace meetingcore {

namespace {

std::int64_t samples(double seconds) {
    const auto rounded = std::round(seconds * static_cast<double>(audio::sampleRate));
    return std::max<std::int64_t>(0, static_cast<std::int64_t>(rounded));
}

}  // namespace

std::optional<DiarizationCursor::Input> DiarizationCursor::input(const AudioChunk& chunk) const {
    chunk.validate();
    if (chunk.source != source) throw MeetingError::invalidData("Falsche Tonspur für Sprechererkennung.");
    if (fedIDs.contains(chunk.id)) return std::nullopt;
    if (chunk.startSeconds > audio::maximumTrackSeconds ||
        chunk.startSeconds < position - audio::timingToleranceSeconds) {
        throw MeetingError::invalidData("Ungültige Diarisierungszeitachse.");
    }
    return Input{samples(chunk.startSeconds - position), samples(position - chunk.startSeconds)};
}

void DiarizationCursor::commit(const AudioChunk& chunk) {
    position = std::max(position, chunk.endSeconds());
    fedIDs.insert(chunk.id);
}

}  // namespace meetingcore
