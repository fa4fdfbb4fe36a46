#pragma once

#include <string_view>

namespace meetingcore {

/// The two answer shapes as GBNF texts with the root rule "root". Both texts are fixed byte for byte: a changed
/// grammar can change answers, and answers are cached under keys that do not cover it.
///
/// Both are string literals, so `data()` is NUL-terminated.

/// `overview`, `decisions`, `tasks`, `openQuestions` in this order; every point with `text`, one to three
/// `ids`, and `owner` and `dueDate` as a string or null. The rule "number" is unused and belongs to the text
/// all the same.
inline constexpr std::string_view summaryGrammar =
    R"gbnf(root ::= "{" ws "\"overview\"" ws ":" ws bullets "," ws "\"decisions\"" ws ":" ws bullets "," ws "\"tasks\"" ws ":" ws bullets "," ws "\"openQuestions\"" ws ":" ws bullets "}" ws
bullets ::= "[" ws (bullet ("," ws bullet)*)? "]" ws
bullet ::= "{" ws "\"text\"" ws ":" ws string "," ws "\"ids\"" ws ":" ws ids "," ws "\"owner\"" ws ":" ws nullable "," ws "\"dueDate\"" ws ":" ws nullable "}" ws
ids ::= "[" ws string ("," ws string ("," ws string)?)? "]" ws
nullable ::= string | "null" ws
string ::= "\"" ([^"\\\x00-\x1F] | "\\" (["\\/bfnrt] | "u" [0-9a-fA-F] [0-9a-fA-F] [0-9a-fA-F] [0-9a-fA-F]))* "\"" ws
number ::= "-"? ([0-9] | [1-9] [0-9]*) ("." [0-9]+)? ([eE] [+-]? [0-9]+)? ws
ws ::= [ \t\n\r]*)gbnf";

/// A single key `title`.
inline constexpr std::string_view titleGrammar =
    R"gbnf(root ::= "{" ws "\"title\"" ws ":" ws string "}" ws
string ::= "\"" ([^"\\\x00-\x1F] | "\\" (["\\/bfnrt] | "u" [0-9a-fA-F] [0-9a-fA-F] [0-9a-fA-F] [0-9a-fA-F]))* "\"" ws
ws ::= [ \t\n\r]*)gbnf";

static_assert(summaryGrammar.size() == 701);
static_assert(titleGrammar.size() == 187);

}  // namespace meetingcore
