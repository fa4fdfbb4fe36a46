#pragma once

#include "MeetingCore/Summary/SummaryRun.h"
#include "SummaryWorker/Progress.h"
#include "SummaryWorker/TextModel.h"

namespace meetingcore {

/// What a task works with: the meeting and the loaded model. Refers to objects that outlive the task.
struct MeetingRun {
    const SummaryRun& meeting;
    TextModel& model;
    ProgressReport progress;
};

}  // namespace meetingcore
