#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "MeetingCore/Summary/Reading.h"
#include "MeetingCore/Summary/Signals.h"

namespace meetingcore {

/// Something that a conversation holds: the sentence that says it best and the segments that bear it out.
struct Finding {
    enum class Kind : std::uint8_t { decision, task, openQuestion, mainPoint };
    static constexpr std::size_t kindCount = 4;

    Kind kind = Kind::decision;
    std::uint32_t sentence = 0;           ///< place in GermanText::sentences
    std::uint32_t segment = 0;            ///< where it was heard
    std::vector<std::uint32_t> segments;  ///< one to three, that one first, then those that support it most
    double likelihood = 0;
    std::optional<std::uint32_t> actor;  ///< of a task: a segment of the speaker who took it on
};

/// Judges each sentence by its signals: how likely it is that it holds a decision, a task, an open question or
/// a main point.
class Dialogue {
public:
    using Signals = std::vector<std::pair<Signal, float>>;

    Dialogue(Reading& reading, const WeightTable& weights);

    /// What the sentence shows, signals of 0 left out.
    Signals signalsOf(std::size_t sentence) const;

    /// One finding at most for each segment, in the order of the conversation.
    std::vector<Finding> findings(Finding::Kind kind) const;

private:
    using Likelihoods = std::array<double, Finding::kindCount>;

    /// What somebody says in one segment.
    struct Turn {
        std::uint32_t segment = 0;
        std::uint32_t speaker = 0;
        std::size_t firstSentence = 0;
        std::size_t endSentence = 0;
        std::array<float, cueCount> cues{};    ///< the strongest of its sentences
        std::array<float, cueCount> second{};  ///< the strongest beside the sentence that shows that
        std::size_t words = 0;
        std::size_t content = 0;
        std::size_t questions = 0;
        bool endsInQuestion = false;
        bool dated = false;
        bool named = false;
        bool approves = false;
        std::array<std::size_t, Finding::kindCount> best{};  ///< by Finding::Kind: its likeliest sentence

        float cue(Cue cue) const { return cues[static_cast<std::size_t>(cue)]; }
        bool has(Cue which) const { return cue(which) > 0; }
    };

    class Collector;

    void read();
    void findChair();
    void judge(std::size_t sentence, const WeightTable& weights);
    void formSignals(std::size_t sentence, Collector& to) const;
    void neighbourSignals(std::size_t sentence, Collector& to) const;
    void replySignals(std::size_t sentence, Collector& to) const;
    void questionSignals(std::size_t sentence, Collector& to) const;
    void echoSignals(std::size_t sentence, Collector& to) const;

    const GermanSentence& at(std::size_t sentence) const { return reading_.text.sentences()[sentence]; }
    const Turn& turnOf(std::size_t sentence) const { return turns_[turnOf_[sentence]]; }
    static bool differ(const Turn& one, const Turn& other);
    const Turn* otherBefore(std::size_t turn) const;
    const Turn* otherBehind(std::size_t turn) const;
    bool said(std::uint32_t stem, std::size_t from, std::size_t to, const Turn* byOtherThan) const;
    std::size_t content(std::size_t sentence) const { return reading_.text.contentWords(at(sentence)); }
    double likelihood(std::size_t turn, Finding::Kind kind) const;
    Finding findingAt(std::size_t turn, Finding::Kind kind) const;
    std::optional<std::uint32_t> actorOf(std::size_t sentence) const;
    bool rejects(std::size_t sentence) const;

    Reading& reading_;
    std::vector<Cues> cues_;                          ///< by sentence
    std::vector<bool> dated_;                         ///< by sentence
    std::vector<std::vector<std::uint32_t>> stems_;   ///< by sentence, ascending, without names
    std::vector<std::uint32_t> turnOf_;               ///< by sentence
    std::vector<Turn> turns_;                         ///< the segments that hold a sentence
    std::vector<std::vector<std::uint32_t>> saidIn_;  ///< by stem: the turns that hold it, ascending
    std::optional<std::uint32_t> chair_;              ///< a speaker
    std::vector<Likelihoods> likelihoods_;            ///< by sentence
};

}  // namespace meetingcore
