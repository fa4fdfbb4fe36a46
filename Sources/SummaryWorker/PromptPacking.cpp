#include "SummaryWorker/PromptPacking.h"

#include <algorithm>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Summary/SummaryInstructions.h"

namespace meetingcore {

namespace {

/// By how many tokens one value more or less may change a prompt beside the value's own: those at its two ends,
/// which may be cut differently next to another neighbour.
constexpr std::ptrdiff_t uncertainty = 8;

class Packer {
public:
    Packer(std::span<const std::string> values, const PromptBuilder& prompt, TextModel& model,
           std::size_t budget)
        : values_(values),
          prompt_(prompt),
          model_(model),
          budget_(static_cast<std::ptrdiff_t>(budget)),
          alone_(values.size()) {
        frameBytes_ = prompt_("[]").size();
        bytes_.push_back(0);
        for (const auto& value : values_) {
            const auto escaped = ChatFrame::escaped(value);
            if (escaped.size() >= maximumPromptBytes) failForSize();
            bytes_.push_back(bytes_.back() + escaped.size() + 1);
        }
        if (!values_.empty()) frameTokens_ = tokensOf(prompt_("[]"));
    }

    std::vector<std::string> pack() {
        std::vector<std::string> arrays;
        for (std::size_t begin = 0; begin < values_.size();) {
            const auto end = endOfArray(begin);
            arrays.push_back(array(begin, end));
            begin = end;
        }
        return arrays;
    }

private:
    /// The end of the array that starts at `begin`: narrows the gap between the longest array known to fit and
    /// the shortest known not to. Where to try first follows from the bytes, where to try next from the tokens
    /// that were missing or too many.
    std::size_t endOfArray(std::size_t begin) {
        auto fits = begin + 1;
        auto fails = values_.size() + 1;
        if (promptBytes(begin, fits) > maximumPromptBytes) failForSize();
        auto guess = endByBytes(begin);
        while (fails - fits > 1) {
            const auto end = std::clamp(guess, fits + 1, fails - 1);
            if (promptBytes(begin, end) > maximumPromptBytes) {
                fails = end;
                continue;
            }
            auto room = budget_ - count(begin, end);
            guess = end;
            if (room >= 0) {
                fits = end;
                if (end < values_.size() && alone(end) - uncertainty > room) fails = end + 1;
                while (guess + 1 < fails && room >= alone(guess)) room -= alone(guess++);
            } else {
                fails = end;
                if (room + alone(end - 1) - uncertainty >= 0) fits = std::max(fits, end - 1);
                while (guess > fits && room < 0) room += alone(--guess);
            }
        }
        // Adding values one by one, this is the next prompt that would have been built.
        if (fails <= values_.size() && promptBytes(begin, fails) > maximumPromptBytes) failForSize();
        return fits;
    }

    std::size_t endByBytes(std::size_t begin) const {
        const auto room = static_cast<double>(budget_ - frameTokens_) * bytesPerToken_;
        const auto limit = bytes_[begin] + static_cast<std::size_t>(std::max(0.0, room));
        const auto past = std::upper_bound(bytes_.begin(), bytes_.end(), limit);
        return static_cast<std::size_t>(past - bytes_.begin()) - 1;
    }

    /// Counts the tokens of the array's prompt and learns from it how long a token is.
    std::ptrdiff_t count(std::size_t begin, std::size_t end) {
        const auto tokens = tokensOf(prompt_(array(begin, end)));
        if (tokens > frameTokens_) {
            bytesPerToken_ =
                static_cast<double>(bytes_[end] - bytes_[begin]) / static_cast<double>(tokens - frameTokens_);
        }
        return tokens;
    }

    /// The tokens of one value on its own, counted when they are first asked for.
    std::ptrdiff_t alone(std::size_t value) {
        auto& tokens = alone_[value];
        if (tokens == 0) tokens = tokensOf(ChatFrame::escaped(values_[value]) + ",");
        return tokens;
    }

    std::ptrdiff_t tokensOf(const std::string& text) {
        return static_cast<std::ptrdiff_t>(model_.countTokens(text));
    }

    std::size_t promptBytes(std::size_t begin, std::size_t end) const {
        return frameBytes_ + bytes_[end] - bytes_[begin] - 1;  // no comma after the last value
    }

    std::string array(std::size_t begin, std::size_t end) const {
        std::string text = "[";
        for (auto i = begin; i < end; ++i) {
            if (i > begin) text += ',';
            text += values_[i];
        }
        return text + "]";
    }

    [[noreturn]] static void failForSize() {
        throw MeetingError::invalidData("Zusammenfassungs-Eingabe zu groß.");
    }

    std::span<const std::string> values_;
    const PromptBuilder& prompt_;
    TextModel& model_;
    std::ptrdiff_t budget_;
    std::size_t frameBytes_ = 0;
    std::ptrdiff_t frameTokens_ = 0;
    double bytesPerToken_ = 3;        ///< of the values, as last seen; at first what is usual for German
    std::vector<std::size_t> bytes_;  ///< running total of the values' bytes in the prompt
    std::vector<std::ptrdiff_t> alone_;
};

}  // namespace

std::vector<std::string> packIntoArrays(std::span<const std::string> values, const PromptBuilder& prompt,
                                        TextModel& model, std::size_t tokenBudget) {
    return Packer(values, prompt, model, tokenBudget).pack();
}

}  // namespace meetingcore
