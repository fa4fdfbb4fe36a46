#include "MeetingCore/Presentation/HTMLExport.h"

#include <algorithm>
#include <unordered_map>

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/Markup.h"
#include "MeetingCore/Presentation/PageAssets.h"

namespace meetingcore {

namespace {

/// Nothing may be loaded, and only our own style and script, known by their digests, may run.
const std::string& contentSecurityPolicy() {
    static const std::string policy = [] {
        const auto source = [](std::string_view text) { return " 'sha256-" + SHA256::base64(text) + "'"; };
        return "default-src 'none'; style-src" + source(PageAssets::style) + "; script-src" +
               source(PageAssets::script) + "; base-uri 'none'; form-action 'none'";
    }();
    return policy;
}

/// Where a segment stands on the page, for links to it.
struct Anchor {
    std::size_t number;
    const TranscriptSegment* segment;
};

class Page {
public:
    Page(const ExportedMeeting& meeting, const HTMLExport::Appearance& appearance)
        : meeting_(meeting),
          appearance_(appearance),
          elapsed_(TranscriptTimestampMode::elapsed, meeting.recording),
          clock_(TranscriptTimestampMode::clock, meeting.recording) {
        if (meeting_.transcript != nullptr) blocks_ = TranscriptLayout::blocks(*meeting_.transcript, false);
        if (!meeting_.recording) appearance_.times = TranscriptTimestampMode::elapsed;
    }

    std::string render() {
        appendHead();
        out_ += "<body>\n<header>\n";
        appendElement("h1", "", MeetingExport::singleLine(meeting_.entry.title));
        appendFacts();
        out_ += "</header>\n<main>\n";
        appendNotes();
        appendSummary();
        appendTranscript();
        out_ += "</main>\n<script>";
        out_ += PageAssets::script;
        out_ += "</script>\n</body>\n</html>\n";
        return std::move(out_);
    }

private:
    void appendHead() {
        out_ += "<!DOCTYPE html>\n<html lang=\"de\" data-times=\"";
        out_ += json::nameOf(appearance_.times);
        out_ +=
            "\">\n<head>\n<meta charset=\"utf-8\">\n<meta http-equiv=\"Content-Security-Policy\" content=\"";
        out_ += contentSecurityPolicy();
        out_ +=
            "\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
        appendElement("title", "", MeetingExport::singleLine(meeting_.entry.title));
        out_ += "<style>";
        out_ += PageAssets::style;
        out_ += "</style>\n</head>\n";
    }

    void appendElement(std::string_view tag, std::string_view cssClass, std::string_view text) {
        out_ += '<';
        out_ += tag;
        if (!cssClass.empty()) {
            out_ += " class=\"";
            out_ += cssClass;
            out_ += '"';
        }
        out_ += '>';
        appendEscaped(out_, text, htmlSpecial);
        out_ += "</";
        out_ += tag;
        out_ += ">\n";
    }

    void appendFacts() {
        auto facts = MeetingExport::facts(meeting_);
        if (meeting_.entry.duration > 0) {
            facts.insert(facts.begin() + 1, {"Dauer", elapsed_.format(meeting_.entry.duration)});
        }
        out_ += "<dl class=\"facts\">\n";
        for (const auto& [label, value] : facts) {
            appendElement("dt", "", label);
            appendElement("dd", "", value);
        }
        out_ += "</dl>\n";
    }

    void appendNotes() {
        const auto notes = text::trimmed(meeting_.entry.notes);
        appendElement("h2", "", "Notizen");
        if (notes.empty()) {
            appendElement("p", "quiet", MeetingExport::noNotesText);
        } else {
            appendElement("p", "verbatim", notes);
        }
    }

    void appendSummary() {
        appendElement("h2", "", "Zusammenfassung");
        switch (MeetingExport::summaryState(meeting_)) {
            case SummaryState::missing:
                return appendElement("p", "quiet", MeetingExport::noSummaryText);
            case SummaryState::stale:
                return appendElement("p", "quiet", MeetingExport::staleSummaryText);
            case SummaryState::current:
                break;
        }
        if (meeting_.summary->isExtractive()) appendElement("p", "quiet", MeetingExport::extractiveSummaryText);
        findAnchors();
        for (const auto& category : MeetingExport::categories) {
            appendElement("h3", "", category.heading);
            const auto& points = meeting_.summary->summary.*category.points;
            if (points.empty()) {
                appendElement("p", "quiet", MeetingExport::emptyCategoryText);
                continue;
            }
            out_ += "<ul class=\"points\">\n";
            for (const auto& point : points) appendPoint(point, MeetingExport::holdsTasks(category));
            out_ += "</ul>\n";
        }
    }

    void appendPoint(const EvidenceBullet& point, bool isTask) {
        out_ += "<li>";
        appendElement("p", "verbatim", point.text);
        if (isTask) {
            std::string line = "Verantwortlich: ";
            line += MeetingExport::orOpen(point.owner);
            line += " · Termin: ";
            line += MeetingExport::orOpen(point.dueDate);
            appendElement("p", "task", line);
        }
        out_ += "<div class=\"evidence\">";
        appendElement("blockquote", "", point.quote);
        out_ += "<ul>\n";
        for (const auto& id : point.sourceSegmentIDs) appendSource(id);
        out_ += "</ul></div></li>\n";
    }

    /// A link to a cited segment; a segment without text is not on the page and cannot be jumped to.
    void appendSource(const UUID& id) {
        const auto anchor = anchors_.find(id);
        if (anchor == anchors_.end()) return;
        const auto& [number, segment] = anchor->second;
        out_ += "<li><a href=\"#s";
        out_ += std::to_string(number);
        out_ += "\">";
        appendTime(segment->startSeconds);
        out_ += " · ";
        appendEscaped(out_, MeetingExport::speakerName(*meeting_.transcript, *segment), htmlSpecial);
        out_ += "</a></li>\n";
    }

    void findAnchors() {
        std::size_t number = 0;
        for (const auto& block : blocks_) {
            for (const auto& segment : block.segments)
                anchors_.try_emplace(segment.id, Anchor{++number, &segment});
        }
    }

    void appendTranscript() {
        appendElement("h2", "", "Transkript");
        if (blocks_.empty()) return appendElement("p", "quiet", MeetingExport::noTranscriptText);
        appendTools();
        const auto colors = SpeakerColors::assignments(blocks_, appearance_.personal);
        for (const auto& block : blocks_) {
            out_ += "<article class=\"block ";
            out_ += json::nameOf(colors.at(block.speaker));
            out_ += "\">";
            appendElement("h3", "", MeetingExport::speakerName(*meeting_.transcript, block.firstSegment()));
            appendParagraphs(block);
            out_ += "</article>\n";
        }
    }

    void appendTools() {
        out_ +=
            "<div class=\"tools\" role=\"search\" hidden>"
            "<input id=\"query\" type=\"search\" placeholder=\"Im Transkript suchen\" "
            "aria-label=\"Im Transkript suchen\" autocomplete=\"off\" autocapitalize=\"off\" "
            "spellcheck=\"false\"><output id=\"count\" for=\"query\"></output>";
        if (meeting_.recording) {
            out_ +=
                "<button id=\"times\" type=\"button\"><span class=\"elapsed\">Uhrzeit zeigen</span>"
                "<span class=\"clock\">Laufzeit zeigen</span></button>";
        }
        out_ += "</div>\n";
    }

    void appendParagraphs(const TranscriptBlock& block) {
        for (std::size_t i = 0; i < block.paragraphs.size(); ++i) {
            const auto first = block.paragraphs[i];
            const auto end = i + 1 < block.paragraphs.size() ? block.paragraphs[i + 1] : block.segments.size();
            out_ += R"(<p><a class="at" href="#s)";
            out_ += std::to_string(lastNumber_ + 1);
            out_ += "\">";
            appendTime(block.segments[first].startSeconds);
            out_ += "</a><span>";
            for (auto k = first; k < end; ++k) appendSegment(block.segments[k], k > first);
            out_ += "</span></p>\n";
        }
    }

    void appendSegment(const TranscriptSegment& segment, bool isContinued) {
        if (isContinued) out_ += ' ';
        out_ += R"(<span class="seg" id="s)";
        out_ += std::to_string(++lastNumber_);
        out_ += "\">";
        appendEscaped(out_, text::trimmed(segment.text), htmlSpecial);
        out_ += "</span>";
    }

    /// In both forms where both are known; the style sheet shows the one that is chosen.
    void appendTime(double seconds) {
        out_ += "<span class=\"elapsed\">";
        out_ += elapsed_.format(seconds);
        if (meeting_.recording) {
            out_ += "</span><span class=\"clock\">";
            out_ += clock_.format(seconds);
        }
        out_ += "</span>";
    }

    const ExportedMeeting& meeting_;
    HTMLExport::Appearance appearance_;
    TimestampFormatter elapsed_;
    TimestampFormatter clock_;
    std::vector<TranscriptBlock> blocks_;
    std::unordered_map<UUID, Anchor> anchors_;
    std::size_t lastNumber_ = 0;  ///< of the segments written so far
    std::string out_;
};

}  // namespace

std::string HTMLExport::render(const ExportedMeeting& meeting, const Appearance& appearance) {
    return Page(meeting, appearance).render();
}

}  // namespace meetingcore
