#include "Report.h"

#include <algorithm>
#include <utility>

#include "GermanWords.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/MeetingExport.h"

namespace meetingcore::quillmoot {

namespace {

constexpr std::string_view indent = "     ";

/// Takes the words of the segment off the front of what is left of a quote.
std::string_view taken(std::string_view& quote, std::string_view segmentText) {
    const auto spoken = text::trimmed(segmentText);
    if (!quote.starts_with(spoken)) return std::exchange(quote, {});  // the quote was cut here
    const auto part = quote.substr(0, spoken.size());
    quote = text::trimmed(quote.substr(spoken.size()));
    return part;
}

/// The quote joins the cited segments in transcript order, so walking them gives each part its speaker and
/// time.
void writeCitation(Terminal& out, const EvidenceBullet& point, const TranscriptDocument& document) {
    std::string_view rest = point.quote;
    for (const auto& segment : document.segments) {
        const auto& ids = point.sourceSegmentIDs;
        if (rest.empty() || std::ranges::find(ids, segment.id) == ids.end()) continue;
        const auto part = taken(rest, segment.text);
        if (part.empty()) continue;
        std::string line = "[" + lengthOf(segment.startSeconds) + "] ";
        line.append(document.speakerLabel(segment)).append(": „").append(part).append("“");
        if (part.size() < text::trimmed(segment.text).size()) line += " …";
        out.wrapped(indent, line, Ink::dim);
    }
}

}  // namespace

void writeSummary(Terminal& out, const EvidenceSummary& summary, const TranscriptDocument& document) {
    for (const auto& category : MeetingExport::categories) {
        out.heading(category.heading);
        const auto& points = summary.*category.points;
        if (points.empty()) out.wrapped("  ", MeetingExport::emptyCategoryText);
        for (std::size_t i = 0; i < points.size(); ++i) {
            const auto& point = points[i];
            if (i > 0) out.line();
            out.wrapped("  " + std::to_string(i + 1) + ". ", point.text, Ink::bold);
            if (point.owner) out.wrapped(indent, "Verantwortlich: " + *point.owner);
            if (point.dueDate) out.wrapped(indent, "Termin: " + *point.dueDate);
            if (!isBorneOut(point, document.segments)) {
                out.wrapped(indent, "Veraltet: Das Transkript lautet inzwischen anders.", Ink::yellow);
                out.wrapped(indent, "Damals: „" + point.quote + "“", Ink::dim);
            } else {
                writeCitation(out, point, document);
            }
        }
    }
}

}  // namespace meetingcore::quillmoot
