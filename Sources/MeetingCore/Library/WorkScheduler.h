#pragma once

#include <optional>
#include <span>
#include <vector>

#include "MeetingCore/Recording/SQLiteJobStore.h"
#include "MeetingCore/Recording/WindowPlanner.h"

namespace meetingcore {

/// Turns durable chunks into transcription jobs.
namespace WorkScheduler {

/// The length that a transcription window has at least, but at a gap or at the end of a track.
inline constexpr double windowSeconds = 60;

/// The windows of all tracks among the chunks, track by track. Throws as WindowPlanner does.
std::vector<TranscriptionWindow> windows(std::span<const AudioChunk> chunks, bool flushTail);

/// The window of a transcription job; nothing for a job of another kind or one that is damaged.
std::optional<TranscriptionWindow> windowOf(const JobState& job);

/// The window of a claimed job. Throws MeetingError (invalidData) for a job of another kind, and for one that
/// is damaged or named otherwise than its window.
TranscriptionWindow windowOf(const WorkItem& item);

/// What the jobs of a session cover.
struct Coverage {
    std::vector<TranscriptionWindow> windows;  ///< of the jobs, by start; their audio may be lost by now
    std::vector<AudioChunk> unplanned;         ///< the chunks that no job has
};

/// Where a chunk is lost, a plan of those that are left would cut other windows than the jobs have, and what
/// they cover would be transcribed twice. Only the unplanned chunks are to be enqueued.
Coverage coverage(const UUID& session, std::span<const AudioChunk> chunks, SQLiteJobStore& database);

/// Adds a "transcribe" job for each window of the chunks, which may belong to several sessions. The job's id
/// and payload follow from the chunks alone, so that calling again over the same chunks changes nothing. The
/// rest of a track that is shorter than a window waits for more audio unless `flushTail`.
///
/// The first error ends the call; jobs added before stay. Each new job is on stable storage before the next.
void enqueue(std::span<const AudioChunk> chunks, SQLiteJobStore& database, bool flushTail);

}  // namespace WorkScheduler
}  // namespace meetingcore
