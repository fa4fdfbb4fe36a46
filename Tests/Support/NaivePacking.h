#pragma once

#include <string>
#include <vector>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "SummaryWorker/PromptLimits.h"
#include "SummaryWorker/PromptPacking.h"

namespace meetingcore::testing {

/// A summary prompt around the input, with a short contract.
inline std::string promptAround(const std::string& input) {
    return SummaryInstructions{}.prompt(input, "Fasse zusammen.");
}

/// Packs as packIntoArrays does, counting the whole prompt anew for every value.
inline std::vector<std::string> packNaively(const std::vector<std::string>& values, TextModel& model,
                                            std::size_t budget) {
    std::vector<std::string> arrays;
    std::string current;
    for (const auto& value : values) {
        auto candidate = current;
        if (!candidate.empty()) candidate += ',';
        candidate += value;
        const auto prompt = promptAround("[" + candidate + "]");
        if (prompt.size() > maximumPromptBytes) {
            throw MeetingError::invalidData(promptTooLarge);
        }
        if (model.countTokens(prompt) > budget && !current.empty()) {
            arrays.push_back("[" + current + "]");
            candidate = value;
        }
        current = std::move(candidate);
    }
    if (!current.empty()) arrays.push_back("[" + current + "]");
    return arrays;
}

}  // namespace meetingcore::testing
