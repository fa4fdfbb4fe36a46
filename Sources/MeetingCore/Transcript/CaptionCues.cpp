#include <algorithm>
#include <map>
#include <utility>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Transcript/CaptionFormats.h"
#include "MeetingCore/Transcript/CaptionText.h"
#include "MeetingCore/Transcript/FileProblems.h"
#include "MeetingCore/Transcript/ImportedFile.h"

namespace meetingcore {

namespace {

constexpr std::string_view arrow = "-->";

bool isCounter(std::string_view line) {
    return !line.empty() && std::all_of(line.begin(), line.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// A block of a WebVTT file that holds no cue.
bool opensOtherBlock(std::string_view line) {
    const auto word = line.substr(0, line.find_first_of(" \t"));
    return word == "NOTE" || word == "STYLE" || word == "REGION";
}

/// Turns lines into captions. A line with an arrow begins a cue wherever it stands, a blank line ends one.
class CueReader {
public:
    CueReader(std::string name, bool webVTT)
        : file_{name, "Zeile", {}}, problems_(std::move(name), "Zeile"), webVTT_(webVTT), skipping_(webVTT) {}

    void line(std::string_view line) {
        ++number_;
        if (const auto problem = ImportedFile::lineProblem(line)) problems_.add(number_, *problem);
        const auto content = text::trimmed(line);
        if (content.find(arrow) != std::string_view::npos) {
            beginCue(content);
        } else if (content.empty()) {
            endBlock();
        } else if (inCue_) {
            text_.append(line).append("\n");
        } else if (!skipping_) {
            if (webVTT_ && name_ == 0 && opensOtherBlock(content)) {
                skipping_ = true;
            } else if (name_ == 0) {
                name_ = number_;
            }
        }
    }

    CaptionFile take() {
        endBlock();
        problems_.throwIfAny();
        return std::move(file_);
    }

private:
    void beginCue(std::string_view content) {
        if (inCue_) {
            dropCounterAtEnd();
            endCue();
        }
        name_ = 0;
        skipping_ = false;
        inCue_ = true;
        place_ = number_;
        const auto at = content.find(arrow);
        const auto behind = text::trimmed(content.substr(at + arrow.size()));
        start_ = CaptionText::seconds(text::trimmed(content.substr(0, at)));
        end_ = CaptionText::seconds(behind.substr(0, behind.find_first_of(" \t")));  // settings may follow
        if (!start_ || !end_) problems_.add(place_, "Zeitangabe ist ungültig.");
    }

    void endBlock() {
        if (inCue_) endCue();
        if (name_ != 0) problems_.add(name_, "Zeitangabe fehlt.");
        name_ = 0;
        skipping_ = false;
    }

    /// Where the blank line before a cue is missing, its number looks like text of the one before.
    void dropCounterAtEnd() {
        const auto text = text::trimmed(text_);
        const auto lastLine = text.substr(text.find_last_of('\n') + 1);
        if (isCounter(lastLine)) text_.resize(static_cast<std::size_t>(lastLine.data() - text_.data()));
    }

    void endCue() {
        inCue_ = false;
        const auto text = std::exchange(text_, {});
        if (!start_ || !end_) return;
        if (webVTT_) return add(CaptionText::webVTT(text));
        if (auto line = CaptionText::subRip(text); !line.empty()) add({{std::nullopt, std::move(line)}});
    }

    /// Several voices share a cue's time in proportion to what they say.
    void add(const std::vector<CaptionText::Piece>& pieces) {
        std::size_t all = 0;
        for (const auto& piece : pieces) all += piece.text.size();
        if (const auto problem = CaptionFormats::problem(*start_, *end_, {})) problems_.add(place_, *problem);
        std::size_t before = 0;
        const auto at = [&](std::size_t bytes) {
            return bytes == all
                       ? *end_
                       : *start_ + (*end_ - *start_) * static_cast<double>(bytes) / static_cast<double>(all);
        };
        for (const auto& piece : pieces) {
            const auto start = at(before);
            before += piece.text.size();
            Caption caption{start, at(before), piece.text, piece.speaker, {}, place_};
            if (const auto problem = CaptionFormats::problem(0, 0, piece.text)) problems_.add(place_, *problem);
            file_.captions.push_back(std::move(caption));
        }
    }

    CaptionFile file_;
    FileProblems problems_;
    bool webVTT_;
    bool skipping_;  ///< the header, a comment, a style or a region, up to the next blank line
    std::size_t number_ = 0;
    std::size_t name_ = 0;  ///< the line that names the cue to come
    bool inCue_ = false;
    std::size_t place_ = 0;  ///< the cue's line of times
    std::optional<double> start_, end_;
    std::string text_;
};

/// Some programs write the speaker as "Name: " before the text. A colon alone proves nothing, so the prefixes
/// are taken as names only if nearly every cue has one and names come back.
void takeNamePrefixes(std::vector<Caption>& captions) {
    std::map<std::string_view, std::size_t> names;
    std::size_t prefixed = 0;
    for (const auto& caption : captions) {
        if (caption.speaker) return;
        const auto name = CaptionText::namePrefix(caption.text);
        if (!name) continue;
        ++prefixed;
        ++names[*name];
    }
    if (prefixed == 0 || prefixed * 4 < captions.size() * 3 || names.size() * 2 > prefixed) return;
    for (auto& caption : captions) {
        const auto name = CaptionText::namePrefix(caption.text);
        if (!name) continue;
        caption.speaker = CaptionText::singleLine(*name);
        caption.text = std::string(text::trimmed(std::string_view(caption.text).substr(name->size() + 1)));
    }
}

}  // namespace

CaptionFile CaptionFormats::fromCues(std::string_view text, std::string name, bool webVTT) {
    CueReader reader(std::move(name), webVTT);
    while (!text.empty()) reader.line(ImportedFile::takeLine(text));
    auto file = reader.take();
    takeNamePrefixes(file.captions);
    return file;
}

}  // namespace meetingcore
