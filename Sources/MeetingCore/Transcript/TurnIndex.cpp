#include "MeetingCore/Transcript/TurnIndex.h"

#include <algorithm>
#include <cstddef>

namespace meetingcore {

namespace {

struct Boundary {
    double seconds;
    std::size_t turn;
    bool starts;
};

std::vector<Boundary> boundaries(std::span<const SpeakerTurn> turns, AudioSource source) {
    std::vector<Boundary> found;
    for (std::size_t i = 0; i < turns.size(); ++i) {
        const auto& turn = turns[i];
        if (turn.source.value_or(AudioSource::meeting) != source || !(turn.startSeconds < turn.endSeconds))
            continue;
        found.push_back({turn.startSeconds, i, true});
        found.push_back({turn.endSeconds, i, false});
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
    return found;
}

}  // namespace

TurnIndex::TurnIndex(std::span<const SpeakerTurn> turns, AudioSource source) {
    std::size_t activeCount = 0;
    std::size_t activeSum = 0;  // of the active turns' numbers: the number itself while there is only one
    const auto all = boundaries(turns, source);
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (all[i].starts) {
            ++activeCount;
            activeSum += all[i].turn;
        } else {
            --activeCount;
            activeSum -= all[i].turn;
        }
        if (i + 1 < all.size() && all[i + 1].seconds == all[i].seconds) continue;
        stretches_.push_back({all[i].seconds, activeCount == 1 ? &turns[activeSum] : nullptr});
    }
}

bool TurnIndex::holds(std::size_t stretch, double seconds) const {
    return stretch < stretches_.size() && stretches_[stretch].startSeconds <= seconds &&
           (stretch + 1 == stretches_.size() || seconds < stretches_[stretch + 1].startSeconds);
}

const SpeakerTurn* TurnIndex::onlyTurnAt(double seconds) {
    if (holds(last_, seconds)) return stretches_[last_].onlyTurn;
    if (holds(last_ + 1, seconds)) return stretches_[++last_].onlyTurn;
    const auto next =
        std::upper_bound(stretches_.begin(), stretches_.end(), seconds,
                         [](double at, const Stretch& stretch) { return at < stretch.startSeconds; });
    if (next == stretches_.begin()) return nullptr;
    last_ = static_cast<std::size_t>(next - stretches_.begin()) - 1;
    return stretches_[last_].onlyTurn;
}

}  // namespace meetingcore
