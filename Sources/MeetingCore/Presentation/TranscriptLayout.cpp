#include "MeetingCore/Presentation/TranscriptLayout.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_map>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/Wording.h"

namespace meetingcore {

namespace {

constexpr double paragraphPauseSeconds = 2.0;
constexpr std::size_t longParagraphCharacters = 450;

bool endsSentence(std::string_view text) {
    constexpr std::array<std::string_view, 7> ends{".", "!", "?", "…", "\"", "»", "“"};
    return std::any_of(ends.begin(), ends.end(), [&](std::string_view end) { return text.ends_with(end); });
}

class Layout {
public:
    /// Appends a segment with the text, trimmed and not empty, that is shown for it.
    void append(const TranscriptSegment& segment, std::string_view shown) {
        auto speaker = TranscriptSpeakerKey::of(segment);
        if (blocks_.empty() || blocks_.back().speaker != speaker) {
            open(std::move(speaker));
        } else if (startsParagraph(segment)) {
            blocks_.back().text += "\n\n";
            startParagraph();
        } else {
            blocks_.back().text += ' ';
            ++paragraphCharacters_;
        }
        auto& block = blocks_.back();
        block.segments.push_back(segment);
        block.text += shown;
        paragraphCharacters_ += text::characterCount(shown);
    }

    std::vector<TranscriptBlock> take() { return std::move(blocks_); }

private:
    void open(TranscriptSpeakerKey speaker) {
        const auto color = colors_.try_emplace(speaker, colors_.size()).first->second;
        blocks_.push_back({std::move(speaker), color, {}, {}, {}});
        startParagraph();
    }

    void startParagraph() {
        blocks_.back().paragraphs.push_back(blocks_.back().segments.size());
        paragraphCharacters_ = 0;
    }

    bool startsParagraph(const TranscriptSegment& next) const {
        const auto& block = blocks_.back();
        if (next.startSeconds - block.segments.back().endSeconds >= paragraphPauseSeconds) return true;
        return paragraphCharacters_ >= longParagraphCharacters && endsSentence(block.text);
    }

    std::vector<TranscriptBlock> blocks_;
    std::unordered_map<TranscriptSpeakerKey, std::size_t> colors_;
    std::size_t paragraphCharacters_ = 0;
};

}  // namespace

std::vector<TranscriptBlock> TranscriptLayout::blocks(const TranscriptDocument& document, bool original) {
    const Wording wording(document, original);
    Layout layout;
    for (const auto& segment : document.segments) {
        const auto shown = text::trimmed(wording.of(segment));
        if (!shown.empty()) layout.append(segment, shown);
    }
    return layout.take();
}

}  // namespace meetingcore
