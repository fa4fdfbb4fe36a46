#pragma once

#include <span>
#include <string_view>

#include "MeetingCore/Summary/CueRules.h"

namespace meetingcore {

/// What makes a phrase void where it stands near. Every phrase is void in a subordinate clause unless its row
/// says `anywhere`.
namespace CueGuards {

inline constexpr unsigned unlessNegated = 1;
inline constexpr unsigned unlessHypothetical = 2;
inline constexpr unsigned unlessQuestion = 4;
inline constexpr unsigned anywhere = 8;
inline constexpr unsigned statement = unlessNegated | unlessHypothetical | unlessQuestion;

}  // namespace CueGuards

/// Phrases that show a cue, divided by ";".
///
/// A phrase is a list of words: `a|b` is one of them, `a*` and `*a` any ending or beginning, `..` up to six
/// words,
/// `^` the sentence's opening behind fillers, `$` its end; what begins with "#" is a class of WordForms.h.
/// Words are in the form of GermanWord.
struct CuePhrases {
    Cue cue;
    float weight;  ///< about 1 for a hint that needs support by what is said around it, 2 for plain words
    unsigned guards;
    std::string_view phrases;
};

std::span<const CuePhrases> cuePhrases();

/// Phrases that stand for a due date, the most telling first.
std::string_view duePhrases();

}  // namespace meetingcore
