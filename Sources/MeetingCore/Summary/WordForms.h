#pragma once

#include <string_view>
#include <vector>

namespace meetingcore {

/// The classes that a German word belongs to by its form, as the phrases of CuePhrases.h name them:
///
///     #act    a deed as "ich" says it: "schicke", "mach", also of verbs that no list names ("koordiniere")
///     #acts   the same with "du", #does with "er", #do its infinitive, also with a particle ("nachsehen")
///     #imp    the imperative; only of listed verbs
///     #wedo   a deed beside "wir", #dowir both in one word ("schaumer")
///     #day #month #ord #when   a weekday, a month, an ordinal number, any time
///
/// `isNoun` tells that the word is written with a capital, `isName` that it is somebody's name.
std::vector<std::string_view> wordClasses(std::string_view word, bool isNoun, bool isName);

}  // namespace meetingcore
