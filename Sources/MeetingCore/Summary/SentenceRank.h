#pragma once

#include <cstddef>
#include <vector>

#include "MeetingCore/Summary/GermanText.h"

namespace meetingcore {

/// How central each sentence is to the conversation (LexRank): sentences that share rare words vouch for each
/// other, and more so the more is said for themselves. One score for each sentence, 0 for those without at
/// least three words of content.
///
/// Each sentence is compared with a bounded number of others that share one of its rarest words, so time and
/// memory grow with the length of the conversation, not with its square.
std::vector<double> rankSegments(const GermanText& text, std::size_t segmentCount,
                                 const std::vector<bool>& ignoredWords);

}  // namespace meetingcore
