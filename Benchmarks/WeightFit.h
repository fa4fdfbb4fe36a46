#pragma once

#include <span>

#include "MeetingCore/Summary/Signals.h"
#include "Support/MarkedMeeting.h"

namespace meetingcore {

/// Weights by which a logistic model tells the sentences of marked segments from all others, fitted to the
/// meetings. Deterministic.
WeightTable fitWeights(std::span<const testing::MarkedMeeting> meetings);

}  // namespace meetingcore
