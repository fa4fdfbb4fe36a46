#pragma once

#include <cstddef>

namespace meetingcore {

/// No prompt is built or read beyond this size, in UTF-8 bytes.
inline constexpr std::size_t maximumPromptBytes = 2'097'152;

/// No text of more tokens is read at all.
inline constexpr std::size_t maximumTextTokens = 999'999;

/// No answer is generated to a longer prompt, in tokens.
inline constexpr std::size_t maximumPromptTokens = 5700;

/// What a prompt is filled up to, in tokens: less than the maximum, for the hint on a second attempt.
inline constexpr std::size_t promptTokenBudget = 5400;

static_assert(promptTokenBudget < maximumPromptTokens);

/// What a prompt beyond `maximumPromptBytes` is refused with.
inline constexpr const char* promptTooLarge = "Zusammenfassungs-Eingabe zu groß.";

}  // namespace meetingcore
