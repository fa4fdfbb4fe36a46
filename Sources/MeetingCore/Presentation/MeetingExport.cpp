#include "MeetingCore/Presentation/MeetingExport.h"

#include <cstdio>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/Wording.h"

namespace meetingcore::MeetingExport {

namespace {

std::string dateText(const ExportedMeeting& meeting) {
    const auto& recording = meeting.recording;
    const auto local = recording ? TimeZone(recording->timeZoneIdentifier).local(recording->startedAt)
                                 : TimeZone::current().local(meeting.entry.createdAt);
    char buffer[80];
    const int length = std::snprintf(buffer, sizeof(buffer), "%02d.%02d.%04d, %02d:%02d", local.day,
                                     local.month, local.year, local.hour, local.minute);
    return {buffer, static_cast<std::size_t>(length)};
}

template <class List, class Text>
std::string joined(const List& list, std::string_view separator, const Text& text) {
    std::string out;
    bool first = true;
    for (const auto& item : list) {
        if (!std::exchange(first, false)) out += separator;
        out += text(item);
    }
    return out;
}

void appendSection(std::string& out, std::string_view title, std::string_view body, bool plain) {
    out += plain ? "\n\n" : "\n\n## ";
    out += title;
    out += plain ? ":\n\n" : "\n\n";
    out += body;
}

/// The bytes of the line break at this offset; 0 where there is none.
std::size_t lineBreakSize(std::string_view text, std::size_t offset) {
    const auto lead = static_cast<unsigned char>(text[offset]);
    if (lead < 0x80) return lead >= '\n' && lead <= '\r' ? 1 : 0;
    if (lead != 0xC2 && lead != 0xE2) return 0;
    for (const std::string_view wide : {"\u0085", "\u2028", "\u2029"}) {
        if (text.substr(offset).starts_with(wide)) return wide.size();
    }
    return 0;
}

std::string pointText(const EvidenceBullet& point, const Category& category, bool plain) {
    std::string out = plain ? "• " : "- ";
    out += point.text;
    if (!holdsTasks(category)) return out;
    out += "\n  Verantwortlich: ";
    out += orOpen(point.owner);
    out += " · Termin: ";
    out += orOpen(point.dueDate);
    return out;
}

std::string categoryText(const EvidenceSummary& summary, const Category& category, bool plain) {
    std::string out = plain ? "" : "### ";
    out += category.heading;
    out += "\n\n";
    const auto& points = summary.*category.points;
    if (points.empty()) return out.append(emptyCategoryText);
    return out + joined(points, "\n\n",
                        [&](const EvidenceBullet& point) { return pointText(point, category, plain); });
}

std::string summaryBody(const ExportedMeeting& meeting, bool plain) {
    switch (summaryState(meeting)) {
        case SummaryState::missing:
            return std::string(noSummaryText);
        case SummaryState::stale:
            return std::string(staleSummaryText);
        case SummaryState::current:
            break;
    }
    return summaryText(meeting.summary->summary, plain);
}

}  // namespace

std::string render(const ExportedMeeting& meeting, bool plain, Content content) {
    auto out = header(meeting, plain);
    if (content != Content::summary) {
        auto transcript = meeting.transcript != nullptr ? transcriptText(*meeting.transcript, false) : "";
        if (transcript.empty()) transcript = noTranscriptText;
        appendSection(out, "Transkript", transcript, plain);
        if (content == Content::transcript) return out;
    }
    appendSection(out, "Zusammenfassung", summaryBody(meeting, plain), plain);
    return out;
}

std::string header(const ExportedMeeting& meeting, bool plain) {
    std::string out = plain ? "" : "# ";
    out += singleLine(meeting.entry.title);
    out += "\n\n";
    out += joined(facts(meeting), "\n", [&](const auto& fact) {
        const auto& [label, value] = fact;
        return plain ? label + ": " + value : "**" + label + ":** " + value + "  ";
    });
    const auto& notes = meeting.entry.notes;
    appendSection(out, "Notizen", notes.empty() ? noNotesText : notes, plain);
    return out;
}

std::string transcriptText(const TranscriptDocument& document, bool original) {
    const Wording wording(document, original);
    return joined(document.segments, "\n", [&](const TranscriptSegment& segment) {
        return singleLine(speakerName(document, segment)) + ": " + singleLine(wording.of(segment));
    });
}

std::string summaryText(const EvidenceSummary& summary, bool plain) {
    return joined(categories, "\n\n",
                  [&](const Category& category) { return categoryText(summary, category, plain); });
}

SummaryState summaryState(const ExportedMeeting& meeting) {
    if (meeting.summary == nullptr) return SummaryState::missing;
    if (meeting.transcript == nullptr) return SummaryState::stale;
    try {
        if (meeting.summary->transcriptFingerprint != SummaryArtifact::fingerprint(*meeting.transcript)) {
            return SummaryState::stale;
        }
        meeting.summary->summary.validate(meeting.transcript->segments);
        return SummaryState::current;
    } catch (const MeetingError&) {
        return SummaryState::stale;  // a transcript without a fingerprint has no current summary either
    }
}

std::string_view orOpen(const std::optional<std::string>& value) {
    return value && !value->empty() ? std::string_view(*value) : openText;
}

std::string speakerName(const TranscriptDocument& document, const TranscriptSegment& segment) {
    const bool isUser =
        segment.source == AudioSource::microphone && !segment.speakerID && !document.microphoneDiarized();
    return isUser ? "Ich" : document.speakerLabel(segment);
}

std::string singleLine(std::string_view text) {
    std::string out;
    bool separate = false;
    for (std::size_t offset = 0; offset < text.size();) {
        if (const auto size = lineBreakSize(text, offset); size > 0) {
            separate = !out.empty();
            offset += size;
            continue;
        }
        if (std::exchange(separate, false)) out += ' ';
        out += text[offset++];
    }
    return std::string(text::trimmed(out));
}

std::vector<std::pair<std::string, std::string>> facts(const ExportedMeeting& meeting) {
    const auto metadata = meeting.entry.metadata.value_or(MeetingMetadata{});
    const auto participants = text::joined(metadata.participants, ", ");
    std::vector<std::pair<std::string, std::string>> facts{
        {"Datum", dateText(meeting)},
        {"Teilnehmer", metadata.participants.empty() ? "Nicht angegeben" : participants}};
    for (const auto& field : metadata.fields) {
        if (!text::trimmed(field.value).empty()) facts.emplace_back(field.name, field.value);
    }
    return facts;
}

}  // namespace meetingcore::MeetingExport
