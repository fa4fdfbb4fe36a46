#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "MeetingCore/Transcript/InferenceData.h"
#include "SummaryWorker/Progress.h"
#include "SummaryWorker/TextModel.h"

namespace meetingcore {

/// What a task works on: one meeting as it was when the worker started, and the loaded model. Refers to objects
/// that outlive the task.
struct MeetingRun {
    UUID session;
    std::filesystem::path root;           ///< the data folder
    std::filesystem::path meetingFolder;  ///< under the root, symbolic links resolved
    SQLiteJobStore& database;
    const TranscriptDocument& document;
    std::string fingerprint;          ///< of the document
    std::int64_t unfinishedJobs = 0;  ///< of the meeting: pending, running or failed
    TextModel& model;
    ProgressReport progress;
    FileManager& files = FileManager::system();

    /// The fingerprint of the transcript as it is stored now.
    std::string currentFingerprint() const;
};

/// The prompts' budget, in tokens, which leaves room below the model's own limit for a hint on a second
/// attempt.
inline constexpr std::size_t promptTokenBudget = 5400;

}  // namespace meetingcore
