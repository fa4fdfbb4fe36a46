#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// All that processing has made of one meeting at one instant.
struct ProcessingSnapshot {
    Date createdAt;                                    ///< when the snapshot was taken
    std::vector<TranscriptSegment> rawSegments;        ///< as recognised
    std::vector<TranscriptSegment> correctedSegments;  ///< with speakers and the user's corrections, same order
    TranscriptEdits edits;
    std::optional<DiarizationResult> diarization;
    std::optional<SummaryArtifact> summary;  ///< as stored, whether or not it fits the transcript

    /// Reads the meeting's results from the job store and its folder. `root` is the data folder. Throws as
    /// TranscriptStorage::load does.
    static ProcessingSnapshot load(const UUID& session, const std::filesystem::path& root,
                                   SQLiteJobStore& database, Date now,
                                   FileManager& files = FileManager::system());

    bool operator==(const ProcessingSnapshot&) const = default;
};

template <>
inline constexpr auto json::fields<ProcessingSnapshot> =
    json::record(json::field("createdAt", &ProcessingSnapshot::createdAt),
                 json::field("rawSegments", &ProcessingSnapshot::rawSegments),
                 json::field("correctedSegments", &ProcessingSnapshot::correctedSegments),
                 json::field("edits", &ProcessingSnapshot::edits),
                 json::field("diarization", &ProcessingSnapshot::diarization),
                 json::field("summary", &ProcessingSnapshot::summary));

}  // namespace meetingcore
