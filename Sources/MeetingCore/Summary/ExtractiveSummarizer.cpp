#include "MeetingCore/Summary/ExtractiveSummarizer.h"

#include <algorithm>
#include <map>
#include <set>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Summary/Dialogue.h"
#include "MeetingCore/Summary/Reading.h"

namespace meetingcore {

namespace {

// An hour has more than the handful that fits a prompt, but a summary is read as a whole: together these stay
// well below the hundred points that a summary may have.
constexpr std::size_t mostDecisions = 20;
constexpr std::size_t mostTasks = 30;
constexpr std::size_t mostQuestions = 15;
constexpr std::size_t fewestMainPoints = 3;
constexpr std::size_t mostMainPoints = 8;
constexpr double secondsPerMainPoint = 300;
constexpr std::size_t maximumTextCharacters = 600;
constexpr std::size_t mostTitleTerms = 3;
constexpr std::size_t longestTitleTerm = 24;

/// Before a name: that person is not who acts ("schick das an Ben").
bool isObjectMarker(std::string_view word) {
    static const std::set<std::string_view> words = {"an",   "mit",  "von",   "für", "zu",   "zum",
                                                     "zur",  "dem",  "den",   "bei", "über", "vom",
                                                     "ohne", "nach", "wegen", "und"};
    return words.contains(word);
}

/// Of a finding's sentences, those beside the one that gave the text come last.
std::vector<GermanSentence> evidence(const Reading& reading, const Finding& finding) {
    std::vector<GermanSentence> list{reading.text.sentences()[finding.sentence]};
    for (const auto segment : finding.segments) {
        for (const auto& sentence : reading.sentencesOf(segment)) list.push_back(sentence);
    }
    return list;
}

/// The person who is to act, if the cited segments name them: the speaker who took the task on, else who is
/// addressed.
std::optional<std::string> ownerOf(Reading& reading, const Finding& finding) {
    std::vector<std::string> actor;
    if (finding.actor) {
        actor = reading.givenName(*finding.actor);
        if (actor.empty()) return std::nullopt;
    }
    for (const auto& sentence : evidence(reading, finding)) {
        const auto tokens = reading.text.tokens(sentence);
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const auto& word = reading.text.text(tokens[i]);
            const bool meant = finding.actor ? std::find(actor.begin(), actor.end(), word) != actor.end()
                                             : reading.names[tokens[i].word];
            const auto first = i > 0 && isTitleOfAddress(reading.text.text(tokens[i - 1])) ? i - 1 : i;
            const bool object =
                !finding.actor && first > 0 && isObjectMarker(reading.text.text(tokens[first - 1]));
            if (!meant || object) continue;
            return reading.passage(sentence.segment, tokens[first].begin, tokens[i].end);
        }
    }
    return std::nullopt;
}

std::optional<std::string> dueDateOf(Reading& reading, const Finding& finding) {
    for (const auto& sentence : evidence(reading, finding)) {
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

/// The likeliest findings in the order of the conversation. A segment is cited once for each kind: what
/// supports one point is no point of its own.
std::vector<RawBullet> chosen(Reading& reading, std::vector<Finding> findings, std::size_t most) {
    std::stable_sort(findings.begin(), findings.end(),
                     [](const auto& a, const auto& b) { return a.likelihood > b.likelihood; });
    std::vector<Finding> kept;
    std::set<std::uint32_t> cited;
    for (auto& finding : findings) {
        if (kept.size() == most) break;
        if (cited.contains(finding.segment) ||
            cited.contains(reading.text.sentences()[finding.sentence].segment)) {
            continue;
        }
        std::erase_if(finding.segments, [&](auto segment) { return cited.contains(segment); });
        std::sort(finding.segments.begin(), finding.segments.end());
        if (!reading.quotable(finding.segments)) continue;
        cited.insert(finding.segments.begin(), finding.segments.end());
        kept.push_back(std::move(finding));
    }
    std::sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.segments < b.segments; });
    std::vector<RawBullet> bullets;
    bullets.reserve(kept.size());
    for (const auto& finding : kept) bullets.push_back(bulletOf(reading, finding));
    return bullets;
}

std::size_t mainPointsOf(const TranscriptDocument& document) {
    const auto& segments = document.segments;
    if (segments.empty()) return 0;
    const double length = std::max(0.0, segments.back().endSeconds - segments.front().startSeconds);
    return std::min(fewestMainPoints + static_cast<std::size_t>(length / secondsPerMainPoint), mostMainPoints);
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
std::vector<std::string> termsOf(const Reading& reading) {
    struct Term {
        double score = 0;
        std::size_t count = 0;
        std::map<std::string, std::size_t> spellings;
    };
    std::map<std::uint32_t, Term> terms;
    for (const auto& sentence : reading.text.sentences()) {
        for (const auto& token : reading.text.tokens(sentence)) {
            const auto& word = reading.text.words()[token.word];
            if (!word.noun || word.stem == GermanWord::noStem || reading.names[token.word] ||
                !isTopic(word.text))
                continue;
            auto& term = terms[word.stem];
            const double length = std::min<double>(2.0, static_cast<double>(word.text.size()) / 8.0);
            term.score += (0.2 + reading.centrality[sentence.segment]) * length;
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

ExtractiveSummarizer::ExtractiveSummarizer() : ExtractiveSummarizer(fittedWeights()) {}

RawSummary ExtractiveSummarizer::points(const TranscriptDocument& document) const {
    Reading reading(document);
    const Dialogue dialogue(reading, weights_);
    const auto list = [&](Finding::Kind kind, std::size_t most) {
        return chosen(reading, dialogue.findings(kind), most);
    };
    return {list(Finding::Kind::mainPoint, mainPointsOf(document)),
            list(Finding::Kind::decision, mostDecisions), list(Finding::Kind::task, mostTasks),
            list(Finding::Kind::openQuestion, mostQuestions)};
}

EvidenceSummary ExtractiveSummarizer::summarize(const TranscriptDocument& document) const {
    return SourceTable(document).checked(points(document));
}

std::string ExtractiveSummarizer::title(const TranscriptDocument& document) const {
    const Reading reading(document);
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
