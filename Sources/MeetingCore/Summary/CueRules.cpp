#include "MeetingCore/Summary/CueRules.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Summary/CuePhrases.h"
#include "MeetingCore/Summary/WordForms.h"

namespace meetingcore {

namespace {

std::vector<std::string_view> divided(std::string_view text, char at) {
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const auto end = std::min(text.find(at), text.size());
        parts.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

constexpr std::int16_t gap = -1;
constexpr std::int16_t opening = -2;
constexpr std::int16_t ending = -3;
constexpr std::size_t widestGap = 6;
constexpr std::size_t mostParticles = 3;
constexpr std::size_t nearby = 5;
constexpr std::size_t longestApproval = 7;
constexpr std::size_t longestPart = 24;  // no phrase names a longer part of a word

using Pattern = std::vector<std::int16_t>;

/// The rows as lists of numbered elements, made once per process.
class Grammar {
    using Index = std::unordered_map<std::string_view, std::vector<std::int16_t>>;

    std::unordered_map<std::string_view, std::int16_t> numbers_;
    std::vector<std::string_view> elements_;
    Index whole_, beginnings_, endings_;

public:
    struct Rule {
        Pattern pattern;
        const CuePhrases* row;
    };

    Grammar() {
        for (const auto& row : cuePhrases()) {
            for (const auto phrase : divided(row.phrases, ';')) rules.push_back({compiled(phrase), &row});
        }
        for (const auto phrase : divided(duePhrases(), ';')) due.push_back(compiled(phrase));
        rulesAt.resize(elements_.size());
        for (std::size_t i = 0; i < rules.size(); ++i) {
            rulesAt[static_cast<std::size_t>(anchor(rules[i].pattern))].push_back(
                static_cast<std::uint32_t>(i));
        }
    }

    /// The numbers of the elements that the word fits, ascending.
    std::vector<std::int16_t> elementsOf(std::string_view word, bool isNoun, bool isName) const {
        std::vector<std::int16_t> found;
        const auto add = [&](const auto& index, std::string_view key) {
            if (const auto at = index.find(key); at != index.end())
                found.insert(found.end(), at->second.begin(), at->second.end());
        };
        add(whole_, word);
        const auto longest = std::min(word.size(), longestPart);
        for (std::size_t length = 1; length <= longest; ++length) add(beginnings_, word.substr(0, length));
        for (std::size_t length = 1; length <= longest; ++length)
            add(endings_, word.substr(word.size() - length));
        for (const auto of : wordClasses(word, isNoun, isName)) add(whole_, of);
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }

    std::vector<Rule> rules;
    std::vector<std::vector<std::uint32_t>> rulesAt;  ///< by the element that a sentence must show
    std::vector<Pattern> due;
    const std::int16_t negation = number("nicht|kein*|nie|niemals|niemand|weder|nichts");
    const std::int16_t hypothesis =
        number("würde*|wäre*|könnte*|hätte*|müsste*|dürfte*|vielleicht|eventuell|theoretisch|bräuchte*|fände*");
    const std::int16_t subordinator =
        number("wenn|dass|ob|weil|falls|bevor|nachdem|damit|sobald|solange|obwohl|während|wie|wo|indem|was");
    const std::int16_t conjunction =
        number("und|aber|oder|weil|wenn|dass|ob|falls|obwohl|bevor|nachdem|sobald|sondern|solange");
    const std::int16_t particle = number(
        "äh|ähm|öh|hm|halt|eben|ja|gell|ne|mal|jetzt|auch|doch|einfach|schon|wohl|also|eigentlich|"
        "sozusagen|quasi|dann|da|nochmal|fei|natürlich|bitte|gleich|so|erstmal|noch");
    const std::int16_t continuation = number("oder|und|ob|dass|wenn|weil|die|der|das|was|wie|damit|sonst");
    const std::int16_t filler = number(
        "ja|gut|okay|also|und|so|na|ach|aber|genau|doch|äh|ähm|hm|naja|schön|super|prima|perfekt|alles|"
        "klar|denn|bitte|dann|nun|tja|ehrlich|gesagt|mal|halt|jetzt|da|ne|gell|oh|nein|#name|frau|herr|bis|"
        "#when");
    const std::int16_t past =
        number("letzte*|vorige*|gestern|damals|neulich|vorhin|letztens|vergangene*|vorgestern");
    const std::int16_t name = number("#name");
    const std::int16_t verb = number(
        "#act|#acts|#does|#wedo|#do|#imp|ist|sind|war|hat|haben|habe|wird|werden|kann|können|muss|"
        "müssen|soll|sollen|will|wollen|geht|gibt|heißt|bleibt|bleiben|kommt|kommen|braucht|bräuchte|"
        "müsste|würde|wäre|könnte|hätte|weiß|hatte|hatten|bin|bist|habt|seid");
    const std::int16_t settling = number("dann|also");
    const std::int16_t towards = number("zu|zum|zur");
    const std::int16_t numeral = number(
        "#ord|eins|zwei|drei|vier|fünf|sechs|sieben|acht|neun|zehn|elf|zwölf|halb|*hundert|*tausend|"
        "*zig|0*|1*|2*|3*|4*|5*|6*|7*|8*|9*");
    const std::int16_t approval = number(
        "gut|recht|okay|passt|reicht|prima|super|fein|lieb|lieber|fair|einverstanden|vernünftig|richtig|"
        "egal|toll|perfekt|wunderbar|schön|gefällt|gern|gerne|klar|stimmt|natürlich|sinnvoll|dabei|leben|"
        "genau|hervorragend|meinetwegen");
    const std::int16_t assent = number("ja|genau");

private:
    std::int16_t number(std::string_view element) {
        const auto [place, isNew] = numbers_.try_emplace(element, static_cast<std::int16_t>(elements_.size()));
        if (!isNew) return place->second;
        elements_.push_back(element);
        for (const auto form : divided(element, '|')) {
            if (form.ends_with('*')) {
                beginnings_[form.substr(0, form.size() - 1)].push_back(place->second);
            } else if (form.starts_with('*')) {
                endings_[form.substr(1)].push_back(place->second);
            } else {
                whole_[form].push_back(place->second);
            }
        }
        return place->second;
    }

    Pattern compiled(std::string_view phrase) {
        Pattern pattern;
        for (const auto word : text::words(phrase)) {
            pattern.push_back(word == ".."  ? gap
                              : word == "^" ? meetingcore::opening
                              : word == "$" ? ending
                                            : number(word));
        }
        return pattern;
    }

    /// The element that fewest sentences will show: a longer word is a rarer one.
    std::int16_t anchor(const Pattern& pattern) const {
        const auto rarity = [&](std::int16_t element) {
            return element < 0 ? 0 : elements_[static_cast<std::size_t>(element)].substr(0, 12).size();
        };
        return *std::max_element(pattern.begin(), pattern.end(),
                                 [&](auto a, auto b) { return rarity(a) < rarity(b); });
    }
};

const Grammar& grammar() {
    static const Grammar grammar;
    return grammar;
}

}  // namespace

CueRules::CueRules(const GermanText& text, std::span<const std::string> names)
    : text_(text),
      names_(names.begin(), names.end()),
      words_(text.words().size()),
      tried_(grammar().rules.size(), 0) {}

const CueRules::Word& CueRules::wordOf(const GermanToken& token) {
    auto& word = words_[token.word];
    if (word.known) return word;
    const auto& spelled = text_.text(token);
    const bool isName = std::find(names_.begin(), names_.end(), spelled) != names_.end();
    word.known = true;
    word.elements = grammar().elementsOf(spelled, text_.words()[token.word].noun, isName);
    word.hypothesis = fits(token, grammar().hypothesis);
    word.negation = fits(token, grammar().negation);
    word.past = fits(token, grammar().past);
    word.numeral = fits(token, grammar().numeral);
    word.name = isName;
    word.verb = fits(token, grammar().verb);
    word.approval = fits(token, grammar().approval);
    return word;
}

bool CueRules::fits(const GermanToken& token, std::int16_t element) {
    const auto& elements = wordOf(token).elements;
    return std::binary_search(elements.begin(), elements.end(), element);
}

bool CueRules::isName(const GermanToken& token) { return wordOf(token).name; }

std::optional<std::size_t> CueRules::matchEnd(std::span<const std::int16_t> pattern, Tokens tokens,
                                              std::size_t at, bool first) {
    if (pattern.empty()) return at;
    const auto rest = pattern.subspan(1);
    if (pattern[0] == ending) return at == tokens.size() ? std::optional(at) : std::nullopt;
    if (pattern[0] != gap) {
        // "machen wir halt einfach so" is "machen wir so".
        for (std::size_t skipped = 0; skipped < mostParticles && at < tokens.size(); ++skipped, ++at) {
            if (fits(tokens[at], pattern[0])) return matchEnd(rest, tokens, at + 1);
            if (first || !fits(tokens[at], grammar().particle)) return std::nullopt;
        }
        return std::nullopt;
    }
    for (std::size_t skipped = 0; skipped <= widestGap && at + skipped <= tokens.size(); ++skipped) {
        if (const auto end = matchEnd(rest, tokens, at + skipped)) return end;
    }
    return std::nullopt;
}

/// The place behind the fillers with which speech begins.
std::size_t CueRules::openingOf(Tokens tokens) {
    std::size_t at = 0;
    while (at < tokens.size() && fits(tokens[at], grammar().filler)) ++at;
    return at;
}

/// Where the question starts in a sentence that ends as one: its last clause, or all where that is only a tag.
std::size_t CueRules::questionBegin(Tokens tokens) {
    auto begin = tokens.size();
    while (begin > 0 && !tokens[begin - 1].startsClause) --begin;
    if (begin <= 1 || tokens.size() - begin < 2) return 0;
    return fits(tokens[begin - 1], grammar().continuation) ? 0 : begin - 1;
}

/// Whether nothing in the phrase's clause makes it void. Recognition often leaves out the comma, so a clause
/// also ends at a conjunction, and what makes void must stand near.
bool CueRules::holds(unsigned guards, Tokens tokens, std::size_t begin, std::size_t end) {
    const auto starts = [&](std::size_t i) {
        return tokens[i].startsClause || fits(tokens[i], grammar().conjunction);
    };
    auto clause = begin;
    while (clause > 0 && !starts(clause)) --clause;
    auto clauseEnd = end;
    while (clauseEnd < tokens.size() && !starts(clauseEnd)) ++clauseEnd;
    if ((guards & CueGuards::anywhere) == 0) {
        const auto first = clause + 1 < begin && fits(tokens[clause], grammar().filler) ? clause + 1 : clause;
        if (first < begin && fits(tokens[first], grammar().subordinator)) return false;
    }
    const auto from = std::max(clause, begin - std::min(begin, nearby));
    const auto to = std::min(clauseEnd, end + nearby);
    for (auto i = from; i < to; ++i) {
        if ((guards & CueGuards::unlessNegated) && fits(tokens[i], grammar().negation)) return false;
        if ((guards & CueGuards::unlessHypothetical) && fits(tokens[i], grammar().hypothesis)) return false;
    }
    return true;
}

Cues CueRules::match(const GermanSentence& sentence) {
    const auto tokens = text_.tokens(sentence);
    const auto core = openingOf(tokens);
    Cues cues;
    cues.asks = sentence.question && questionBegin(tokens) == 0;
    matchForm(sentence, cues);
    ++round_;
    for (const auto& token : tokens) {
        for (const auto element : wordOf(token).elements) {
            for (const auto rule : grammar().rulesAt[static_cast<std::size_t>(element)]) {
                if (std::exchange(tried_[rule], round_) == round_) continue;
                const auto& [pattern, row] = grammar().rules[rule];
                auto& weight = cues.weights[static_cast<std::size_t>(row->cue)];
                if (row->weight > weight && occurs(pattern, row->guards, sentence, core)) weight = row->weight;
            }
        }
    }
    return cues;
}

/// What the sentence shows by its form rather than by phrases.
void CueRules::matchForm(const GermanSentence& sentence, Cues& cues) {
    const auto tokens = text_.tokens(sentence);
    bool verb = false, approval = false;
    for (const auto& token : tokens) {
        const auto& word = wordOf(token);
        cues.hypothetical = cues.hypothetical || word.hypothesis;
        cues.negated = cues.negated || word.negation;
        cues.past = cues.past || word.past;
        cues.numbered = cues.numbered || word.numeral;
        cues.named = cues.named || word.name;
        verb = verb || word.verb;
        approval = approval || word.approval;
    }
    cues.addressed = isName(tokens.front()) || isName(tokens.back());
    cues.verbless = !verb && tokens.size() > 1;
    // "Dann zur Heizung." passes on to the next topic.
    for (std::size_t i = 0; cues.verbless && i < 2; ++i) {
        const bool passesOn = i + 1 < tokens.size() && fits(tokens[i + 1], grammar().towards);
        cues.settles = cues.settles || (fits(tokens[i], grammar().settling) && !passesOn);
    }
    cues.approves = (approval && tokens.size() <= longestApproval && !sentence.question && !cues.negated) ||
                    (tokens.size() <= 2 && fits(tokens[0], grammar().assent));
    const auto opener = std::find(openers.begin(), openers.end(), text_.text(tokens.front()));
    if (opener != openers.end()) cues.opener = static_cast<std::size_t>(opener - openers.begin());
}

bool CueRules::occurs(std::span<const std::int16_t> pattern, unsigned guards, const GermanSentence& sentence,
                      std::size_t core) {
    const auto tokens = text_.tokens(sentence);
    const auto asked =
        (guards & CueGuards::unlessQuestion) && sentence.question ? questionBegin(tokens) : tokens.size();
    const bool opens = pattern[0] == opening;
    const auto body = opens ? pattern.subspan(1) : pattern;
    for (std::size_t begin = 0; begin < asked && (!opens || begin <= core); ++begin) {
        const auto end = matchEnd(body, tokens, begin, true);
        if (end && (*end <= asked || asked == tokens.size()) && holds(guards, tokens, begin, *end)) return true;
    }
    return false;
}

std::optional<CueRules::Range> CueRules::dueDate(const GermanSentence& sentence) {
    const auto tokens = text_.tokens(sentence);
    std::optional<Range> best;
    std::size_t bestRank = grammar().due.size();
    for (std::size_t begin = 0; begin < tokens.size(); ++begin) {
        for (std::size_t rank = 0; rank < bestRank; ++rank) {
            const auto end = matchEnd(grammar().due[rank], tokens, begin, true);
            if (!end) continue;
            best = Range{tokens[begin].begin, tokens[*end - 1].end};
            bestRank = rank;
        }
    }
    return best;
}

}  // namespace meetingcore
