#include "MeetingCore/Library/ProcessingSnapshot.h"

#include <utility>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore {

template ProcessingSnapshot json::decode(std::string_view, const std::string&);

ProcessingSnapshot ProcessingSnapshot::load(const UUID& session, const std::filesystem::path& root,
                                            SQLiteJobStore& database, Date now, FileManager& files) {
    auto document = TranscriptStorage::load(session, root, database, files);
    auto summary = TranscriptStorage::readOptional<SummaryArtifact>(
        layout::meetingFolder(root, session) / layout::summary, files);
    return {now,
            std::move(document.rawSegments),
            std::move(document.segments),
            std::move(document.edits),
            std::move(document.diarization),
            std::move(summary)};
}

}  // namespace meetingcore
