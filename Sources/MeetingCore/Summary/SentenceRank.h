#pragma once

#include <cstddef>
#include <vector>

#include "MeetingCore/Summary/GermanText.h"

namespace meetingcore {

/// How central each segment is to the conversation (LexRank): segments that share rare words vouch for each
/// other, and the more so the more others vouch for them. One score for each segment, 0 for those without at
/// least three words of content. `ignoredWords` tells for each of the text's words whether it is left out, as
/// names are.
///
/// Each segment is compared with a bounded number of others that share one of its rarest words, so time and
/// memory grow with the length of the conversation, not with its square.
std::vector<double> rankSegments(const GermanText& text, std::size_t segmentCount,
                                 const std::vector<bool>& ignoredWords);

}  // namespace meetingcore
