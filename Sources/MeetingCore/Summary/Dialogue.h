#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MeetingCore/Summary/CueRules.h"

namespace meetingcore {

/// Something that a conversation holds: the sentence that says it best and the segments that bear it out.
struct Finding {
    enum class Kind : std::uint8_t { decision, task, openQuestion };

    Kind kind = Kind::decision;
    std::uint32_t sentence = 0;           ///< place in GermanText::sentences
    std::uint32_t segment = 0;            ///< where the cue was heard
    std::vector<std::uint32_t> segments;  ///< one to three, ascending, that one among them
    double score = 0;
    std::optional<std::uint32_t> actor;  ///< of a task: a segment of the speaker who took it on
};

/// Reads from the cues of each sentence and of what is said before and after it by whom, what was decided,
/// taken on and left open. `speakers` tells for each segment who speaks, 0 where that is unknown. The findings
/// are in the order of the conversation.
class Dialogue {
public:
    Dialogue(const GermanText& text, CueRules& rules, std::span<const std::uint32_t> speakers);

    std::vector<Finding> findings() const;

private:
    struct Turn {
        std::uint32_t segment = 0;
        std::size_t firstSentence = 0;
        std::size_t endSentence = 0;
    };

    double taking(std::size_t sentence, bool due, bool asked) const;
    double giving(std::size_t sentence, bool due) const;
    std::uint32_t meantBy(std::size_t sentence) const;
    void findTask(std::size_t sentence, std::vector<Finding>& to) const;
    void findDecision(std::size_t sentence, std::vector<Finding>& to) const;
    void findQuestion(std::size_t sentence, std::vector<Finding>& to) const;

    const GermanSentence& at(std::size_t sentence) const { return text_.sentences()[sentence]; }
    double weight(std::size_t sentence, Cue cue) const { return static_cast<double>(cues_[sentence][cue]); }
    const Turn& turnOf(std::size_t sentence) const { return turns_[turnOf_[sentence]]; }
    bool differ(const Turn& one, const Turn& other) const;
    float strongest(const Turn& turn, Cue cue) const;
    double replies(std::size_t sentence, Cue cue, std::size_t within) const;
    std::optional<std::size_t> before(std::size_t sentence, std::initializer_list<Cue> cues,
                                      std::size_t within) const;
    std::size_t content(std::size_t sentence) const;
    std::uint32_t telling(std::size_t sentence) const;
    bool isQuestion(std::size_t sentence) const;
    std::optional<std::size_t> questionBefore(std::size_t sentence, std::size_t within) const;
    bool answered(std::size_t question) const;
    std::uint32_t richest(const Turn& turn) const;
    bool rejects(std::size_t sentence) const;
    bool concludes(std::size_t sentence) const;
    bool settledSoon(std::size_t sentence) const;
    bool isSettling(std::size_t sentence) const;

    const GermanText& text_;
    CueRules& rules_;
    std::span<const std::uint32_t> speakers_;
    std::vector<Cues> cues_;             ///< by sentence
    std::vector<Turn> turns_;            ///< the segments that hold a sentence
    std::vector<std::uint32_t> turnOf_;  ///< by sentence
};

}  // namespace meetingcore
