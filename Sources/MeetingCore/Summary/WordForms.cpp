#include "MeetingCore/Summary/WordForms.h"

#include <algorithm>
#include <unordered_set>

#include "MeetingCore/Platform/Text.h"

namespace meetingcore {

namespace {

class WordSet {
public:
    explicit WordSet(std::string_view list) {
        for (const auto word : text::words(list)) words_.insert(word);
    }

    bool contains(std::string_view word) const { return words_.contains(word); }
    auto begin() const { return words_.begin(); }
    auto end() const { return words_.end(); }

private:
    std::unordered_set<std::string_view> words_;
};

const WordSet doingVerbs(
    "mach schick schreib ruf klär prüf frag sag geb gib liefer bau test bestell organisier plan formulier "
    "überarbeit meld sprech sprich red buch lad läd trag träg markier send leit besorg erstell zieh guck "
    "schau hol führ rechn druck koordinier dokumentier aktualisier pack les lies sammel samml such "
    "vergleich verteil kündig änder probier kontaktier informier stimm fix check stell setz leg bring nehm "
    "nimm kümmer übernehm übernimm erledig bereit bestätig beantrag beauftrag beschreib besprech besprich "
    "bespreche entwerf entwirf entwickel erinner ermittel verschick versend vereinbar verhandel reparier "
    "installier spiel lösch richt notier räum kauf bezahl überweis zahl mail telefonier tausch ersetz "
    "abstimm vorbereit zeig red helf hilf teil füll arbeit übersetz veröffentlich post programmier migrier "
    "deploy konfigurier sicher scan kopier archivier unterschreib unterzeichn reich fordert forder hak "
    "nachhak treff triff vertret vertritt begleit moderier protokollier präsentier recherchier analysier "
    "berechn kalkulier schätz mess vermess mied miet reservier einlad hör forsch häng räum putz sortier "
    "schneid kläre heft mal zeichn entscheid komm fahr besuch hinterleg streich halt reduzier schaug frog "
    "sog ruaf tu dua gugg bstell bsorg zahl steck wechsel stopp schalt fahr einigen geh wart rück "
    "verschieb schieb starte diktier tipp bild korrigier anpass pass");

/// Particles that stand before such a verb in the infinitive.
const WordSet particles(
    "ab an auf aus bei durch ein fest her hin los mit nach raus rein rüber runter um vor vorbei weg weiter "
    "zu zurück zusammen hoch herum heraus hinein bereit fertig bescheid frei nachzu anzu abzu aufzu auszu "
    "einzu vorzu mitzu durchzu weiterzu raus rauf unter über dazu drüber fort gegen nieder herunter hinzu "
    "klar");

/// Verbs of being, feeling, knowing and saying, and what else ends in "e" beside "ich" without being a deed.
const WordSet noDeeds(
    "glaube finde denke habe sehe meine hoffe brauche verstehe kenne fürchte merke höre freue schätze "
    "wünsche möchte würde könnte hätte wäre müsste sollte dürfte wollte konnte musste durfte hatte dachte "
    "wusste sagte meinte gehe komme bleibe heiße schlage liege sitze stehe lebe wohne bekomme kriege "
    "erwarte befürchte vermute behaupte wundere ärgere danke bitte lerne liebe hasse werde gerne heute "
    "eine keine diese jede alle viele welche ohne ungerne lasse darfe gebe vergesse verliere bedauere "
    "begrüße empfinde fühle gehöre gewinne hänge hasse kapiere leide schaffe nenne rate rede rechne "
    "schlafe spüre träume überlege vertraue warte weine zweifle genieße bereue erlebe erkenne gedenke "
    "drücke fahre seine ihre unsere halte wüsste fände gäbe käme stünde ginge bliebe ließe bräuchte "
    "verwechsle gucke teile zahle stelle nehme sage frage schaue");

/// "koordiniere", "informiere": as "ich" says it, of verbs that the list does not name.
bool isOtherDeed(std::string_view word) {
    return word.size() > 4 && word.ends_with('e') && !word.ends_with("te") && !noDeeds.contains(word);
}

/// The same beside "wir".
bool isJointDeed(std::string_view word) {
    static const WordSet noJointDeeds(
        "haben sind werden wollen können müssen sollen dürfen möchten wissen brauchen sehen kennen glauben "
        "denken finden reden sprechen hatten waren hätten wären würden könnten müssten sollten konnten "
        "wollten dürften wussten dachten bräuchten sitzen stehen liegen hoffen heißen hören kommen "
        "bekommen kriegen verstehen meinen reden leben arbeiten hängen unten oben morgen denen einen "
        "keinen diesen gegen wegen neben zwischen hatten machten sagten müssen fangen schauen");
    return word.size() > 4 && (word.ends_with("en") || word.ends_with("ern") || word.ends_with("eln")) &&
           !word.ends_with("ten") && !noJointDeeds.contains(word);
}

bool isStem(std::string_view stem) { return doingVerbs.contains(stem); }

/// Whether the word is such a verb with one of the endings, divided by blanks ("-" for none).
bool isDoing(std::string_view word, std::string_view endings) {
    const auto list = text::words(endings);
    return std::any_of(list.begin(), list.end(), [&](auto ending) {
        const auto tail = ending == "-" ? std::string_view() : ending;
        return word.size() > tail.size() + 1 && word.ends_with(tail) &&
               isStem(word.substr(0, word.size() - tail.size()));
    });
}

bool isInfinitive(std::string_view word) {
    return isDoing(word, "en n") || std::any_of(particles.begin(), particles.end(), [&](auto particle) {
               return word.starts_with(particle) && isDoing(word.substr(particle.size()), "en n");
           });
}

const WordSet weekdays(
    "montag dienstag mittwoch donnerstag freitag samstag sonnabend sonntag montagmorgen montagabend "
    "dienstagabend mittwochmittag mittwochabend donnerstagabend freitagmittag freitagabend montags "
    "dienstags mittwochs");

const WordSet months(
    "januar jänner februar märz april mai juni juli august september oktober november dezember");

const WordSet times(
    "heute morgen übermorgen weihnachten ostern pfingsten jahresende monatsende quartalsende wochenende "
    "jahreswechsel feierabend woche wochen monat monats monate quartal nachher anschluss gleich sofort "
    "tage tagen abend nachmittag vormittag mittag stunde uhr jahr jahres umgehend zeitnah runde sitzung "
    "standup meeting ende anfang mitte");

bool isOrdinal(std::string_view word) {
    static constexpr std::string_view ends[] = {"zehnten", "zigsten", "zehnte", "zigste"};
    static const WordSet low(
        "ersten zweiten dritten vierten fünften sechsten siebten siebenten achten neunten zehnten elften "
        "zwölften erste zweite dritte vierte fünfte sechste siebte achte neunte zehnte elfte zwölfte");
    return low.contains(word) ||
           std::any_of(std::begin(ends), std::end(ends), [&](auto end) { return word.ends_with(end); }) ||
           (word.size() <= 2 &&
            std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; }));
}

bool isTime(std::string_view word) {
    return times.contains(word) || weekdays.contains(word) || months.contains(word);
}

}  // namespace

std::vector<std::string_view> wordClasses(std::string_view word, bool isNoun, bool isName) {
    std::vector<std::string_view> classes;
    const auto add = [&](bool belongs, std::string_view name) {
        if (belongs) classes.push_back(name);
    };
    const bool listed = isDoing(word, "- e");
    const bool open = !isNoun && !isName;
    add(listed || (open && isOtherDeed(word)), "#act");
    add(listed, "#imp");
    add(isDoing(word, "en n a e et -") || (open && isJointDeed(word)), "#wedo");
    add(isDoing(word, "ma mer mr ama emer"), "#dowir");
    add(isDoing(word, "st est"), "#acts");
    add(isDoing(word, "t et"), "#does");
    add(isInfinitive(word), "#do");
    add(isTime(word), "#when");
    add(weekdays.contains(word), "#day");
    add(months.contains(word), "#month");
    add(isOrdinal(word), "#ord");
    add(isName, "#name");
    return classes;
}

}  // namespace meetingcore
