#pragma once

#include <span>
#include <string>

#include "MeetingCore/Summary/ModelCatalog.h"

namespace meetingcore {

/// The whole worker: one task for one meeting, progress as JSON lines on standard output. `arguments` are those
/// of the process, its own path first:
///
///     --protocol 1 --session <UUID> --root <data folder> --models <model folder> [--title-only]
///
/// Returns the exit status: 0, or 1 after an error, whose German message is the last line's. Call once per
/// process.
int runSummaryWorker(std::span<const std::string> arguments, const ModelCatalog& catalog);

}  // namespace meetingcore
