#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "MeetingCore/Summary/CueRules.h"

namespace meetingcore {

inline constexpr std::size_t cueCount = static_cast<std::size_t>(Cue::count);

/// What tells whether a sentence holds a point of the summary: its own words and form, and what is said around
/// it by whom. Each is a number from 0 to about 1. "Before" and "behind" are the nearest turns of others.
enum class Signal : std::uint16_t {
    own = 0,                   ///< a cue of the sentence; one signal for each Cue, in its order
    rest = own + cueCount,     ///< likewise, of the other sentences in the segment
    before = rest + cueCount,  ///< likewise, of the turn before
    behind = before + cueCount,
    opener = behind + cueCount,  ///< one for each of CueRules::openers
    hypothetical = opener + CueRules::openers.size(),
    negated,
    asks,
    past,
    numbered,
    dated,
    named,
    addressed,
    question,
    content,  ///< how many words say what it is about
    brief,    ///< at most four words
    first,    ///< of the segment
    last,
    only,
    verbless,
    settles,
    approves,
    afterBrief,     ///< the sentence before it in the segment has at most three words
    afterQuestion,  ///< the sentence before it in the segment asks
    thenQuestion,
    restQuestion,
    restEndsInQuestion,
    chair,  ///< of the speaker who most calls others by name and asks
    beforeQuestion,
    beforeDated,
    beforeNamed,
    beforeBrief,
    beforeApproves,
    behindQuestion,
    behindDated,
    behindNamed,
    behindBrief,
    behindApproves,
    agreers,    ///< how many others agree in words soon behind it
    approvers,  ///< how many others are in favour soon behind it
    agreedBefore,
    approvedBefore,
    proposedBefore,
    echo,       ///< takes up a word that another has just said
    echoShare,  ///< how many of its words do
    verblessEcho,
    verblessChair,
    verblessNegated,
    chairEcho,
    settlesChair,
    commitDated,
    commitUnfit,
    decideChair,
    decideNegated,
    decideUnfit,
    deliverDated,
    proposeQuestion,
    requestDated,
    requestQuestion,
    unsureAfter,  ///< how often somebody soon behind it does not know
    openAfter,    ///< something is left open soon behind it
    questionUnsureAfter,
    questionUnsureNext,
    questionUnsureMost,
    questionOpenAfter,
    questionContent,
    unsureQuestion,
    unsureAfterQuestion,
    answered,  ///< another says something definite right behind it
    questionAnswered,
    back,      ///< how many of its words were said in the turns before
    ahead,     ///< how many are said in the turns behind
    position,  ///< in the meeting
    central,   ///< of the segment, see rankSegments()
    count
};

inline constexpr std::size_t signalCount = static_cast<std::size_t>(Signal::count);

/// How much one signal speaks for a point of each kind.
struct SignalWeights {
    std::string_view signal;
    std::array<float, 4> weights;  ///< by Finding::Kind
};

/// One row for each Signal, then one that always counts.
struct WeightTable : std::array<SignalWeights, signalCount + 1> {};

/// The weights as they were fitted to the marked meetings.
const WeightTable& fittedWeights();

}  // namespace meetingcore
