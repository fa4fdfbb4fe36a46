#include "MeetingCore/Summary/SentenceRank.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>

namespace meetingcore {

namespace {

constexpr std::size_t fewestStems = 3;
constexpr std::size_t linkingStems = 8;  ///< the rarest of a segment, by which it finds others
constexpr std::size_t reach = 12;        ///< segments before and behind that one stem leads to
constexpr std::size_t mostLinks = 16;    ///< kept for each segment
constexpr double weakestLink = 0.08;
constexpr double damping = 0.85;
constexpr int rounds = 25;

struct Weighted {
    std::uint32_t id;
    double weight;
};

std::vector<std::uint32_t> stemsOf(const GermanText& text, std::span<const GermanSentence> sentences,
                                   const std::vector<bool>& ignored) {
    std::vector<std::uint32_t> stems;
    for (const auto& sentence : sentences) {
        for (const auto& token : text.tokens(sentence)) {
            const auto stem = text.words()[token.word].stem;
            if (stem != GermanWord::noStem && !ignored[token.word]) stems.push_back(stem);
        }
    }
    std::sort(stems.begin(), stems.end());
    stems.erase(std::unique(stems.begin(), stems.end()), stems.end());
    return stems;
}

class Graph {
public:
    Graph(const GermanText& text, std::size_t segmentCount, const std::vector<bool>& ignored)
        : places_(text.stemCount()), vectors_(segmentCount) {
        const auto& sentences = text.sentences();
        for (std::size_t first = 0, end = 0; first < sentences.size(); first = end) {
            const auto i = sentences[first].segment;
            while (end < sentences.size() && sentences[end].segment == i) ++end;
            const auto stems = stemsOf(text, std::span(sentences).subspan(first, end - first), ignored);
            if (stems.size() < fewestStems) continue;
            for (const auto stem : stems) {
                places_[stem].push_back(static_cast<std::uint32_t>(i));
                vectors_[i].push_back({stem, 0});
            }
        }
        weigh();
        link();
    }

    std::vector<double> centralities() const {
        std::vector<double> scores(vectors_.size());
        for (std::size_t i = 0; i < scores.size(); ++i) scores[i] = vectors_[i].empty() ? 0 : 1;
        const auto base = scores;
        std::vector<double> next(scores.size());
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t i = 0; i < next.size(); ++i) next[i] = (1 - damping) * base[i];
            for (std::size_t i = 0; i < scores.size(); ++i) {
                for (const auto& link : links_[i]) next[link.id] += damping * scores[i] * link.weight;
            }
            scores.swap(next);
        }
        return scores;
    }

private:
    /// Vectors of length 1, the weight of a stem falling with the number of segments that have it.
    void weigh() {
        for (auto& vector : vectors_) {
            double squares = 0;
            for (auto& [stem, weight] : vector) {
                weight = std::log(1 + static_cast<double>(vectors_.size()) /
                                          static_cast<double>(places_[stem].size()));
                squares += weight * weight;
            }
            for (auto& entry : vector) entry.weight /= std::sqrt(squares);
        }
    }

    void link() {
        links_.resize(vectors_.size());
        std::vector<std::uint32_t> near;
        for (std::size_t i = 0; i < vectors_.size(); ++i) {
            auto rarest = vectors_[i];
            const auto kept = std::min(linkingStems, rarest.size());
            std::partial_sort(rarest.begin(), rarest.begin() + static_cast<std::ptrdiff_t>(kept), rarest.end(),
                              [](const auto& a, const auto& b) {
                                  return std::pair(-a.weight, a.id) < std::pair(-b.weight, b.id);
                              });
            rarest.resize(kept);
            near.clear();
            for (const auto& entry : rarest) gather(static_cast<std::uint32_t>(i), places_[entry.id], near);
            std::sort(near.begin(), near.end());
            near.erase(std::unique(near.begin(), near.end()), near.end());
            linkTo(i, near);
        }
    }

    static void gather(std::uint32_t from, const std::vector<std::uint32_t>& places,
                       std::vector<std::uint32_t>& near) {
        const auto own = std::lower_bound(places.begin(), places.end(), from) - places.begin();
        const auto begin = std::max<std::ptrdiff_t>(0, own - static_cast<std::ptrdiff_t>(reach));
        const auto end = std::min(std::ssize(places), own + static_cast<std::ptrdiff_t>(reach) + 1);
        for (auto i = begin; i < end; ++i) {
            if (i != own) near.push_back(places[static_cast<std::size_t>(i)]);
        }
    }

    void linkTo(std::size_t from, const std::vector<std::uint32_t>& near) {
        auto& links = links_[from];
        for (const auto other : near) {
            const auto weight = cosine(vectors_[from], vectors_[other]);
            if (weight >= weakestLink) links.push_back({other, weight});
        }
        std::sort(links.begin(), links.end(), [](const auto& a, const auto& b) {
            return std::pair(-a.weight, a.id) < std::pair(-b.weight, b.id);
        });
        if (links.size() > mostLinks) links.resize(mostLinks);
        double sum = 0;
        for (const auto& link : links) sum += link.weight;
        for (auto& link : links) link.weight /= sum;
        links.shrink_to_fit();
    }

    static double cosine(std::span<const Weighted> a, std::span<const Weighted> b) {
        double sum = 0;
        for (std::size_t i = 0, j = 0; i < a.size() && j < b.size();) {
            if (a[i].id == b[j].id)
                sum += a[i++].weight * b[j++].weight;
            else if (a[i].id < b[j].id)
                ++i;
            else
                ++j;
        }
        return sum;
    }

    std::vector<std::vector<std::uint32_t>> places_;  ///< by stem: the segments that have it, ascending
    std::vector<std::vector<Weighted>> vectors_;      ///< by segment: its stems, ascending
    std::vector<std::vector<Weighted>> links_;        ///< by segment; the weights add up to 1
};

}  // namespace

std::vector<double> rankSegments(const GermanText& text, std::size_t segmentCount,
                                 const std::vector<bool>& ignoredWords) {
    return Graph(text, segmentCount, ignoredWords).centralities();
}

}  // namespace meetingcore
