#pragma once

#include <cstddef>
#include <string>

namespace meetingcore {

/// What the summary and title tasks need of a language model. The tasks hold a reference to this seam instead
/// of the model itself, so that their own decisions (cutting, retrying, merging, caching) can be tested with
/// scripted answers.
///
/// Not thread-safe; one thread uses a model, and calls never overlap. Every failure is a `MeetingError`.
class TextModel {
public:
    TextModel() = default;
    virtual ~TextModel() = default;
    TextModel(const TextModel&) = delete;
    TextModel& operator=(const TextModel&) = delete;

    /// How many tokens `text` (UTF-8) has, chat markers taken as control tokens. At least one; empty text is an
    /// error.
    virtual std::size_t countTokens(const std::string& text) = 0;

    /// The raw bytes of the model's answer to `prompt`: the title object where `titleOnly`, else the summary
    /// object. The same prompt always yields the same bytes. They are the caller's to decode and to check.
    virtual std::string generate(const std::string& prompt, bool titleOnly) = 0;
};

}  // namespace meetingcore
