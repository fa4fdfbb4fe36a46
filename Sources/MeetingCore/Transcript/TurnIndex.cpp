#include "MeetingCore/Transcript/TurnIndex.h"

#include <algorithm>
#include <cstddef>

namespace meetingcore {

namespace {

struct Boundary {
    double seconds;
    std::size_t turn;
};

void sort(std::vector<Boundary>& boundaries) {
    const auto before = [](const auto& a, const auto& b) { return a.seconds < b.seconds; };
    if (!std::is_sorted(boundaries.begin(), boundaries.end(), before))
        std::sort(boundaries.begin(), boundaries.end(), before);
}

}  // namespace

// Diarizers write turns by start, and most ends are in that order too: two lists that are sorted already.
TurnIndex::TurnIndex(std::span<const SpeakerTurn> turns, AudioSource source) {
    std::vector<Boundary> starts;
    std::vector<Boundary> ends;
    for (std::size_t i = 0; i < turns.size(); ++i) {
        const auto& turn = turns[i];
        if (turn.source.value_or(AudioSource::meeting) != source || !(turn.startSeconds < turn.endSeconds))
            continue;
        starts.push_back({turn.startSeconds, i});
        ends.push_back({turn.endSeconds, i});
    }
    sort(starts);
    sort(ends);
    std::size_t activeCount = 0;
    std::size_t activeSum = 0;  // of the active turns' numbers: the number itself while there is only one
    stretches_.reserve(starts.size() + ends.size());
    auto start = starts.begin();
    for (auto end = ends.begin(); end != ends.end();) {
        const auto seconds = start == starts.end() ? end->seconds : std::min(start->seconds, end->seconds);
        for (; start != starts.end() && start->seconds == seconds; ++start) {
            ++activeCount;
            activeSum += start->turn;
        }
        for (; end != ends.end() && end->seconds == seconds; ++end) {
            --activeCount;
            activeSum -= end->turn;
        }
        stretches_.push_back({seconds, activeCount == 1 ? &turns[activeSum] : nullptr});
    }
}

bool TurnIndex::holds(std::size_t stretch, double seconds) const {
    return stretch < stretches_.size() && stretches_[stretch].startSeconds <= seconds &&
           (stretch + 1 == stretches_.size() || seconds < stretches_[stretch + 1].startSeconds);
}

const SpeakerTurn* TurnIndex::onlyTurnAt(double seconds) {
    // Segments come by time: the next one is in the same stretch or a few further on.
    constexpr std::size_t nearby = 4;
    for (auto stretch = last_; stretch <= last_ + nearby; ++stretch) {
        if (holds(stretch, seconds)) return stretches_[last_ = stretch].onlyTurn;
    }
    const auto next =
        std::upper_bound(stretches_.begin(), stretches_.end(), seconds,
                         [](double at, const Stretch& stretch) { return at < stretch.startSeconds; });
    if (next == stretches_.begin()) return nullptr;
    last_ = static_cast<std::size_t>(next - stretches_.begin()) - 1;
    return stretches_[last_].onlyTurn;
}

}  // namespace meetingcore
