#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "MeetingCore/Transcript/WorkerContracts.h"

namespace meetingcore {

/// Answers in logarithmic time which turn of one track covers an instant. Refers to the turns that it was built
/// from.
class TurnIndex {
public:
    TurnIndex(std::span<const SpeakerTurn> turns, AudioSource source);

    /// The turn with start ≤ `seconds` < end if there is exactly one, else null.
    const SpeakerTurn* onlyTurnAt(double seconds);

private:
    /// From `startSeconds` to the next stretch's start the same turns are active.
    struct Stretch {
        double startSeconds;
        const SpeakerTurn* onlyTurn;
    };

    bool holds(std::size_t stretch, double seconds) const;

    std::vector<Stretch> stretches_;
    std::size_t last_ = 0;  ///< the stretch of the last answer
};

}  // namespace meetingcore
