#include "MeetingCore/Recording/WindowPlanner.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "MeetingCore/Platform/JSONReader.h"

namespace meetingcore {

template TranscriptionWindow json::decode(std::string_view, const std::string&);

std::string TranscriptionWindow::id() const {
    return sessionID.string() + ":" + std::string(json::nameOf(source)) + ":" + chunks.front().id.string() +
           ":" + chunks.back().id.string() + ":v1";
}

namespace WindowPlanner {

namespace {

void requireOneTrack(std::span<const AudioChunk> chunks) {
    std::unordered_set<UUID> ids;
    for (const auto& chunk : chunks) ids.insert(chunk.id);
    if (ids.size() != chunks.size()) {
        throw MeetingError::invalidData("Doppelte Audioabschnitte im Verarbeitungsfenster.");
    }
    for (const auto& chunk : chunks) chunk.validate();
    const auto& first = chunks.front();
    const bool oneTrack = std::all_of(chunks.begin(), chunks.end(), [&](const AudioChunk& chunk) {
        return chunk.sessionID == first.sessionID && chunk.source == first.source;
    });
    if (!oneTrack) throw MeetingError::invalidData("Ein Fenster darf nur eine Spur einer Sitzung enthalten.");
}

}  // namespace

std::vector<TranscriptionWindow> plan(std::span<const AudioChunk> chunks, double targetSeconds,
                                      bool flushTail) {
    if (!std::isfinite(targetSeconds) || targetSeconds <= 0) {
        throw MeetingError::invalidData("Die Fensterlänge muss positiv sein.");
    }
    if (chunks.empty()) return {};
    requireOneTrack(chunks);
    std::vector<AudioChunk> sorted(chunks.begin(), chunks.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; });

    std::vector<TranscriptionWindow> windows;
    TranscriptionWindow current{sorted.front().sessionID, sorted.front().source, {}};
    double duration = 0;
    const auto close = [&] {
        if (current.chunks.empty()) return;
        windows.push_back(current);
        current.chunks.clear();
        duration = 0;
    };
    double previousEnd = sorted.front().startSeconds;
    for (const auto& chunk : sorted) {
        if (chunk.startSeconds < previousEnd - audio::timingToleranceSeconds) {
            throw MeetingError::invalidData("Überlappende Audioabschnitte sind nicht zulässig.");
        }
        if (chunk.startSeconds - previousEnd > audio::timingToleranceSeconds) close();
        current.chunks.push_back(chunk);
        duration += chunk.durationSeconds();
        previousEnd = chunk.endSeconds();
        if (duration >= targetSeconds) close();
    }
    if (flushTail) close();
    return windows;
}

}  // namespace WindowPlanner
}  // namespace meetingcore
