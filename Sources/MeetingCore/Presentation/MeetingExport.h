#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Presentation/TimestampFormatter.h"
#include "MeetingCore/Summary/SummaryArtifact.h"

namespace meetingcore {

/// What there is of one meeting to export. Refers to the caller's records.
struct ExportedMeeting {
    const MeetingEntry& entry;
    const TranscriptDocument* transcript = nullptr;  ///< null where there is none
    const SummaryArtifact* summary = nullptr;        ///< null where there is none
    std::optional<RecordingClock> recording{};
};

/// Whether a stored summary may be shown. Every form of export asks this and shows a stale summary as stale.
enum class SummaryState { missing, stale, current };

template <>
inline constexpr auto json::names<SummaryState> = std::to_array<std::string_view>({"missing", "stale",
                                                                                   "current"});

/// A meeting as text for saving or copying. Never throws for what the meeting contains.
namespace MeetingExport {

/// Which sections follow the header.
enum class Content { all, transcript, summary };

/// The whole export, as plain text or as Markdown. Texts are taken over as they are; nothing is escaped.
std::string render(const ExportedMeeting& meeting, bool plain, Content content);

/// Title, date, participants, custom fields that hold something, and notes. The date is the start of the
/// recording in its own time zone where that is known, else the creation of the entry in the current one.
std::string header(const ExportedMeeting& meeting, bool plain);

/// One line per segment: speaker, colon and text, without line breaks inside. `original` selects the
/// recognised wording instead of the user's corrections.
std::string transcriptText(const TranscriptDocument& document, bool original);

/// The four categories with their points, without sources and quotes.
std::string summaryText(const EvidenceSummary& summary, bool plain);

/// A summary is current if it was made from exactly this transcript and passes the checks against it.
SummaryState summaryState(const ExportedMeeting& meeting);

/// What all forms of export share.

inline constexpr std::string_view noTranscriptText =
    "Noch nicht verfügbar. Es wurde keine Transkription erstellt.";
inline constexpr std::string_view noSummaryText = "Noch keine Zusammenfassung vorhanden.";
inline constexpr std::string_view staleSummaryText =
    "Zusammenfassung veraltet oder ungültig. Bitte neu erstellen.";
inline constexpr std::string_view extractiveSummaryText =
    "Ohne Sprachmodell erstellt: ausgewählte Stellen des Transkripts, kein Protokoll.";
inline constexpr std::string_view noNotesText = "Keine Notizen gespeichert.";
inline constexpr std::string_view emptyCategoryText = "Keine belegten Angaben.";
inline constexpr std::string_view openText = "offen";

struct Category {
    std::string_view heading;
    std::vector<EvidenceBullet> EvidenceSummary::*points;
};

inline constexpr std::array<Category, 4> categories{{{"Kurzfassung", &EvidenceSummary::overview},
                                                     {"Entscheidungen", &EvidenceSummary::decisions},
                                                     {"Aufgaben", &EvidenceSummary::tasks},
                                                     {"Offene Fragen", &EvidenceSummary::openQuestions}}};

/// Whether the points of a category have an owner and a due date.
constexpr bool holdsTasks(const Category& category) { return category.points == &EvidenceSummary::tasks; }

/// The value, or that it is open.
std::string_view orOpen(const std::optional<std::string>& value);

/// The speaker's name in exports: as in the transcript, but short for the user at the local microphone.
std::string speakerName(const TranscriptDocument& document, const TranscriptSegment& segment);

/// The text on one line: its line breaks become blanks.
std::string singleLine(std::string_view text);

/// The labelled facts of the header in their order.
std::vector<std::pair<std::string, std::string>> facts(const ExportedMeeting& meeting);

}  // namespace MeetingExport
}  // namespace meetingcore
