#pragma once

#include <string>
#include <string_view>

#include "MeetingCore/Platform/JSON.h"

namespace meetingcore {

/// The user's wishes for a summary, "summary-request.json" in the meeting's folder.
struct SummaryInstructions {
    /// In force where the user gave none.
    static constexpr std::string_view defaultBasePrompt =
        "Fasse das Gespräch kurz und sachlich auf Deutsch zusammen. Hebe wichtige Ergebnisse, Entscheidungen, "
        "vereinbarte Aufgaben und offene Fragen hervor. Vermeide Wiederholungen und Smalltalk.";

    std::string basePrompt{defaultBasePrompt};  ///< content and style of every summary
    std::string meetingPrompt{};                ///< hints for this meeting, refining the base prompt

    /// The instructions with both texts trimmed. Throws MeetingError (invalidData) where the untrimmed base
    /// prompt has more than 3,000 characters or the hint more than 1,500.
    SummaryInstructions validated() const;

    /// SHA-256 of the instructions as JSON with sorted keys, 64 lower-case hexadecimal digits.
    std::string fingerprint() const;

    /// The model's whole prompt: `contract` is the system part (output format, duty to cite), `input` the
    /// conversation as JSON. The user's texts and the input can form no chat marker in it.
    std::string prompt(std::string_view input, std::string_view contract) const;

    bool operator==(const SummaryInstructions&) const = default;
};

template <>
inline constexpr auto json::fields<SummaryInstructions> =
    json::record(json::field("basePrompt", &SummaryInstructions::basePrompt),
                 json::field("meetingPrompt", &SummaryInstructions::meetingPrompt));

/// The chat frame of the model in use (ChatML), with an empty reasoning block so that the model answers at
/// once.
namespace ChatFrame {

inline constexpr std::string_view system = "<|im_start|>system\n";
inline constexpr std::string_view user = "<|im_end|>\n<|im_start|>user\n";
inline constexpr std::string_view assistant = "<|im_end|>\n<|im_start|>assistant\n<think>\n\n</think>\n";

/// Replaces angle brackets by their JSON escapes, so that foreign text can form no chat marker.
std::string escaped(std::string_view text);

}  // namespace ChatFrame
}  // namespace meetingcore
