#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

#include "MeetingCore/Platform/JSONFields.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/StopRequest.h"
#include "MeetingCore/Platform/UUID.h"

namespace meetingcore {

/// Starts `SummaryWorker` for one meeting and one task, and follows what it reports.
namespace SummaryProcess {

/// What the worker reports, in the order in which it comes.
enum class State { loadingSummary, summarizing, titling, titleFinished, summaryFinished, failed };

struct Task {
    UUID session;
    std::filesystem::path root;    ///< the data folder
    std::filesystem::path models;  ///< the folder with the model files
    bool titleOnly = false;        ///< the title instead of the summary
    /// The worker; without it the one beside the running program, else the one in PATH.
    std::optional<std::filesystem::path> program = {};
};

/// Runs the worker to its end. `onState` gets each state but `failed`, as it comes, on the calling thread;
/// states that a newer worker may have are passed over.
///
/// True when the result is in the meeting's folder; false after a stop request, on which the worker gets
/// SIGTERM and, five seconds later, SIGKILL. It writes its result by a rename, so what is there is whole either
/// way.
///
/// Throws MeetingError: notConfigured where there is no worker or a path is empty, storage where the system
/// cannot start it; else invalidData, whatever the worker's own kind and cause were, with its message, or one
/// that says how it ended where it could not even do that. What stands in the way of a summary has its cause in
/// SummaryRun's constructor, what is wrong with the model in ModelCatalog::verify.
bool run(const Task& task, const StopRequest& stop, const std::function<void(State)>& onState = {});

}  // namespace SummaryProcess

template <>
inline constexpr auto json::names<SummaryProcess::State> = std::to_array<std::string_view>(
    {"loadingSummary", "summarizing", "titling", "titleFinished", "summaryFinished", "failed"});

}  // namespace meetingcore
