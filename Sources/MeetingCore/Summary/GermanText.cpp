#include "MeetingCore/Summary/GermanText.h"

#include <algorithm>
#include <unordered_set>

#include <libstemmer.h>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

namespace {

constexpr std::uint32_t maximumSentenceWords = 60;
constexpr std::size_t longestStemmed = 64;  // bytes; beyond it is no word

/// Words that say nothing about what a sentence is about, among them what speech is full of.
constexpr std::string_view stopWords =
    "ab aber ach äh ähm all alle allem allen aller allerdings alles als also am an ander andere anderen "
    "anderer anderes auch auf aus bei beide beiden beim bekommen bekommt bereits besser bestimmt bevor bin "
    "bis bisher bisschen bist bitte bleibt brauche brauchen braucht bräuchte da dabei dafür dagegen daher "
    "damals damit danach danke dann daran darauf daraus darf darüber darum das dass davon davor dazu dein "
    "deine deiner dem den denen denke denn der deren des deshalb deswegen dich die dies diese diesem "
    "diesen dieser dieses dir doch dort drauf dran drin du durch dürfen eben ehrlich eher eigentlich ein "
    "eine einem einen einer eines einfach einmal er erst es etwa etwas euch euer eure falls fast finde "
    "finden für gab gar geben gegen geht gehen genau gerade gern gerne gesagt gewesen gibt ging glaub "
    "glaube gleich gut gute guten haben habe hab habt hast hat hätte hätten halt hatte hatten heißt her "
    "heute hier hin hm ich ihm ihn ihnen ihr ihre ihrem ihren ihrer im immer in ins irgendwas irgendwie "
    "irgendwo ist ja jede jedem jeden jeder jedes jetzt kam kann kannst kein keine keinen keiner klar "
    "kommen kommt könnte könnten können kriegen kriegt lang lange lassen leider lieber machen macht mache "
    "mach mag mal man mehr mein meine meinem meinen meiner meint mich mir mit möchte möchten morgen muss "
    "müssen müsste müssten na nach nachher nächste nächsten natürlich nein nicht nichts nie niemand noch "
    "nun nur ob oben oder oh ohne okay paar richtig sag sage sagen sagt schade schon schön sehe sehen sehr "
    "sei seid sein seine seinem seinen seiner seit selbst selber sich sie Sie Ihnen sind so sogar soll "
    "sollen sollte sollten sonst super tja tschüss tun über überhaupt um und uns unser unsere unseren "
    "unserer unter viel viele vielen vielleicht vom von vor vorher wäre wären wann war waren warum was weg "
    "weil weiter welche welchen welcher wenig wenn wer werde werden wie wieder will wir wird wirklich "
    "wissen weiß wo wohl wollen wollten wollte wurde wurden würde würden ziemlich zu zum zur zwar zwischen "
    "quasi sozusagen eh ganz genauso ungefähr";

/// Spoken and regional forms beside the written ones that the rules name.
constexpr std::pair<std::string_view, std::string_view> spokenForms[] = {{"ned", "nicht"},
                                                                         {"net", "nicht"},
                                                                         {"nich", "nicht"},
                                                                         {"nit", "nicht"},
                                                                         {"nee", "nein"},
                                                                         {"nö", "nein"},
                                                                         {"naa", "nein"},
                                                                         {"jo", "ja"},
                                                                         {"joa", "ja"},
                                                                         {"jep", "ja"},
                                                                         {"jap", "ja"},
                                                                         {"yes", "ja"},
                                                                         {"ok", "okay"},
                                                                         {"oke", "okay"},
                                                                         {"hab", "habe"},
                                                                         {"scho", "schon"},
                                                                         {"dat", "das"},
                                                                         {"des", "das"},
                                                                         {"wat", "was"},
                                                                         {"i", "ich"},
                                                                         {"isch", "ich"},
                                                                         {"ick", "ich"},
                                                                         {"icke", "ich"},
                                                                         {"mer", "wir"},
                                                                         {"ma", "wir"},
                                                                         {"würd", "würde"},
                                                                         {"wär", "wäre"},
                                                                         {"hätt", "hätte"},
                                                                         {"müsst", "müsste"},
                                                                         {"is", "ist"},
                                                                         {"sin", "sind"},
                                                                         {"nix", "nichts"},
                                                                         {"a", "ein"},
                                                                         {"nen", "einen"},
                                                                         {"ner", "einer"},
                                                                         {"sollt", "sollte"},
                                                                         {"bissl", "bisschen"},
                                                                         {"daß", "dass"},
                                                                         {"muß", "muss"},
                                                                         {"weiss", "weiß"},
                                                                         {"glei", "gleich"},
                                                                         {"grad", "gerade"},
                                                                         {"aufm", "auf"},
                                                                         {"mim", "mit"},
                                                                         {"kriag", "krieg"},
                                                                         {"kannste", "kannst"},
                                                                         {"machste", "machst"},
                                                                         {"haste", "hast"},
                                                                         {"hamma", "haben"},
                                                                         {"ham", "haben"},
                                                                         {"simma", "sind"},
                                                                         {"freitach", "freitag"},
                                                                         {"montach", "montag"},
                                                                         {"heut", "heute"},
                                                                         {"moin", "hallo"},
                                                                         {"mia", "wir"},
                                                                         {"mr", "wir"},
                                                                         {"koa", "kein"},
                                                                         {"koan", "keinen"},
                                                                         {"koi", "kein"},
                                                                         {"koine", "keine"},
                                                                         {"keen", "kein"},
                                                                         {"oan", "einen"},
                                                                         {"dees", "das"},
                                                                         {"wos", "was"},
                                                                         {"wia", "wie"},
                                                                         {"do", "da"},
                                                                         {"hob", "habe"},
                                                                         {"han", "habe"},
                                                                         {"hod", "hat"},
                                                                         {"hot", "hat"},
                                                                         {"san", "sind"},
                                                                         {"hen", "haben"},
                                                                         {"hend", "haben"},
                                                                         {"muas", "muss"},
                                                                         {"muaß", "muss"},
                                                                         {"miassn", "müssen"},
                                                                         {"miaß", "müssen"},
                                                                         {"müsse", "müssen"},
                                                                         {"woaß", "weiß"},
                                                                         {"woiß", "weiß"},
                                                                         {"waas", "weiß"},
                                                                         {"weeß", "weiß"},
                                                                         {"dät", "würde"},
                                                                         {"tät", "würde"},
                                                                         {"däd", "würde"},
                                                                         {"waar", "wäre"},
                                                                         {"kannt", "könnte"},
                                                                         {"kennt", "könnte"},
                                                                         {"nacha", "dann"},
                                                                         {"nachad", "dann"},
                                                                         {"heid", "heute"},
                                                                         {"heit", "heute"},
                                                                         {"morng", "morgen"},
                                                                         {"morga", "morgen"},
                                                                         {"bassd", "passt"},
                                                                         {"basst", "passt"},
                                                                         {"guad", "gut"},
                                                                         {"jut", "gut"},
                                                                         {"jeht", "geht"},
                                                                         {"nä", "nein"},
                                                                         {"nää", "nein"},
                                                                         {"misch", "mich"},
                                                                         {"disch", "dich"},
                                                                         {"uff", "auf"},
                                                                         {"ebbes", "etwas"},
                                                                         {"abgmacht", "abgemacht"},
                                                                         {"ausgmacht", "abgemacht"},
                                                                         {"freili", "klar"},
                                                                         {"freilich", "klar"},
                                                                         {"jawoll", "ja"},
                                                                         {"jawohl", "ja"},
                                                                         {"schaun", "schauen"},
                                                                         {"dia", "die"},
                                                                         {"nimmer", "nicht"},
                                                                         {"mondag", "montag"},
                                                                         {"mondog", "montag"},
                                                                         {"freidag", "freitag"},
                                                                         {"freidog", "freitag"}};

const std::unordered_map<std::string_view, std::string_view>& writtenForms() {
    static const std::unordered_map<std::string_view, std::string_view> forms(std::begin(spokenForms),
                                                                              std::end(spokenForms));
    return forms;
}

const std::unordered_set<std::string_view>& contentless() {
    static const auto words = [] {
        const auto list = text::words(stopWords);
        return std::unordered_set<std::string_view>(list.begin(), list.end());
    }();
    return words;
}

bool isCapital(std::string_view word) {
    const auto first = static_cast<unsigned char>(word[0]);
    if (first >= 'A' && first <= 'Z') return true;
    return word.starts_with("Ä") || word.starts_with("Ö") || word.starts_with("Ü");
}

bool isNumber(std::string_view word) {
    return std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isAbbreviation(std::string_view word) {
    static const std::unordered_set<std::string_view> known = {"Dr",   "Prof", "bzw", "ca",  "evtl", "ggf",
                                                               "inkl", "Nr",   "Str", "usw", "z",    "B",
                                                               "d",    "h",    "u",   "a",   "St"};
    return known.contains(word);
}

}  // namespace

/// Walks through one segment's text byte by byte: everything that is no ASCII and no general punctuation is
/// taken for letters.
class GermanText::Reader {
public:
    Reader(GermanText& to, std::string_view text, std::uint32_t segment)
        : to_(to), text_(text), segment_(segment) {
        open();
    }

    void read() {
        while (at_ < text_.size()) {
            if (const auto length = letterBytes()) {
                if (wordBegin_ == none) wordBegin_ = at_;
                at_ += length;
            } else {
                separate();
            }
        }
        finishWord(at_);
        finishSentence(at_);
    }

private:
    static constexpr std::size_t none = SIZE_MAX;

    unsigned char byte(std::size_t i) const {
        return i < text_.size() ? static_cast<unsigned char>(text_[i]) : 0;
    }

    /// The length of the letter at the current place, 0 where there is none.
    std::size_t letterBytes() const {
        const auto c = byte(at_);
        if (c < 0x80) return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z') ? 1 : 0;
        if (c == 0xC2) return 0;                            // no-break space, signs, guillemets
        return c == 0xE2 && byte(at_ + 1) == 0x80 ? 0 : 1;  // spaces, dashes, quotes
    }

    std::size_t separatorBytes() const {
        const auto c = byte(at_);
        const std::size_t length = c == 0xC2 ? 2 : c == 0xE2 ? 3 : 1;
        return std::min(length, text_.size() - at_);
    }

    void separate() {
        const auto begin = at_;
        const auto sign = text_.substr(at_, separatorBytes());
        const bool inWord = wordBegin_ != none;
        at_ += sign.size();
        if (sign == "-" && inWord && letterBytes() > 0) return;  // E-Mail
        const auto word = inWord ? text_.substr(wordBegin_, begin - wordBegin_) : std::string_view();
        finishWord(begin);
        if (sign == "'" || sign == "’") return;  // geht's: two words
        if (sign == "." || sign == "!" || sign == "?" || sign == "…") {
            const bool within = sign == "." && (isNumber(word) || isAbbreviation(word)) && !word.empty();
            const auto next = byte(at_);
            const bool inNumber = (sign == ".") && next >= '0' && next <= '9';
            if ((within && at_ < text_.size()) || inNumber) return;
            question_ = question_ || sign == "?";
            finishSentence(at_);
        } else if (sign == "," || sign == ";" || sign == ":" || sign == "–" || sign == "—" || sign == "-") {
            clause_ = true;
        }
    }

    void open() {
        begin_ = none;
        first_ = static_cast<std::uint32_t>(to_.tokens_.size());
        question_ = false;
        clause_ = true;
    }

    void finishWord(std::size_t end) {
        if (wordBegin_ == none) return;
        const bool startsSentence = to_.tokens_.size() == first_;
        if (startsSentence) begin_ = wordBegin_;
        const auto spelling = text_.substr(wordBegin_, end - wordBegin_);
        to_.tokens_.push_back({to_.wordOf(spelling, startsSentence), static_cast<std::uint32_t>(wordBegin_),
                               static_cast<std::uint32_t>(end), clause_});
        clause_ = false;
        wordBegin_ = none;
        if (to_.tokens_.size() - first_ >= maximumSentenceWords) finishSentence(end);
    }

    void finishSentence(std::size_t end) {
        const auto endToken = static_cast<std::uint32_t>(to_.tokens_.size());
        if (endToken > first_) {
            const auto whole = text::trimmed(text_.substr(begin_, end - begin_));
            to_.sentences_.push_back({segment_, static_cast<std::uint32_t>(begin_),
                                      static_cast<std::uint32_t>(begin_ + whole.size()), first_, endToken,
                                      question_});
        }
        open();
    }

    GermanText& to_;
    std::string_view text_;
    std::uint32_t segment_;
    std::size_t at_ = 0;
    std::size_t wordBegin_ = none;
    std::size_t begin_ = none;
    std::uint32_t first_ = 0;
    bool question_ = false;
    bool clause_ = true;
};

GermanText::GermanText(std::span<const TranscriptSegment> segments)
    : stemmer_(sb_stemmer_new("german", nullptr), sb_stemmer_delete) {
    if (!stemmer_) throw MeetingError::notConfigured("Die deutsche Wortstammbildung fehlt auf diesem System.");
    for (std::size_t i = 0; i < segments.size(); ++i) {
        Reader(*this, segments[i].text, static_cast<std::uint32_t>(i)).read();
    }
}

GermanText::~GermanText() = default;

std::size_t GermanText::contentWords(const GermanSentence& sentence) const {
    const auto all = tokens(sentence);
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const auto& token) {
        return words_[token.word].stem != GermanWord::noStem;
    }));
}

std::uint32_t GermanText::wordOf(std::string_view spelling, bool startsSentence) {
    const bool capital = isCapital(spelling);
    // The same spelling can be a noun or only begin a sentence.
    std::string key(spelling);
    if (startsSentence) key += '^';
    if (const auto known = spellings_.find(key); known != spellings_.end()) return known->second;

    auto lower = text::lowercased(spelling);
    if (const auto form = writtenForms().find(lower); form != writtenForms().end()) lower = form->second;
    const bool polite = capital && !startsSentence && (lower == "sie" || lower == "ihnen");
    if (polite) lower = std::string(spelling);
    const auto [place, isNew] = byText_.try_emplace(lower, static_cast<std::uint32_t>(words_.size()));
    if (isNew)
        words_.push_back({lower, contentless().contains(lower) ? GermanWord::noStem : stemOf(lower), false});
    if (capital && !startsSentence) words_[place->second].noun = true;
    spellings_.emplace(std::move(key), place->second);
    return place->second;
}

std::uint32_t GermanText::stemOf(const std::string& word) {
    if (word.size() < 3 || word.size() > longestStemmed) return GermanWord::noStem;
    const auto* stem = sb_stemmer_stem(stemmer_.get(), reinterpret_cast<const sb_symbol*>(word.data()),
                                       static_cast<int>(word.size()));
    if (!stem) throw std::bad_alloc();
    const std::string text(reinterpret_cast<const char*>(stem),
                           static_cast<std::size_t>(sb_stemmer_length(stemmer_.get())));
    return stems_.try_emplace(text, static_cast<std::uint32_t>(stems_.size())).first->second;
}

}  // namespace meetingcore
