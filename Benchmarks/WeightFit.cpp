#include "WeightFit.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "MeetingCore/Summary/Dialogue.h"

namespace meetingcore {

namespace {

using testing::MarkedMeeting;

static_assert(static_cast<int>(MarkedMeeting::main) == static_cast<int>(Finding::Kind::mainPoint) &&
                  static_cast<int>(MarkedMeeting::task) == static_cast<int>(Finding::Kind::task),
              "marks and findings have their kinds in the same order");

// Chosen by what meetings left out of the fit show.
constexpr double shrinkage = 2;         ///< the larger, the nearer to 0 the weights stay
constexpr double supportWeight = 0.3;   ///< of segments that merely support a mark: not quite without a point
constexpr double optionalWeight = 0.5;  ///< of marks on which careful people differ
constexpr std::size_t fewestMeetings = 3;
constexpr std::size_t fewestSentences = 6;
constexpr int assignments = 4;
constexpr int coarseSteps = 200;
constexpr int steps = 300;

/// A sentence as the fit sees it.
struct Example {
    Dialogue::Signals signals;
    double target = 0;
    double weight = 1;
    std::size_t segment = 0;  ///< unique over all meetings
};

bool holds(const std::vector<std::size_t>& places, std::size_t place) {
    return std::find(places.begin(), places.end(), place) != places.end();
}

void judge(Example& example, const MarkedMeeting& meeting, std::size_t kind, std::size_t segment) {
    bool marked = false, optional = false, supports = false;
    for (const auto& mark : meeting.marks) {
        if (mark.kind != kind) continue;
        (mark.optional ? optional : marked) |= holds(mark.places, segment);
        supports = supports || holds(mark.support, segment);
    }
    example.target = marked || optional ? 1 : 0;
    example.weight = marked ? 1 : optional ? optionalWeight : supports ? supportWeight : 1;
}

class Fit {
public:
    explicit Fit(std::vector<Example> examples) : examples_(std::move(examples)) {
        for (std::size_t i = 0; i < examples_.size(); ++i) {
            if (examples_[i].target > 0) marked_[examples_[i].segment].push_back(i);
        }
        for (const auto& [segment, sentences] : marked_) {
            for (const auto i : sentences) {
                wholes_[segment] = examples_[i].weight;
                examples_[i].weight /= static_cast<double>(sentences.size());
            }
        }
    }

    /// A mark tells the segment, not the sentence: at first each bears an equal part, then the more the
    /// likelier the last weights hold it.
    std::vector<double> weights() {
        for (int i = 0; i < assignments; ++i) {
            descend();
            for (const auto& [segment, sentences] : marked_) assign(wholes_[segment], sentences);
        }
        return weights_;
    }

private:
    double score(const Example& example) const {
        double sum = weights_.back();
        for (const auto& [signal, value] : example.signals) {
            sum += weights_[static_cast<std::size_t>(signal)] * static_cast<double>(value);
        }
        return sum;
    }

    void assign(double whole, const std::vector<std::size_t>& sentences) {
        std::vector<double> parts;
        double sum = 0;
        for (const auto i : sentences) sum += parts.emplace_back(std::exp(1.5 * score(examples_[i])));
        for (std::size_t i = 0; i < parts.size(); ++i) {
            examples_[sentences[i]].weight = whole * parts[i] / sum;
        }
    }

    /// Gradient descent with a step of its own for each weight (Adam).
    void descend() {
        double marked = 0, all = 0;
        for (const auto& example : examples_) {
            marked += example.weight * example.target;
            all += example.weight;
        }
        weights_.assign(signalCount + 1, 0);
        weights_.back() = std::log(marked / (all - marked));
        std::vector<double> mean(weights_.size()), square(weights_.size());
        for (int step = 1; step <= steps; ++step) {
            const auto slopes = gradient();
            const double size = step < coarseSteps ? 0.05 : 0.01;
            for (std::size_t i = 0; i < weights_.size(); ++i) {
                mean[i] = 0.9 * mean[i] + 0.1 * slopes[i];
                square[i] = 0.98 * square[i] + 0.02 * slopes[i] * slopes[i];
                const double root = std::sqrt(square[i] / (1 - std::pow(0.98, step)));
                weights_[i] -= size * mean[i] / (1 - std::pow(0.9, step)) / (root + 1e-8);
            }
        }
    }

    std::vector<double> gradient() const {
        std::vector<double> slopes(weights_.size());
        for (std::size_t i = 0; i < signalCount; ++i) slopes[i] = shrinkage * weights_[i];
        for (const auto& example : examples_) {
            const double error = (1 / (1 + std::exp(-score(example))) - example.target) * example.weight;
            for (const auto& [signal, value] : example.signals) {
                slopes[static_cast<std::size_t>(signal)] += error * static_cast<double>(value);
            }
            slopes.back() += error;
        }
        return slopes;
    }

    std::vector<Example> examples_;
    std::map<std::size_t, std::vector<std::size_t>> marked_;  ///< by segment: its sentences
    std::map<std::size_t, double> wholes_;                    ///< by segment: what they weigh together
    std::vector<double> weights_;
};

/// Leaves out what too few show to say anything.
void dropRare(std::vector<std::vector<Example>>& meetings) {
    std::map<Signal, std::pair<std::set<std::size_t>, std::size_t>> seen;
    for (std::size_t i = 0; i < meetings.size(); ++i) {
        for (const auto& example : meetings[i]) {
            for (const auto& [signal, value] : example.signals) {
                seen[signal].first.insert(i);
                ++seen[signal].second;
            }
        }
    }
    for (auto& meeting : meetings) {
        for (auto& example : meeting) {
            std::erase_if(example.signals, [&](const auto& of) {
                const auto& [in, count] = seen[of.first];
                return in.size() < fewestMeetings || count < fewestSentences;
            });
        }
    }
}

}  // namespace

WeightTable fitWeights(std::span<const MarkedMeeting> meetings) {
    std::vector<std::vector<Example>> sentences;
    std::size_t segments = 0;
    for (const auto& meeting : meetings) {
        Reading reading(meeting.document);
        const Dialogue dialogue(reading, fittedWeights());
        auto& list = sentences.emplace_back();
        for (std::size_t i = 0; i < reading.text.sentences().size(); ++i) {
            list.push_back({dialogue.signalsOf(i), 0, 1, segments + reading.text.sentences()[i].segment});
        }
        segments += meeting.document.segments.size();
    }
    dropRare(sentences);
    auto table = fittedWeights();
    for (std::size_t kind = 0; kind < Finding::kindCount; ++kind) {
        std::vector<Example> examples;
        std::size_t first = 0;
        for (std::size_t i = 0; i < meetings.size(); ++i) {
            for (auto& example : sentences[i]) {
                judge(example, meetings[i], kind, example.segment - first);
                examples.push_back(example);
            }
            first += meetings[i].document.segments.size();
        }
        const auto weights = Fit(std::move(examples)).weights();
        for (std::size_t i = 0; i < weights.size(); ++i) {
            table[i].weights[kind] = static_cast<float>(std::round(weights[i] * 100) / 100);
        }
    }
    return table;
}

}  // namespace meetingcore
