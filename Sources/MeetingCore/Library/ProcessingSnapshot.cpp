#include "MeetingCore/Library/ProcessingSnapshot.h"

#include <utility>

#include "MeetingCore/Platform/JSONReader.h"

namespace meetingcore {

template ProcessingSnapshot json::decode(std::string_view, const std::string&);

ProcessingSnapshot ProcessingSnapshot::load(const UUID& session, const std::filesystem::path& root,
                                            SQLiteJobStore& database, Date now, FileManager& files) {
    auto document = TranscriptStorage::load(session, root, database, files);
    auto summary = TranscriptStorage::readOptional<SummaryArtifact>(
        TranscriptStorage::sessionDirectory(root, session) / "summary.json", files);
    return {now,
            std::move(document.rawSegments),
            std::move(document.segments),
            std::move(document.edits),
            std::move(document.diarization),
            std::move(summary)};
}

}  // namespace meetingcore
