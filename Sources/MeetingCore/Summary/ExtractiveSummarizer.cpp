#include "MeetingCore/Summary/ExtractiveSummarizer.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Summary/Dialogue.h"
#include "MeetingCore/Summary/SentenceRank.h"

namespace meetingcore {

namespace {

// An hour has more than the handful that fits a prompt, but a summary is read as a whole: together these stay
// well below the hundred points that a summary may have.
constexpr std::size_t mostDecisions = 20;
constexpr std::size_t mostTasks = 30;
constexpr std::size_t mostQuestions = 15;
constexpr std::size_t fewestMainPoints = 3;
constexpr std::size_t mostMainPoints = 8;
constexpr double secondsPerMainPoint = 600;
constexpr double fullSentenceWords = 12;
constexpr double decisionBonus = 2;
constexpr std::size_t maximumTextCharacters = 600;
constexpr std::size_t mostTitleTerms = 3;
constexpr std::size_t longestTitleTerm = 24;

/// What is known of one meeting while it is read.
struct Reading {
    explicit Reading(const TranscriptDocument& of)
        : document(of), text(of.segments), rules(text, namesIn(of, text)), speakers(speakersOf(of)) {}

    static std::vector<std::string> namesIn(const TranscriptDocument& document, const GermanText& text);
    static std::vector<std::uint32_t> speakersOf(const TranscriptDocument& document);

    std::span<const GermanSentence> sentencesOf(std::uint32_t segment) const {
        const auto& all = text.sentences();
        const auto begin = std::lower_bound(all.begin(), all.end(), segment,
                                            [](const auto& a, std::uint32_t b) { return a.segment < b; });
        auto end = begin;
        while (end != all.end() && end->segment == segment) ++end;
        return {begin, end};
    }

    /// Of a finding's sentences, those beside the one that gave the text come last.
    std::vector<GermanSentence> evidence(const Finding& finding) const {
        std::vector<GermanSentence> list{text.sentences()[finding.sentence]};
        for (const auto segment : finding.segments) {
            for (const auto& sentence : sentencesOf(segment)) list.push_back(sentence);
        }
        return list;
    }

    std::string passage(std::uint32_t segment, std::uint32_t begin, std::uint32_t end) const {
        return document.segments[segment].text.substr(begin, end - begin);
    }

    /// Whether the passage's quote shows anything: speech may stand behind nothing but blanks.
    bool quotable(std::span<const std::uint32_t> cited) const {
        std::string joined;
        for (const auto segment : cited) joined += document.segments[segment].text + " ";
        return !text::trimmed(text::prefix(joined, EvidenceSummary::maximumQuoteCharacters)).empty();
    }

    /// The sentence, with its neighbour in the segment where it says little: "Dann die kleine."
    std::string tellingPassage(std::uint32_t number) const {
        const auto& all = text.sentences();
        auto begin = number, end = number;
        if (text.contentWords(all[number]) < 2) {
            if (number > 0 && all[number - 1].segment == all[number].segment) {
                --begin;
            } else if (number + 1 < all.size() && all[number + 1].segment == all[number].segment) {
                ++end;
            }
        }
        return passage(all[number].segment, all[begin].begin, all[end].end);
    }

    std::vector<bool> names() {
        std::vector<bool> names(text.words().size());
        for (const auto& sentence : text.sentences()) {
            for (const auto& token : text.tokens(sentence)) names[token.word] = rules.isName(token);
        }
        return names;
    }

    const TranscriptDocument& document;
    GermanText text;
    CueRules rules;
    std::vector<std::uint32_t> speakers;
};

/// The words of the label that the user gave a speaker; none for a default label.
std::vector<std::string> givenName(const TranscriptDocument& document, const TranscriptSegment& segment) {
    std::vector<std::string> name;
    if (!segment.speakerID) return name;
    const auto label = document.speakerLabel(segment);
    if (label == TranscriptDocument::defaultSpeakerLabel(*segment.speakerID)) return name;
    for (const auto word : text::words(label)) {
        if (word.size() > 2) name.push_back(text::lowercased(word));
    }
    return name;
}

bool isTitle(std::string_view word) { return word == "frau" || word == "herr" || word == "herrn"; }

/// The speakers' names and those that follow "Frau" or "Herr".
std::vector<std::string> Reading::namesIn(const TranscriptDocument& document, const GermanText& text) {
    std::set<std::string> names, seen;
    for (const auto& segment : document.segments) {
        if (!segment.speakerID || !seen.insert(*segment.speakerID).second) continue;
        for (auto& word : givenName(document, segment)) names.insert(std::move(word));
    }
    for (const auto& sentence : text.sentences()) {
        const auto tokens = text.tokens(sentence);
        for (std::size_t i = 1; i < tokens.size(); ++i) {
            if (isTitle(text.text(tokens[i - 1])) && text.words()[tokens[i].word].noun) {
                names.insert(text.text(tokens[i]));
            }
        }
    }
    return {names.begin(), names.end()};
}

std::vector<std::uint32_t> Reading::speakersOf(const TranscriptDocument& document) {
    std::map<std::pair<AudioSource, std::string>, std::uint32_t> numbers;
    std::vector<std::uint32_t> speakers;
    for (const auto& segment : document.segments) {
        const auto next = static_cast<std::uint32_t>(numbers.size() + 1);
        speakers.push_back(segment.speakerID
                               ? numbers.try_emplace({segment.source, *segment.speakerID}, next).first->second
                               : 0);
    }
    return speakers;
}

std::string sourceID(std::uint32_t segment) { return "s" + std::to_string(segment + 1); }

/// Before a name: that person is not who acts ("schick das an Ben").
bool isObjectMarker(std::string_view word) {
    static const std::set<std::string_view> words = {"an",   "mit",  "von",   "für", "zu",   "zum",
                                                     "zur",  "dem",  "den",   "bei", "über", "vom",
                                                     "ohne", "nach", "wegen", "und"};
    return words.contains(word);
}

/// The person who is to act, if the cited segments name them: the speaker who took the task on, else who is
/// addressed.
std::optional<std::string> ownerOf(Reading& reading, const Finding& finding) {
    std::vector<std::string> actor;
    if (finding.actor) {
        actor = givenName(reading.document, reading.document.segments[*finding.actor]);
        if (actor.empty()) return std::nullopt;
    }
    for (const auto& sentence : reading.evidence(finding)) {
        const auto tokens = reading.text.tokens(sentence);
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const auto& word = reading.text.text(tokens[i]);
            const bool meant = finding.actor ? std::find(actor.begin(), actor.end(), word) != actor.end()
                                             : reading.rules.isName(tokens[i]);
            const auto first = i > 0 && isTitle(reading.text.text(tokens[i - 1])) ? i - 1 : i;
            const bool object =
                !finding.actor && first > 0 && isObjectMarker(reading.text.text(tokens[first - 1]));
            if (!meant || object) continue;
            return reading.passage(sentence.segment, tokens[first].begin, tokens[i].end);
        }
    }
    return std::nullopt;
}

std::optional<std::string> dueDateOf(Reading& reading, const Finding& finding) {
    for (const auto& sentence : reading.evidence(finding)) {
        if (const auto due = reading.rules.dueDate(sentence)) {
            return reading.passage(sentence.segment, due->begin, due->end);
        }
    }
    return std::nullopt;
}

RawBullet bulletOf(Reading& reading, const Finding& finding) {
    RawBullet bullet;
    const auto passage = reading.tellingPassage(finding.sentence);
    bullet.text = text::trimmed(text::prefix(passage, maximumTextCharacters));
    for (const auto segment : finding.segments) bullet.ids.push_back(sourceID(segment));
    if (finding.kind == Finding::Kind::task) {
        bullet.owner = ownerOf(reading, finding);
        bullet.dueDate = dueDateOf(reading, finding);
    }
    return bullet;
}

/// The strongest findings in the order of the conversation; of several that rest on one place only the
/// strongest.
std::vector<RawBullet> chosen(Reading& reading, std::vector<Finding> findings, std::size_t most) {
    std::stable_sort(findings.begin(), findings.end(),
                     [](const auto& a, const auto& b) { return a.score > b.score; });
    std::vector<Finding> kept;
    std::set<std::uint32_t> heard, cited;
    for (auto& finding : findings) {
        if (kept.size() == most) break;
        if (!reading.quotable(finding.segments)) continue;
        const auto words = reading.text.sentences()[finding.sentence].segment;
        // What was asked of somebody else may also be the context of a task of one's own.
        if (finding.kind == Finding::Kind::task && words == finding.segment) {
            std::erase_if(finding.segments,
                          [&](auto segment) { return segment != words && heard.contains(segment); });
        }
        const bool sameQuestion = finding.kind == Finding::Kind::openQuestion && cited.contains(words);
        if (sameQuestion || cited.contains(finding.segment) ||
            std::any_of(finding.segments.begin(), finding.segments.end(),
                        [&](auto segment) { return heard.contains(segment); })) {
            continue;
        }
        heard.insert(finding.segment);
        cited.insert(finding.segments.begin(), finding.segments.end());
        kept.push_back(std::move(finding));
    }
    std::sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) {
        return std::pair(a.segments, a.sentence) < std::pair(b.segments, b.sentence);
    });
    std::vector<RawBullet> bullets;
    bullets.reserve(kept.size());
    for (const auto& finding : kept) bullets.push_back(bulletOf(reading, finding));
    return bullets;
}

/// The segment with the next or last one where the same person goes on; none where a quote would be empty.
std::vector<std::uint32_t> sameBreath(const Reading& reading, std::uint32_t segment) {
    const auto& speakers = reading.speakers;
    std::vector<std::uint32_t> cited{segment};
    if (speakers[segment] != 0 && segment + 1 < speakers.size() && speakers[segment + 1] == speakers[segment]) {
        cited.push_back(segment + 1);
    } else if (speakers[segment] != 0 && segment > 0 && speakers[segment - 1] == speakers[segment]) {
        cited.insert(cited.begin(), segment - 1);
    }
    if (!reading.quotable(cited)) cited = {segment};
    if (!reading.quotable(cited)) cited.clear();
    return cited;
}

/// The most central sentences, each from another part of the meeting: one topic talked over at length would
/// otherwise take all the places.
std::vector<RawBullet> overviewOf(Reading& reading, const std::vector<Finding>& decisions) {
    const auto& sentences = reading.text.sentences();
    if (sentences.empty()) return {};
    const auto& segments = reading.document.segments;
    const double start = segments.front().startSeconds;
    const double length = std::max(0.0, segments.back().endSeconds - start);
    const auto parts =
        std::min(fewestMainPoints + static_cast<std::size_t>(length / secondsPerMainPoint), mostMainPoints);
    const auto ranks = rankSegments(reading.text, segments.size(), reading.names());
    std::vector<bool> decided(segments.size());
    for (const auto& decision : decisions) decided[sentences[decision.sentence].segment] = true;
    const auto telling = [&](std::size_t i) {
        const auto count = static_cast<double>(reading.text.tokens(sentences[i]).size());
        return sentences[i].question ? 0
                                     : ranks[sentences[i].segment] * std::min(1.0, count / fullSentenceWords) *
                                           (decided[sentences[i].segment] ? decisionBonus : 1);
    };
    std::vector<RawBullet> bullets;
    for (std::size_t part = 0; part < parts; ++part) {
        const auto begin = sentences.size() * part / parts, end = sentences.size() * (part + 1) / parts;
        std::size_t best = begin;
        for (auto i = begin; i < end; ++i) {
            if (telling(i) > telling(best)) best = i;
        }
        if (begin == end || telling(best) <= 0) continue;
        const auto segment = sentences[best].segment;
        const auto cited = sameBreath(reading, segment);
        if (cited.empty()) continue;
        bullets.push_back(bulletOf(
            reading, {Finding::Kind::decision, static_cast<std::uint32_t>(best), segment, cited, 0, {}}));
    }
    return bullets;
}

/// Nouns of speech that name no topic.
bool isTopic(std::string_view word) {
    static const auto others = [] {
        const auto list = text::words(
            "woche wochen tag tage tagen monat monate jahr jahre jahren uhr euro prozent herr herrn frau "
            "punkt punkte frage fragen thema themen moment leute leuten ding dinge sache sachen minute "
            "minuten stunde stunden mal anfang ende mitte morgen abend mittag nachmittag stück teil seite "
            "hand idee gespräch runde montag dienstag mittwoch donnerstag freitag samstag sonntag januar "
            "februar märz april mai juni juli august september oktober november dezember kollege kollegen "
            "kollegin kolleginnen grund beispiel problem zeit doktor team tausend hundert bisschen guten "
            "dank rest fall weg schluss spaß sinn art mensch menschen jemand stand");
        return std::set<std::string_view>(list.begin(), list.end());
    }();
    return text::characterCount(word) > 3 && !others.contains(word) && !text::containsControl(word);
}

/// Up to three nouns that central segments share, the most telling first, as they are spelled in the
/// transcript.
std::vector<std::string> termsOf(Reading& reading) {
    struct Term {
        double score = 0;
        std::size_t count = 0;
        std::map<std::string, std::size_t> spellings;
    };
    std::map<std::uint32_t, Term> terms;
    const auto names = reading.names();
    const auto ranks = rankSegments(reading.text, reading.document.segments.size(), names);
    for (const auto& sentence : reading.text.sentences()) {
        for (const auto& token : reading.text.tokens(sentence)) {
            const auto& word = reading.text.words()[token.word];
            if (!word.noun || word.stem == GermanWord::noStem || names[token.word] || !isTopic(word.text))
                continue;
            auto& term = terms[word.stem];
            const double length = std::min<double>(2.0, static_cast<double>(word.text.size()) / 8.0);
            term.score += (0.2 + ranks[sentence.segment]) * length;
            ++term.count;
            ++term.spellings[reading.passage(sentence.segment, token.begin, token.end)];
        }
    }
    std::vector<const Term*> order;
    order.reserve(terms.size());
    for (const auto& [stem, term] : terms) order.push_back(&term);
    std::stable_sort(order.begin(), order.end(), [](auto a, auto b) { return a->score > b->score; });
    std::vector<std::string> chosen;
    for (const auto* term : order) {
        if (chosen.size() == mostTitleTerms || (term->count < 2 && !chosen.empty())) break;
        const auto& best = *std::max_element(term->spellings.begin(), term->spellings.end(),
                                             [](const auto& a, const auto& b) { return a.second < b.second; });
        if (!text::exceeds(best.first, longestTitleTerm)) chosen.push_back(best.first);
    }
    return chosen;
}

MeetingSummary plain(const EvidenceSummary& summary) {
    const auto items = [](const std::vector<EvidenceBullet>& bullets) {
        std::vector<MeetingSummary::EvidenceItem> list;
        list.reserve(bullets.size());
        for (const auto& bullet : bullets) {
            list.push_back({bullet.text, bullet.sourceSegmentIDs, bullet.owner, bullet.dueDate});
        }
        return list;
    };
    MeetingSummary result{"", items(summary.decisions), items(summary.tasks), items(summary.openQuestions)};
    for (const auto& bullet : summary.overview)
        result.overview += (result.overview.empty() ? "" : " ") + bullet.text;
    return result;
}

}  // namespace

RawSummary ExtractiveSummarizer::points(const TranscriptDocument& document) const {
    Reading reading(document);
    std::map<Finding::Kind, std::vector<Finding>> found;
    for (auto& finding : Dialogue(reading.text, reading.rules, reading.speakers).findings()) {
        found[finding.kind].push_back(std::move(finding));
    }
    return {overviewOf(reading, found[Finding::Kind::decision]),
            chosen(reading, std::move(found[Finding::Kind::decision]), mostDecisions),
            chosen(reading, std::move(found[Finding::Kind::task]), mostTasks),
            chosen(reading, std::move(found[Finding::Kind::openQuestion]), mostQuestions)};
}

EvidenceSummary ExtractiveSummarizer::summarize(const TranscriptDocument& document) const {
    return SourceTable(document).checked(points(document));
}

std::string ExtractiveSummarizer::title(const TranscriptDocument& document) const {
    Reading reading(document);
    auto terms = termsOf(reading);
    if (terms.empty()) return "Gespräch ohne erkennbares Thema";
    if (terms.size() == 1) return "Gespräch zum Thema " + terms[0];
    auto title = terms[0];
    for (std::size_t i = 1; i < terms.size(); ++i) title += (i + 1 < terms.size() ? ", " : " und ") + terms[i];
    return title;
}

std::future<MeetingSummary> ExtractiveSummarizer::summarize(std::span<const TranscriptSegment> segments) {
    std::promise<MeetingSummary> promise;
    try {
        TranscriptDocument document;
        document.segments.assign(segments.begin(), segments.end());
        promise.set_value(plain(summarize(document)));
    } catch (...) {
        promise.set_exception(std::current_exception());
    }
    return promise.get_future();
}

}  // namespace meetingcore
