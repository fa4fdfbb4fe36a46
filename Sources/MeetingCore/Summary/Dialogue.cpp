#include "MeetingCore/Summary/Dialogue.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <unordered_set>

namespace meetingcore {

namespace {

/// From which likelihood on a sentence holds a point; by Finding::Kind.
constexpr std::array<double, Finding::kindCount> thresholds{0.22, 0.32, 0.14, 0.2};
/// From which likelihood on a turn beside it supports the point.
constexpr double support = 0.08;
constexpr std::size_t supportReach = 2;
constexpr std::size_t mostSegments = 3;

constexpr std::size_t repliesWithin = 3;
constexpr std::size_t proposalsWithin = 4;
constexpr std::size_t echoesWithin = 4;
constexpr std::size_t topicReach = 6;
constexpr std::size_t unsureWithin = 5;
constexpr float plainWords = 2;  ///< the weight of the strongest cues

constexpr std::size_t place(Finding::Kind kind) { return static_cast<std::size_t>(kind); }

/// Some of those who spoke within a few turns.
class People {
public:
    void add(std::uint32_t speaker) {
        const auto end = speakers_.begin() + static_cast<std::ptrdiff_t>(count_);
        if (std::find(speakers_.begin(), end, speaker) == end) speakers_[count_++] = speaker;
    }
    std::size_t count() const { return count_; }

private:
    std::array<std::uint32_t, std::max(repliesWithin, proposalsWithin)> speakers_{};
    std::size_t count_ = 0;
};

float share(std::size_t part, std::size_t whole) {
    return std::min(1.0F, static_cast<float>(part) / static_cast<float>(whole));
}

}  // namespace

/// Takes the signals of one sentence.
class Dialogue::Collector {
public:
    explicit Collector(Signals& list) : list_(list) {}

    void add(Signal signal, float value) {
        if (value > 0) list_.emplace_back(signal, value);
    }
    void add(Signal signal, bool holds) { add(signal, holds ? 1.0F : 0.0F); }
    void addCues(Signal first, const std::array<float, cueCount>& cues) {
        for (std::size_t i = 0; i < cueCount; ++i) {
            add(static_cast<Signal>(static_cast<std::size_t>(first) + i), cues[i] / plainWords);
        }
    }

private:
    Signals& list_;
};

Dialogue::Dialogue(Reading& reading, const WeightTable& weights)
    : reading_(reading), saidIn_(reading.text.stemCount()) {
    read();
    findChair();
    likelihoods_.resize(cues_.size());
    for (std::size_t i = 0; i < cues_.size(); ++i) judge(i, weights);
    for (auto& turn : turns_) {
        turn.best.fill(turn.firstSentence);
        for (auto i = turn.firstSentence; i < turn.endSentence; ++i) {
            for (std::size_t kind = 0; kind < turn.best.size(); ++kind) {
                if (likelihoods_[i][kind] > likelihoods_[turn.best[kind]][kind]) turn.best[kind] = i;
            }
        }
    }
}

void Dialogue::judge(std::size_t sentence, const WeightTable& weights) {
    Likelihoods sums{};
    const auto count = [&](const std::array<float, Finding::kindCount>& row, float value) {
        for (std::size_t kind = 0; kind < sums.size(); ++kind)
            sums[kind] += static_cast<double>(row[kind] * value);
    };
    count(weights.back().weights, 1);
    for (const auto& [signal, value] : signalsOf(sentence)) {
        count(weights[static_cast<std::size_t>(signal)].weights, value);
    }
    for (std::size_t kind = 0; kind < sums.size(); ++kind) {
        likelihoods_[sentence][kind] = 1 / (1 + std::exp(-sums[kind]));
    }
}

void Dialogue::read() {
    const auto& text = reading_.text;
    for (const auto& sentence : text.sentences()) {
        const auto i = cues_.size();
        cues_.push_back(reading_.rules.match(sentence));
        dated_.push_back(reading_.rules.dueDate(sentence).has_value());
        if (turns_.empty() || turns_.back().segment != sentence.segment) {
            auto& turn = turns_.emplace_back();
            turn.segment = sentence.segment;
            turn.speaker = reading_.speakers[sentence.segment];
            turn.firstSentence = i;
        }
        turnOf_.push_back(static_cast<std::uint32_t>(turns_.size() - 1));
        auto& turn = turns_.back();
        turn.endSentence = i + 1;
        for (std::size_t cue = 0; cue < cueCount; ++cue) {
            const auto weight = cues_[i].weights[cue];
            turn.second[cue] = std::max(turn.second[cue], std::min(turn.cues[cue], weight));
            turn.cues[cue] = std::max(turn.cues[cue], weight);
        }
        const auto tokens = text.tokens(sentence);
        turn.words += tokens.size();
        turn.content += text.contentWords(sentence);
        turn.questions += sentence.question ? 1 : 0;
        turn.endsInQuestion = sentence.question;
        turn.dated = turn.dated || dated_[i];
        turn.named = turn.named || cues_[i].named;
        turn.approves = turn.approves || cues_[i].approves;
        auto& stems = stems_.emplace_back();
        for (const auto& token : tokens) {
            const auto stem = text.words()[token.word].stem;
            if (stem != GermanWord::noStem && !reading_.names[token.word]) stems.push_back(stem);
        }
        std::sort(stems.begin(), stems.end());
        stems.erase(std::unique(stems.begin(), stems.end()), stems.end());
        for (const auto stem : stems) {
            if (saidIn_[stem].empty() || saidIn_[stem].back() != turnOf_[i])
                saidIn_[stem].push_back(turnOf_[i]);
        }
    }
}

/// Who leads the meeting calls others by name and asks more than they do.
void Dialogue::findChair() {
    std::map<std::uint32_t, double> leads;
    for (const auto& turn : turns_) {
        if (turn.speaker == 0) continue;
        leads[turn.speaker] += 0.3 + (turn.named ? 1 : 0) + (turn.questions > 0 ? 0.3 : 0);
    }
    const auto most = std::max_element(leads.begin(), leads.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    if (most != leads.end()) chair_ = most->first;
}

bool Dialogue::differ(const Turn& one, const Turn& other) {
    return one.speaker != other.speaker || one.speaker == 0;
}

/// The last turn of somebody else, unless it is further back than two.
const Dialogue::Turn* Dialogue::otherBefore(std::size_t turn) const {
    for (std::size_t back = 1; back <= 2 && back <= turn; ++back) {
        if (differ(turns_[turn - back], turns_[turn])) return &turns_[turn - back];
    }
    return nullptr;
}

const Dialogue::Turn* Dialogue::otherBehind(std::size_t turn) const {
    for (std::size_t ahead = 1; ahead <= 2 && turn + ahead < turns_.size(); ++ahead) {
        if (differ(turns_[turn + ahead], turns_[turn])) return &turns_[turn + ahead];
    }
    return nullptr;
}

/// Whether one of the turns from `from` up to `to` holds the word.
bool Dialogue::said(std::uint32_t stem, std::size_t from, std::size_t to, const Turn* byOtherThan) const {
    const auto& places = saidIn_[stem];
    for (auto i = std::lower_bound(places.begin(), places.end(), from); i != places.end() && *i < to; ++i) {
        if (byOtherThan == nullptr || differ(turns_[*i], *byOtherThan)) return true;
    }
    return false;
}

Dialogue::Signals Dialogue::signalsOf(std::size_t sentence) const {
    Signals signals;
    signals.reserve(signalCount / 2);
    Collector to(signals);
    formSignals(sentence, to);
    neighbourSignals(sentence, to);
    replySignals(sentence, to);
    questionSignals(sentence, to);
    echoSignals(sentence, to);
    return signals;
}

/// What the sentence shows by itself and as part of its segment.
void Dialogue::formSignals(std::size_t sentence, Collector& to) const {
    const auto& cues = cues_[sentence];
    const auto& turn = turnOf(sentence);
    const bool question = at(sentence).question, dated = dated_[sentence];
    const bool chair = chair_ && turn.speaker == *chair_;
    const auto words = reading_.text.tokens(at(sentence)).size();
    const bool first = sentence == turn.firstSentence, last = sentence + 1 == turn.endSentence;

    to.addCues(Signal::own, cues.weights);
    if (cues.opener) to.add(static_cast<Signal>(static_cast<std::size_t>(Signal::opener) + *cues.opener), true);
    to.add(Signal::hypothetical, cues.hypothetical);
    to.add(Signal::negated, cues.negated);
    to.add(Signal::asks, cues.asks);
    to.add(Signal::past, cues.past);
    to.add(Signal::numbered, cues.numbered);
    to.add(Signal::dated, dated);
    to.add(Signal::named, cues.named);
    to.add(Signal::addressed, cues.addressed);
    to.add(Signal::question, question);
    to.add(Signal::content, share(content(sentence), 8));
    to.add(Signal::brief, words <= 4);
    to.add(Signal::first, first);
    to.add(Signal::last, last);
    to.add(Signal::only, first && last);
    to.add(Signal::verbless, cues.verbless);
    to.add(Signal::settles, cues.settles);
    to.add(Signal::approves, cues.approves);
    to.add(Signal::chair, chair);
    to.add(Signal::verblessChair, cues.verbless && chair);
    to.add(Signal::verblessNegated, cues.verbless && cues.negated);
    to.add(Signal::settlesChair, cues.settles && chair);
    to.add(Signal::commitDated, dated && (cues.has(Cue::commit) || cues.has(Cue::offer)));
    to.add(Signal::commitUnfit, cues.has(Cue::commit) && cues.has(Cue::unfit));
    to.add(Signal::decideChair, cues.has(Cue::decide) && chair);
    to.add(Signal::decideNegated, cues.has(Cue::decide) && cues.negated);
    to.add(Signal::decideUnfit, cues.has(Cue::decide) && cues.has(Cue::unfit));
    to.add(Signal::deliverDated, cues.has(Cue::deliver) && dated);
    to.add(Signal::proposeQuestion, cues.has(Cue::propose) && question);
    to.add(Signal::requestDated, cues.has(Cue::request) && dated);
    to.add(Signal::requestQuestion, cues.has(Cue::request) && question);

    std::array<float, cueCount> rest{};
    for (std::size_t cue = 0; cue < cueCount; ++cue) {
        rest[cue] = cues.weights[cue] < turn.cues[cue] ? turn.cues[cue] : turn.second[cue];
    }
    to.addCues(Signal::rest, rest);
    to.add(Signal::restQuestion, turn.questions > 0 && !question);
    to.add(Signal::restEndsInQuestion, turn.endsInQuestion && !question);
    to.add(Signal::afterBrief, !first && reading_.text.tokens(at(sentence - 1)).size() <= 3);
    to.add(Signal::afterQuestion, !first && at(sentence - 1).question);
    to.add(Signal::thenQuestion, !last && at(sentence + 1).question);
    to.add(Signal::position, share(turnOf_[sentence], turns_.size()));
    const auto central = static_cast<float>(reading_.centrality[turn.segment]);
    to.add(Signal::central, central / (1 + central));
}

/// What others say right before and behind it.
void Dialogue::neighbourSignals(std::size_t sentence, Collector& to) const {
    if (const auto* turn = otherBefore(turnOf_[sentence])) {
        to.addCues(Signal::before, turn->cues);
        to.add(Signal::beforeQuestion, turn->endsInQuestion);
        to.add(Signal::beforeDated, turn->dated);
        to.add(Signal::beforeNamed, turn->named);
        to.add(Signal::beforeBrief, turn->words <= 4);
        to.add(Signal::beforeApproves, turn->approves);
    }
    if (const auto* turn = otherBehind(turnOf_[sentence])) {
        to.addCues(Signal::behind, turn->cues);
        to.add(Signal::behindQuestion, turn->endsInQuestion);
        to.add(Signal::behindDated, turn->dated);
        to.add(Signal::behindNamed, turn->named);
        to.add(Signal::behindBrief, turn->words <= 4);
        to.add(Signal::behindApproves, turn->approves);
    }
}

/// Who consents in the next turns, and whether it was proposed and consented to in the last ones.
void Dialogue::replySignals(std::size_t sentence, Collector& to) const {
    const auto own = turnOf_[sentence];
    People agreers, approvers, agreed, approved;
    bool proposed = false;
    for (std::size_t i = own + 1; i < turns_.size() && i <= own + repliesWithin; ++i) {
        const auto& turn = turns_[i];
        if (!differ(turn, turns_[own])) continue;
        if (turn.has(Cue::agree) || turn.has(Cue::accept)) agreers.add(turn.speaker);
        if (turn.approves) approvers.add(turn.speaker);
    }
    for (std::size_t i = own - std::min<std::size_t>(own, proposalsWithin); i < own; ++i) {
        const auto& turn = turns_[i];
        if (turn.has(Cue::agree)) agreed.add(turn.speaker);
        if (turn.approves) approved.add(turn.speaker);
        proposed = proposed || turn.has(Cue::propose);
    }
    to.add(Signal::agreers, share(agreers.count(), 2));
    to.add(Signal::approvers, share(approvers.count(), 2));
    to.add(Signal::agreedBefore, share(agreed.count(), 2));
    to.add(Signal::approvedBefore, share(approved.count(), 2));
    to.add(Signal::proposedBefore, proposed);
}

/// Whether others know an answer.
void Dialogue::questionSignals(std::size_t sentence, Collector& to) const {
    const auto own = turnOf_[sentence];
    const auto& cues = cues_[sentence];
    const bool question = at(sentence).question;
    std::size_t unsure = 0;
    bool open = false;
    float most = 0;
    for (std::size_t i = own + 1; i < turns_.size() && i <= own + unsureWithin; ++i) {
        unsure += turns_[i].has(Cue::unsure) ? 1 : 0;
        open = open || turns_[i].has(Cue::open);
        if (i <= own + repliesWithin) {
            most = std::max({most, turns_[i].cue(Cue::unsure), turns_[i].cue(Cue::open)});
        }
    }
    bool asked = false;
    for (std::size_t i = own - std::min<std::size_t>(own, proposalsWithin); i < own; ++i) {
        asked = asked || turns_[i].questions > 0;
    }
    const auto* next = own + 1 < turns_.size() ? &turns_[own + 1] : nullptr;
    const bool answered = next != nullptr && differ(*next, turns_[own]) && next->content >= 4 &&
                          !next->has(Cue::unsure) && !next->has(Cue::open) && !next->endsInQuestion;
    to.add(Signal::unsureAfter, share(unsure, 3));
    to.add(Signal::openAfter, open);
    to.add(Signal::answered, answered);
    to.add(Signal::unsureAfterQuestion, asked && (cues.has(Cue::unsure) || cues.has(Cue::open)));
    to.add(Signal::unsureQuestion,
           cues.has(Cue::unsure) && (question || (own > 0 && turns_[own - 1].questions > 0)));
    if (!question) return;
    to.add(Signal::questionUnsureAfter, share(unsure, 3));
    to.add(Signal::questionUnsureNext, next != nullptr && next->has(Cue::unsure));
    to.add(Signal::questionUnsureMost, most / plainWords);
    to.add(Signal::questionOpenAfter, open);
    to.add(Signal::questionContent, share(content(sentence), 8));
    to.add(Signal::questionAnswered, answered);
}

/// Whether it takes up what was said, and is taken up.
void Dialogue::echoSignals(std::size_t sentence, Collector& to) const {
    const auto own = static_cast<std::size_t>(turnOf_[sentence]);
    const auto& turn = turns_[own];
    std::size_t echoes = 0, shared = 0, back = 0, ahead = 0;
    for (const auto stem : stems_[sentence]) {
        echoes += said(stem, own - std::min(own, echoesWithin), own, &turn) ? 1 : 0;
        if (saidIn_[stem].size() < 2) continue;
        ++shared;
        back += said(stem, own - std::min(own, topicReach), own, nullptr) ? 1 : 0;
        ahead += said(stem, own + 1, own + 1 + topicReach, nullptr) ? 1 : 0;
    }
    const bool chair = chair_ && turn.speaker == *chair_;
    to.add(Signal::echo, echoes > 0);
    to.add(Signal::verblessEcho, echoes > 0 && cues_[sentence].verbless);
    to.add(Signal::chairEcho, echoes > 0 && chair);
    if (echoes > 0) to.add(Signal::echoShare, share(echoes, stems_[sentence].size()));
    if (shared == 0) return;
    to.add(Signal::back, share(back, shared));
    to.add(Signal::ahead, share(ahead, shared));
}

double Dialogue::likelihood(std::size_t turn, Finding::Kind kind) const {
    return likelihoods_[turns_[turn].best[place(kind)]][place(kind)];
}

bool Dialogue::rejects(std::size_t sentence) const {
    static const std::unordered_set<std::string_view> words = {"lassen", "lass",       "weg",
                                                               "raus",   "gestrichen", "abgelehnt"};
    const auto tokens = reading_.text.tokens(at(sentence));
    return cues_[sentence].negated || std::any_of(tokens.begin(), tokens.end(), [&](const auto& token) {
               return words.contains(reading_.text.text(token));
           });
}

/// Who takes the task on: the speaker, or who says yes to being asked.
std::optional<std::uint32_t> Dialogue::actorOf(std::size_t sentence) const {
    const auto& cues = cues_[sentence];
    const double taken = static_cast<double>(
        std::max({cues[Cue::commit], cues[Cue::offer], cues[Cue::accept], cues[Cue::deliver]}));
    const double given = static_cast<double>(std::max(cues[Cue::request], cues[Cue::assign]));
    if (taken >= given) return taken > 0 ? std::optional(at(sentence).segment) : std::nullopt;
    const auto own = turnOf_[sentence];
    if (own + 1 >= turns_.size()) return std::nullopt;
    const auto& next = turns_[own + 1];
    const bool accepts = next.has(Cue::accept) || next.has(Cue::commit) || next.approves;
    return accepts && differ(next, turns_[own]) ? std::optional(next.segment) : std::nullopt;
}

Finding Dialogue::findingAt(std::size_t turn, Finding::Kind kind) const {
    const auto sentence = turns_[turn].best[place(kind)];
    Finding finding{kind, static_cast<std::uint32_t>(sentence), turns_[turn].segment, {}, 0, {}};
    finding.likelihood = likelihoods_[sentence][place(kind)];
    finding.segments.push_back(finding.segment);
    std::vector<std::size_t> around;
    for (std::size_t distance = 1; distance <= supportReach; ++distance) {
        if (turn >= distance) around.push_back(turn - distance);
        if (turn + distance < turns_.size()) around.push_back(turn + distance);
    }
    std::erase_if(around, [&](auto other) { return likelihood(other, kind) < support; });
    std::stable_sort(around.begin(), around.end(),
                     [&](auto a, auto b) { return likelihood(a, kind) > likelihood(b, kind); });
    for (const auto other : around) {
        if (finding.segments.size() == mostSegments) break;
        finding.segments.push_back(turns_[other].segment);
        // "So machen wir's" says yes to what was said; "das lassen wir" must not stand as what it rejects.
        const auto words = turns_[other].best[place(kind)];
        if (other < turn && content(finding.sentence) < 2 && content(words) > 2 && !rejects(sentence)) {
            finding.sentence = static_cast<std::uint32_t>(words);
        }
    }
    if (kind == Finding::Kind::task) finding.actor = actorOf(sentence);
    return finding;
}

std::vector<Finding> Dialogue::findings(Finding::Kind kind) const {
    std::vector<Finding> all;
    for (std::size_t turn = 0; turn < turns_.size(); ++turn) {
        if (likelihood(turn, kind) >= thresholds[place(kind)]) all.push_back(findingAt(turn, kind));
    }
    return all;
}

}  // namespace meetingcore
