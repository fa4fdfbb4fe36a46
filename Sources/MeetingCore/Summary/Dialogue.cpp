#include "MeetingCore/Summary/Dialogue.h"

#include <algorithm>
#include <unordered_set>

namespace meetingcore {

namespace {

constexpr double taskThreshold = 1.45;
constexpr double decisionThreshold = 1.3;
constexpr double questionThreshold = 1.35;
constexpr std::size_t repliesWithin = 3;
constexpr std::size_t openReach = 6;
constexpr std::size_t unsureReach = 3;

constexpr double when(bool holds, double value) { return holds ? value : 0; }

std::vector<std::uint32_t> ascending(std::initializer_list<std::uint32_t> segments) {
    std::vector<std::uint32_t> list(segments);
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
    return list;
}

}  // namespace

Dialogue::Dialogue(const GermanText& text, CueRules& rules, std::span<const std::uint32_t> speakers)
    : text_(text), rules_(rules), speakers_(speakers) {
    const auto& sentences = text.sentences();
    for (std::size_t i = 0; i < sentences.size(); ++i) {
        cues_.push_back(rules.match(sentences[i]));
        if (turns_.empty() || turns_.back().segment != sentences[i].segment) {
            turns_.push_back({sentences[i].segment, i, i});
        }
        turns_.back().endSentence = i + 1;
        turnOf_.push_back(static_cast<std::uint32_t>(turns_.size() - 1));
    }
}

bool Dialogue::differ(const Turn& one, const Turn& other) const {
    const auto a = speakers_[one.segment], b = speakers_[other.segment];
    return a != b || a == 0;
}

float Dialogue::strongest(const Turn& turn, Cue cue) const {
    float weight = 0;
    for (auto i = turn.firstSentence; i < turn.endSentence; ++i) weight = std::max(weight, cues_[i][cue]);
    return weight;
}

/// How strongly others show the cue in the turns behind the sentence.
double Dialogue::replies(std::size_t sentence, Cue cue, std::size_t within) const {
    double sum = 0;
    const auto own = turnOf_[sentence];
    for (auto turn = own + 1; turn < turns_.size() && turn <= own + within; ++turn) {
        if (differ(turns_[own], turns_[turn])) sum += static_cast<double>(strongest(turns_[turn], cue));
    }
    return sum;
}

/// The last sentence before this one with one of the cues, at most `within` turns back.
std::optional<std::size_t> Dialogue::before(std::size_t sentence, std::initializer_list<Cue> cues,
                                            std::size_t within) const {
    for (auto i = sentence; i > 0 && turnOf_[i - 1] + within >= turnOf_[sentence]; --i) {
        for (const auto cue : cues) {
            if (cues_[i - 1].has(cue) && !cues_[i - 1].has(Cue::unfit)) return i - 1;
        }
    }
    return std::nullopt;
}

std::size_t Dialogue::content(std::size_t sentence) const { return text_.contentWords(at(sentence)); }

std::uint32_t Dialogue::richest(const Turn& turn) const {
    auto best = turn.firstSentence;
    for (auto i = best; i < turn.endSentence; ++i) {
        if (content(i) > content(best)) best = i;
    }
    return static_cast<std::uint32_t>(best);
}

bool Dialogue::rejects(std::size_t sentence) const {
    static const std::unordered_set<std::string_view> words = {"lassen", "lass",       "weg",
                                                               "raus",   "gestrichen", "abgelehnt"};
    const auto tokens = text_.tokens(at(sentence));
    return std::any_of(tokens.begin(), tokens.end(),
                       [&](const auto& token) { return words.contains(text_.text(token)); });
}

/// "Gut, …", "also …": what follows is drawn from what was said.
bool Dialogue::concludes(std::size_t sentence) const {
    static const std::unordered_set<std::string_view> words = {"dann",  "also",  "gut",  "okay",
                                                               "somit", "damit", "schön"};
    const auto tokens = text_.tokens(at(sentence));
    return words.contains(text_.text(tokens[0])) ||
           (tokens.size() > 1 && words.contains(text_.text(tokens[1])));
}

bool Dialogue::settledSoon(std::size_t sentence) const {
    for (auto i = sentence + 1; i < cues_.size() && turnOf_[i] <= turnOf_[sentence] + 5; ++i) {
        if (cues_[i].has(Cue::decide) || isSettling(i)) return true;
    }
    return false;
}

/// Where the sentence itself says little ("Stimmt das?"), the one before it in the same breath.
std::uint32_t Dialogue::telling(std::size_t sentence) const {
    const bool poor = content(sentence) < 2 && text_.tokens(at(sentence)).size() < 5 &&
                      sentence > turnOf(sentence).firstSentence;
    return static_cast<std::uint32_t>(poor && content(sentence - 1) > content(sentence) ? sentence - 1
                                                                                        : sentence);
}

/// Also without the mark, which speech recognition may miss: "wer zahlt das", "ich soll fragen, ob …".
bool Dialogue::isQuestion(std::size_t sentence) const {
    static const std::unordered_set<std::string_view> direct = {"wer", "wann", "warum", "wieso", "woher"};
    static const std::unordered_set<std::string_view> indirect = {
        "ob", "wer", "wann", "welche", "welcher", "welches", "warum", "woher", "wie", "wo"};
    static const std::unordered_set<std::string_view> verbs = {
        "ist",  "sind", "hat",    "haben",    "kann",   "können", "soll", "sollen", "muss", "müssen",
        "gibt", "darf", "dürfen", "brauchen", "wollen", "geht",   "wird", "werden", "weiß"};
    static const std::unordered_set<std::string_view> subjects = {"das", "die", "der", "es",
                                                                  "wir", "ihr", "Sie", "man"};
    if (at(sentence).question) return true;
    const auto tokens = text_.tokens(at(sentence));
    if (direct.contains(text_.text(tokens[0]))) return true;
    if (tokens.size() > 3 && verbs.contains(text_.text(tokens[0])) && subjects.contains(text_.text(tokens[1])))
        return true;
    bool asking = cues_[sentence].has(Cue::unsure);
    for (const auto& token : tokens) {
        const auto& word = text_.text(token);
        if (asking && token.startsClause && indirect.contains(word)) return true;
        asking = asking || word == "frage" || word == "fragen" || word == "fragt" || word == "wissen";
    }
    return false;
}

/// "Gut, dann also Montag.": a result without a verb.
bool Dialogue::isSettling(std::size_t sentence) const {
    static const std::unordered_set<std::string_view> openings = {"dann", "also"};
    static const std::unordered_set<std::string_view> verbal = {
        "ich",    "du",      "er",     "sie",    "es",      "wir",      "ihr",    "Sie",    "man",
        "ist",    "sind",    "war",    "hat",    "haben",   "habe",     "wird",   "werden", "kann",
        "können", "muss",    "müssen", "soll",   "sollen",  "will",     "wollen", "geht",   "gibt",
        "was",    "wer",     "wie",    "wo",     "warum",   "das",      "nicht",  "heißt",  "wenn",
        "bleibt", "bleiben", "kommt",  "kommen", "braucht", "bräuchte", "müsste", "mir",    "mich"};
    const auto tokens = text_.tokens(at(sentence));
    if (cues_[sentence].asks || tokens.size() < 3) return false;
    bool opened = false;
    std::size_t looked = 0;
    for (std::size_t i = 0; i < tokens.size() && looked < 5; ++i) {
        const auto& word = text_.text(tokens[i]);
        if (verbal.contains(word)) return false;
        opened = opened || openings.contains(word);
        if (!opened && i >= 3) return false;
        if (opened) ++looked;
    }
    return opened;
}

/// How surely the speaker takes something on, by what is said and what came before.
double Dialogue::taking(std::size_t sentence, bool due, bool asked) const {
    const auto& cues = cues_[sentence];
    const double positive = replies(sentence, Cue::accept, 1) + replies(sentence, Cue::agree, 1);
    const double commit = weight(sentence, Cue::commit) + when(due, 0.4) + when(asked, 0.4) +
                          std::min(0.2, positive) - when(cues.has(Cue::decide), 0.3);
    const double offer =
        weight(sentence, Cue::offer) + when(due, 0.3) + when(asked, 0.3) + std::min(0.4, positive);
    const double deliver = weight(sentence, Cue::deliver) + 0.4 + when(asked, 0.3);
    return std::max({when(cues.has(Cue::commit), commit), when(cues.has(Cue::offer), offer),
                     when(due && cues.has(Cue::deliver), deliver)});
}

/// How surely the speaker gives it to somebody else.
double Dialogue::giving(std::size_t sentence, bool due) const {
    const auto& cues = cues_[sentence];
    const double positive = replies(sentence, Cue::accept, 1) + replies(sentence, Cue::agree, 1);
    const double request = weight(sentence, Cue::request) + when(due, 0.3) + std::min(0.3, positive) -
                           replies(sentence, Cue::refuse, 1) - when(cues.has(Cue::decide), 0.5);
    const double assign = weight(sentence, Cue::assign) + when(due, 0.2) + std::min(0.2, positive);
    return std::max(when(cues.has(Cue::request), request), when(cues.has(Cue::assign), assign));
}

void Dialogue::findTask(std::size_t sentence, std::vector<Finding>& to) const {
    const auto& cues = cues_[sentence];
    const auto segment = at(sentence).segment;
    const bool due = rules_.dueDate(at(sentence)).has_value();
    const auto asked = before(sentence, {Cue::request, Cue::need, Cue::assign}, 2);
    const bool byOther = asked && differ(turnOf(*asked), turnOf(sentence));
    const double taken = taking(sentence, due, asked.has_value());
    const double given = giving(sentence, due);
    const double accepted = when(byOther && cues.has(Cue::accept), 1.5);
    const bool conditional = !due && text_.text(text_.tokens(at(sentence))[0]) == "wenn";
    const double score = std::max({taken, given, accepted}) - when(cues.has(Cue::unfit), 1.0) -
                         when(cues.past, 0.6) - when(conditional, 0.5);
    if (score < taskThreshold) return;

    Finding task{Finding::Kind::task, static_cast<std::uint32_t>(sentence), segment, {}, score, std::nullopt};
    auto context = segment, reply = segment;
    const auto turn = turnOf_[sentence];
    if (given >= std::max(taken, accepted)) {
        if (turn + 1 < turns_.size() && differ(turns_[turn + 1], turns_[turn]) &&
            (strongest(turns_[turn + 1], Cue::accept) > 0 || strongest(turns_[turn + 1], Cue::commit) > 0)) {
            reply = turns_[turn + 1].segment;
            task.actor = reply;
        }
    } else {
        task.actor = segment;
        if (byOther) {
            context = at(*asked).segment;
            const bool poor = taken >= accepted ? content(sentence) < 3 && content(*asked) > content(sentence)
                                                : content(*asked) >= 2;
            if (poor) task.sentence = static_cast<std::uint32_t>(*asked);
        }
    }
    if (context == segment && turn > 0 && content(richest(turns_[turn])) < 2) {
        context = turns_[turn - 1].segment;  // "Das mache ich.": what, was said before
    }
    task.sentence = telling(task.sentence);
    task.segments = ascending({context, segment, reply});
    to.push_back(std::move(task));
}

/// "So machen wir's" says yes to what was said last; "das lassen wir" must not stand as the idea it rejects.
std::uint32_t Dialogue::meantBy(std::size_t sentence) const {
    const bool affirms = !cues_[sentence].negated && content(sentence) == 0 && !rejects(sentence);
    if (affirms && turnOf_[sentence] > 0) {
        const auto meant = richest(turns_[turnOf_[sentence] - 1]);
        if (content(meant) >= 3) return meant;
    }
    return static_cast<std::uint32_t>(sentence);
}

void Dialogue::findDecision(std::size_t sentence, std::vector<Finding>& to) const {
    const auto& cues = cues_[sentence];
    const auto segment = at(sentence).segment;
    const double refused = replies(sentence, Cue::refuse, 1);
    const bool objections = cues[Cue::propose] > 1;  // "dagegen hat niemand etwas?": no means yes
    const double agreed = replies(sentence, Cue::agree, repliesWithin) + (objections ? refused : -refused);
    if (cues.has(Cue::open)) return;
    const auto proposed = before(sentence, {Cue::propose}, 4);
    double score = weight(sentence, Cue::decide);
    const bool settles = score < 1 && isSettling(sentence);
    if (settles) score = 1.1;
    if (score > 0) {
        score += when(proposed.has_value(), 0.3) + when(!settles && concludes(sentence), 0.25) +
                 std::clamp(agreed * 0.25, -0.5, 0.5);
    } else if (cues.has(Cue::propose) && !settledSoon(sentence)) {
        score = weight(sentence, Cue::propose) * 0.5 + std::clamp(agreed * 0.4, -1.0, 1.2);
    } else {
        return;
    }
    score -= when(cues.past, 0.8) + when(cues.hypothetical, 0.5) + when(cues.has(Cue::unfit), 1.0);
    if (score < decisionThreshold) return;
    const auto words = meantBy(sentence);
    auto context = segment;
    if (proposed && turnOf_[sentence] - turnOf_[*proposed] <= 3) {
        context = at(*proposed).segment;
    } else if (turnOf_[sentence] > 0 && content(richest(turnOf(sentence))) < 4) {
        context = turns_[turnOf_[sentence] - 1].segment;
    }
    to.push_back({Finding::Kind::decision, words, segment, ascending({at(words).segment, context, segment}),
                  score, std::nullopt});
}

void Dialogue::findQuestion(std::size_t sentence, std::vector<Finding>& to) const {
    const auto& cues = cues_[sentence];
    if (!cues.has(Cue::open) && !cues.has(Cue::unsure)) return;
    const auto segment = at(sentence).segment;
    const bool open = cues.has(Cue::open);
    const auto asked = questionBefore(sentence, open ? openReach : unsureReach);
    double score = std::max(weight(sentence, Cue::open), weight(sentence, Cue::unsure)) - when(cues.past, 0.5);
    if (asked) score += turnOf_[sentence] - turnOf_[*asked] <= 2 ? 0.4 : 0.3;
    score += std::min(0.4, 0.4 * (replies(sentence, Cue::unsure, 2) + replies(sentence, Cue::open, 2)));
    if (!asked && (content(sentence) < 2 || !open)) return;
    if (score < questionThreshold) return;
    const auto words = telling(asked.value_or(sentence));
    auto between = segment;
    for (auto i = words + 1; i < sentence; ++i) {
        if (cues_[i].has(Cue::unsure) || cues_[i].has(Cue::open)) between = at(i).segment;
    }
    to.push_back({Finding::Kind::openQuestion, words, segment, ascending({at(words).segment, between, segment}),
                  score, std::nullopt});
}

/// Whether somebody else says something definite right behind it.
bool Dialogue::answered(std::size_t question) const {
    const auto next = turnOf_[question] + 1;
    if (next >= turns_.size() || !differ(turns_[next], turnOf(question))) return false;
    const auto& turn = turns_[next];
    return strongest(turn, Cue::unsure) <= 0 && strongest(turn, Cue::open) <= 0 &&
           !at(turn.endSentence - 1).question && content(richest(turn)) >= 2;
}

/// The question that the sentence leaves without an answer: a full one rather than the latest.
std::optional<std::size_t> Dialogue::questionBefore(std::size_t sentence, std::size_t within) const {
    std::optional<std::size_t> best;
    double bestValue = 0;
    for (auto i = sentence + 1; i > 0 && turnOf_[i - 1] + within >= turnOf_[sentence]; --i) {
        if (!isQuestion(i - 1) || cues_[i - 1].has(Cue::request)) continue;
        const auto words = static_cast<double>(content(telling(i - 1)));
        const double value = std::min(words, 5.0) - 0.6 * (turnOf_[sentence] - turnOf_[i - 1]) + 4 +
                             when(differ(turnOf(i - 1), turnOf(sentence)), 1.5) +
                             when(!at(i - 1).question && cues_[i - 1].has(Cue::unsure), 2) -
                             when(answered(i - 1), 3);
        if (words >= 1 && value > bestValue) {
            best = i - 1;
            bestValue = value;
        }
    }
    return best;
}

std::vector<Finding> Dialogue::findings() const {
    std::vector<Finding> all;
    for (std::size_t i = 0; i < cues_.size(); ++i) {
        findTask(i, all);
        findDecision(i, all);
        findQuestion(i, all);
    }
    return all;
}

}  // namespace meetingcore
