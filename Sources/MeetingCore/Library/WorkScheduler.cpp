#include "MeetingCore/Library/WorkScheduler.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_set>
#include <utility>

#include "MeetingCore/Platform/MeetingError.h"

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

std::optional<TranscriptionWindow> windowOf(const JobState& job) {
    if (job.kind != "transcribe") return std::nullopt;
    try {
        auto window = json::decode<TranscriptionWindow>(job.payloadJSON, "Der Auftrag");
        if (!window.chunks.empty()) return window;
    } catch (const MeetingError&) {
        // Nothing can be told of it.
    }
    return std::nullopt;
}

TranscriptionWindow windowOf(const WorkItem& item) {
    if (item.kind != "transcribe") throw MeetingError::invalidData("Unbekannter Auftragstyp.");
    auto window = json::decode<TranscriptionWindow>(item.payloadJSON, "Der Auftrag");
    if (window.chunks.empty() || window.sessionID != item.sessionID || window.id() != item.id)
        throw MeetingError::invalidData("Ungültiges Verarbeitungsfenster.");
    return window;
}

Coverage coverage(const UUID& session, std::span<const AudioChunk> chunks, SQLiteJobStore& database) {
    Coverage coverage;
    std::unordered_set<UUID> planned;
    for (const auto& job : database.jobs(session)) {
        auto window = windowOf(job);
        if (!window) continue;
        for (const auto& chunk : window->chunks) planned.insert(chunk.id);
        coverage.windows.push_back(*std::move(window));
    }
    std::ranges::stable_sort(coverage.windows, {}, &TranscriptionWindow::startSeconds);
    std::ranges::copy_if(chunks, std::back_inserter(coverage.unplanned),
                         [&](const AudioChunk& chunk) { return !planned.contains(chunk.id); });
    return coverage;
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
