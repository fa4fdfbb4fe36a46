#pragma once

#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// Consecutive chunks of one track that are transcribed together. Never empty, ascending by start.
struct TranscriptionWindow {
    UUID sessionID;
    AudioSource source = AudioSource::microphone;
    std::vector<AudioChunk> chunks;

    double startSeconds() const { return chunks.front().startSeconds; }
    double endSeconds() const { return chunks.back().endSeconds(); }

    /// The job's identifier: the same chunks planned again give the same text. Its end versions the planning
    /// rule.
    std::string id() const;

    bool operator==(const TranscriptionWindow&) const = default;
};

template <>
inline constexpr auto json::fields<TranscriptionWindow> = json::record(
    json::field("sessionID", &TranscriptionWindow::sessionID),
    json::field("source", &TranscriptionWindow::source), json::field("chunks", &TranscriptionWindow::chunks));

namespace WindowPlanner {

/// Cuts the chunks of one track, in any order, into windows of at least `targetSeconds`. A gap of more than 50
/// ms closes a window early. The rest that has not reached the target is planned only with `flushTail`. Throws
/// MeetingError (invalidData) and plans nothing where the chunks do not fit together.
std::vector<TranscriptionWindow> plan(std::span<const AudioChunk> chunks, double targetSeconds, bool flushTail);

}  // namespace WindowPlanner
}  // namespace meetingcore
