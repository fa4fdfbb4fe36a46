#include "MeetingCore/Library/WorkScheduler.h"

#include <iterator>
#include <map>
#include <utility>

namespace meetingcore::WorkScheduler {

namespace {

template <class Use>
void forEachTrack(std::span<const AudioChunk> chunks, const Use& use) {
    std::map<std::pair<UUID, AudioSource>, std::vector<AudioChunk>> tracks;
    for (const auto& chunk : chunks) tracks[{chunk.sessionID, chunk.source}].push_back(chunk);
    for (const auto& [key, track] : tracks) use(track);
}

}  // namespace

std::vector<TranscriptionWindow> windows(std::span<const AudioChunk> chunks, bool flushTail) {
    std::vector<TranscriptionWindow> all;
    forEachTrack(chunks, [&](const std::vector<AudioChunk>& track) {
        auto planned = WindowPlanner::plan(track, windowSeconds, flushTail);
        std::move(planned.begin(), planned.end(), std::back_inserter(all));
    });
    return all;
}

void enqueue(std::span<const AudioChunk> chunks, SQLiteJobStore& database, bool flushTail) {
    WorkItem item{{}, {}, "transcribe", {}};
    forEachTrack(chunks, [&](const std::vector<AudioChunk>& track) {
        for (const auto& window : WindowPlanner::plan(track, windowSeconds, flushTail)) {
            item.id = window.id();
            item.sessionID = window.sessionID;
            item.payloadJSON.clear();
            json::Writer(item.payloadJSON, json::Keys::sorted).write(window);
            database.enqueue(item);
        }
    });
}

}  // namespace meetingcore::WorkScheduler
