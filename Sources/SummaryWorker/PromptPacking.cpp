#include "SummaryWorker/PromptPacking.h"

#include <algorithm>
#include <optional>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "SummaryWorker/PromptLimits.h"

namespace meetingcore {

namespace {

/// By how many tokens one value more or less may change a prompt beside what `added` tells: a value's two ends
/// may be cut differently next to another neighbour. Seen is one token at most.
constexpr std::ptrdiff_t uncertainty = 2;

class Packer {
public:
    Packer(std::span<const std::string> values, const PromptBuilder& prompt, TextModel& model,
           std::size_t budget)
        : values_(values),
          prompt_(prompt),
          model_(model),
          budget_(static_cast<std::ptrdiff_t>(budget)),
          added_(values.size()) {
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
    /// the shortest known not to. Where to try first follows from the bytes. From the tokens missing there or
    /// left, and those of the neighbouring values, most often the end follows; else it tells what to try next.
    std::size_t endOfArray(std::size_t begin) {
        begin_ = begin;
        fits_ = begin + 1;
        fails_ = values_.size() + 1;
        requireReadable(begin, fits_);
        auto guess = endByBytes(begin);
        while (fails_ - fits_ > 1) {
            const auto end = std::clamp(guess, fits_ + 1, fails_ - 1);
            if (promptBytes(begin, end) > maximumPromptBytes) {
                fails_ = end;
                continue;
            }
            const auto room = budget_ - count(begin, end);
            guess = room >= 0 ? grow(end, room) : shrink(end, room);
        }
        // Adding values one by one, this is the next prompt that would have been built.
        if (fails_ <= values_.size()) requireReadable(begin, fails_);
        return fits_;
    }

    /// Fails for a prompt that is too large, or that the model finds to have too many tokens.
    void requireReadable(std::size_t begin, std::size_t end) {
        if (promptBytes(begin, end) > maximumPromptBytes) failForSize();
        // A token has a byte at least, so that what has fewer bytes need not be counted.
        if (promptBytes(begin, end) > maximumTextTokens) count(begin, end);
    }

    /// Takes in that the array up to `end` leaves so much room. Returns the first end that is uncertain.
    std::size_t grow(std::size_t end, std::ptrdiff_t room) {
        fits_ = end;
        std::ptrdiff_t doubt = 0;
        while (fits_ + 1 < fails_) {
            if (promptBytes(begin_, fits_ + 1) > maximumPromptBytes) {
                fails_ = fits_ + 1;
                break;
            }
            room -= added(fits_);
            doubt += uncertainty;
            if (room + doubt < 0) {
                fails_ = fits_ + 1;
            } else if (room >= doubt) {
                ++fits_;
            } else {
                break;
            }
        }
        return fits_ + 1;
    }

    /// Takes in that the array up to `end` has so many tokens too many (`room` is negative). Returns the first
    /// end that is uncertain.
    std::size_t shrink(std::size_t end, std::ptrdiff_t room) {
        fails_ = end;
        std::ptrdiff_t doubt = 0;
        while (fails_ - 1 > fits_) {
            room += added(fails_ - 1);
            doubt += uncertainty;
            if (room + doubt < 0) {
                --fails_;
            } else if (room >= doubt) {
                fits_ = fails_ - 1;
            } else {
                break;
            }
        }
        return fails_ - 1;
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

    /// The tokens that a value adds behind another one, counted when they are first asked for.
    std::ptrdiff_t added(std::size_t value) {
        auto& tokens = added_[value];
        if (!tokens) {
            const std::string before = "\"}";
            if (closingTokens_ == 0) closingTokens_ = tokensOf(before + "]");
            tokens = tokensOf(before + "," + ChatFrame::escaped(values_[value]) + "]") - closingTokens_;
        }
        return *tokens;
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

    [[noreturn]] static void failForSize() { throw MeetingError::invalidData(promptTooLarge); }

    std::span<const std::string> values_;
    const PromptBuilder& prompt_;
    TextModel& model_;
    std::ptrdiff_t budget_;
    std::size_t frameBytes_ = 0;
    std::ptrdiff_t frameTokens_ = 0;
    double bytesPerToken_ = 3;        ///< of the values, as last seen; at first what is usual for German
    std::vector<std::size_t> bytes_;  ///< running total of the values' bytes in the prompt
    std::vector<std::optional<std::ptrdiff_t>> added_;
    std::ptrdiff_t closingTokens_ = 0;
    std::size_t begin_ = 0;  ///< of the array whose end is looked for
    std::size_t fits_ = 0;   ///< the longest end known to fit, or the first value alone
    std::size_t fails_ = 0;  ///< the shortest end known not to
};

}  // namespace

std::vector<std::string> packIntoArrays(std::span<const std::string> values, const PromptBuilder& prompt,
                                        TextModel& model, std::size_t tokenBudget) {
    return Packer(values, prompt, model, tokenBudget).pack();
}

}  // namespace meetingcore
