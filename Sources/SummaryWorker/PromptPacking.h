#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "SummaryWorker/TextModel.h"

namespace meetingcore {

/// Turns the model's input into the whole prompt around it.
using PromptBuilder = std::function<std::string(const std::string& input)>;

/// Packs JSON values, in order, into as few arrays as fit the token budget one by one, greedily; a value that
/// does not fit alone forms an array of its own. Returns the arrays' JSON texts.
///
/// The result is that of counting the prompt anew for every value, as long as a longer array never has fewer
/// tokens. Yet each value is read only a few times: its bytes tell about where the border should lie, and the
/// whole prompt is counted only around it. Throws MeetingError where a prompt that has to be tried
/// exceeds `maximumPromptBytes`, and what the model throws.
std::vector<std::string> packIntoArrays(std::span<const std::string> values, const PromptBuilder& prompt,
                                        TextModel& model, std::size_t tokenBudget);

}  // namespace meetingcore
