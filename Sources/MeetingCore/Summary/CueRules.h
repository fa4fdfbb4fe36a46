#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Summary/GermanText.h"

namespace meetingcore {

/// What a sentence does in a German conversation, as far as its own words tell.
enum class Cue : std::uint8_t {
    commit,   ///< the speaker takes something on: "ich schicke dir …", "kümmere ich mich drum"
    offer,    ///< would do it: "ich könnte …", "ich kann … nachsehen"
    accept,   ///< says yes to a request: "mach ich", "kriegen Sie"
    request,  ///< asks or tells somebody to act: "kannst du …", "schicken Sie mir …"
    assign,   ///< gives it to somebody: "Meral kümmert sich", "das geht an Frau Roth"
    deliver,  ///< promises a result: "die haben Sie am Montag"
    need,     ///< names something to be done by nobody yet: "wir bräuchten noch …", "wer kümmert sich"
    decide,   ///< settles something: "halten wir fest", "dann nehmen wir …"
    propose,  ///< suggests it: "ich schlage vor", "wollen wir …", "dagegen hat niemand etwas?"
    agree,    ///< "einverstanden", "passt", "damit kann ich leben"
    refuse,   ///< "nein", "lieber nicht"
    open,     ///< leaves something open: "das bleibt offen", "müssen wir noch klären"
    unsure,   ///< does not know: "weiß ich nicht", "da müsste ich nachsehen"
    unfit,    ///< is about the conversation itself or a habit, not about work to be done
    count
};

/// How strongly a sentence shows each cue; 0 where it does not.
struct Cues {
    std::array<float, static_cast<std::size_t>(Cue::count)> weights{};
    bool hypothetical = false;          ///< "würde", "wenn", "vielleicht" outside a subordinate clause
    bool negated = false;               ///< says "nicht", "kein", …
    bool asks = false;                  ///< is a question as a whole, not only at its end
    bool past = false;                  ///< tells of an earlier time: "letzte Woche", "damals"
    bool numbered = false;              ///< holds a number
    bool named = false;                 ///< holds the name of somebody in the meeting
    bool addressed = false;             ///< begins or ends with it
    bool verbless = false;              ///< has no verb: "Dann zur Heizung.", "Elf Uhr, gut."
    bool settles = false;               ///< so, and opens with "dann" or "also": "also die kleine"
    bool approves = false;              ///< short and in favour: "Elf reicht.", "Finde ich gut."
    std::optional<std::size_t> opener;  ///< its first word, if that is one of CueRules::openers

    float operator[](Cue cue) const { return weights[static_cast<std::size_t>(cue)]; }
    bool has(Cue cue) const { return (*this)[cue] > 0; }
};

/// A table of phrases, matched against the words of a sentence. A phrase does not count where its clause is
/// subordinate, negated or hypothetical, unless its row says that this is part of it.
class CueRules {
public:
    /// Words with which sentences that settle, ask, tell or pass on begin.
    static constexpr std::array<std::string_view, 21> openers{
        "aber", "ach",  "also", "bitte", "danke", "dann", "das", "genau", "gut", "ich", "ja",
        "na",   "nein", "okay", "schön", "so",    "und",  "was", "wer",   "wie", "wir"};

    /// `names` are words by which people of the meeting are addressed, lower-cased. Refers to the text.
    CueRules(const GermanText& text, std::span<const std::string> names);

    Cues match(const GermanSentence& sentence);

    /// The bytes within the segment at which a due date stands: "bis Freitag", "am neunten Dezember".
    struct Range {
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
    };
    std::optional<Range> dueDate(const GermanSentence& sentence);

    /// Whether the word is one of the names.
    bool isName(const GermanToken& token);

private:
    using Tokens = std::span<const GermanToken>;

    /// What a word is to the phrases, worked out once.
    struct Word {
        bool known = false;
        bool hypothesis = false, negation = false, past = false, numeral = false;
        bool name = false, verb = false, approval = false;
        std::vector<std::int16_t> elements;  ///< what of the phrases it fits, ascending
    };

    const Word& wordOf(const GermanToken& token);
    bool fits(const GermanToken& token, std::int16_t element);
    bool occurs(std::span<const std::int16_t> pattern, unsigned guards, const GermanSentence& sentence,
                std::size_t core);
    std::optional<std::size_t> matchEnd(std::span<const std::int16_t> pattern, Tokens tokens, std::size_t at,
                                        bool first = false);
    std::size_t questionBegin(Tokens tokens);
    void matchForm(const GermanSentence& sentence, Cues& cues);
    bool holds(unsigned guards, Tokens tokens, std::size_t begin, std::size_t end);
    std::size_t openingOf(Tokens tokens);

    const GermanText& text_;
    std::vector<std::string> names_;
    std::vector<Word> words_;           ///< by word of the text
    std::vector<std::uint32_t> tried_;  ///< by phrase: the last sentence it was tried on
    std::uint32_t round_ = 0;
};

}  // namespace meetingcore
