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
        : values_(values), prompt_(prompt), model_(model), budget_(static_cast<std::ptrdiff_t>(budget)) {
        frameBytes_ = prompt_("[]").size();
        estimates_.push_back(0);
        bytes_.push_back(0);
        for (const auto& value : values_) {
            const auto escaped = ChatFrame::escaped(value) + ",";
            if (escaped.size() > maximumPromptBytes) failForSize();
            bytes_.push_back(bytes_.back() + escaped.size());
            estimates_.push_back(estimates_.back() +
                                 static_cast<std::ptrdiff_t>(model_.tokenize(escaped).size()));
        }
        if (!values_.empty()) offset_ = static_cast<std::ptrdiff_t>(model_.tokenize(prompt_("[]")).size());
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
    /// the shortest known not to, trying first where the estimates put the border.
    std::size_t endOfArray(std::size_t begin) {
        auto fits = begin + 1;
        auto fails = values_.size() + 1;
        if (promptBytes(begin, fits) > maximumPromptBytes) failForSize();
        while (fails - fits > 1) {
            const auto end = std::clamp(estimatedEnd(begin), fits + 1, fails - 1);
            if (promptBytes(begin, end) > maximumPromptBytes) {
                fails = end;
                continue;
            }
            const auto tokens = count(begin, end);
            if (tokens <= budget_) {
                fits = end;
                if (end < values_.size() && tokens + estimate(end) - uncertainty > budget_) fails = end + 1;
            } else {
                fails = end;
                if (tokens - estimate(end - 1) + uncertainty <= budget_) fits = std::max(fits, end - 1);
            }
        }
        // Adding values one by one, this is the next prompt that would have been built.
        if (fails <= values_.size() && promptBytes(begin, fails) > maximumPromptBytes) failForSize();
        return fits;
    }

    std::size_t estimatedEnd(std::size_t begin) const {
        const auto limit = estimates_[begin] + budget_ - offset_;
        const auto past = std::upper_bound(estimates_.begin(), estimates_.end(), limit);
        return static_cast<std::size_t>(std::max<std::ptrdiff_t>(0, past - estimates_.begin() - 1));
    }

    std::ptrdiff_t estimate(std::size_t value) const { return estimates_[value + 1] - estimates_[value]; }

    /// Counts the tokens of the array's prompt and corrects the estimates by what they were off.
    std::ptrdiff_t count(std::size_t begin, std::size_t end) {
        const auto exact = static_cast<std::ptrdiff_t>(model_.tokenize(prompt_(array(begin, end))).size());
        offset_ = exact - (estimates_[end] - estimates_[begin]);
        return exact;
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
    std::vector<std::size_t> bytes_;         ///< running total of the values' bytes in the prompt
    std::vector<std::ptrdiff_t> estimates_;  ///< running total of the values' tokens, each counted alone
    std::ptrdiff_t offset_ = 0;              ///< tokens of a prompt beside its values' estimates, as last seen
};

}  // namespace

std::vector<std::string> packIntoArrays(std::span<const std::string> values, const PromptBuilder& prompt,
                                        TextModel& model, std::size_t tokenBudget) {
    return Packer(values, prompt, model, tokenBudget).pack();
}

}  // namespace meetingcore
