#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

/// The work on one meeting's summary or title, whatever engine does it: keeps other runs out of the library,
/// has the transcript as it was at the start, and writes a result only if it is still the same at the end.
///
/// One thread uses a run. It holds the library's inference lock until it is destroyed.
class SummaryRun {
public:
    /// `root` is the data folder. Throws MeetingError where the meeting's folder lies outside the library,
    /// where another run holds the lock, and while transcription or speaker assignment of the meeting is
    /// unfinished or nothing is transcribed. A meeting whose audio was removed on purpose is taken as it is.
    /// Makes no database where there is none.
    SummaryRun(const UUID& session, const std::filesystem::path& root,
               FileManager& files = FileManager::system());

    /// The meeting's folder, symbolic links resolved.
    const std::filesystem::path& folder() const { return folder_; }
    const TranscriptDocument& document() const { return document_; }
    const std::string& fingerprint() const { return fingerprint_; }  ///< of the document
    FileManager& files() const { return files_; }

    /// A title waits for everything, even where the audio was removed on purpose. Throws MeetingError
    /// (invalidData) while a job or the speaker assignment is unfinished.
    void requireCompleteForTitle() const;

    /// Writes "summary.json"; durable on return. Throws MeetingError where the transcript has changed since the
    /// start or the file cannot be written; an older summary then stays as it was, but where the last flush of
    /// the folder fails, the new one is in place already. `instructions` are those that the engine followed, if
    /// it follows any.
    void writeSummary(EvidenceSummary summary, std::optional<SummaryInstructions> instructions) const;

    /// The same for "automatic-title.json". Throws also for what is no valid title.
    void writeTitle(std::string_view title) const;

private:
    bool transcriptChanged() const;

    UUID session_;
    FileManager& files_;
    std::filesystem::path root_;
    std::filesystem::path folder_;
    WorkerLock lock_;
    mutable SQLiteJobStore database_;
    std::int64_t unfinishedJobs_;
    TranscriptDocument document_;
    std::string fingerprint_;
};

}  // namespace meetingcore
