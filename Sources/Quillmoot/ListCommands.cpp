#include <algorithm>
#include <map>
#include <span>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/MeetingSearch.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/MeetingExport.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "Names.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

/// One meeting as `list` and `show` give it to other programs.
struct MeetingRow {
    std::string id;
    std::string title;
    std::string createdAt;  ///< ISO 8601
    double duration = 0;    ///< seconds
    std::string state;
    bool pinned = false;
    std::optional<std::string> project;
    std::int64_t chunkCount = 0;
    std::map<std::string, std::int64_t> jobs;
    bool audioRemoved = false;
    bool hasSummary = false;
};

struct FieldRow {
    std::string name;
    std::string value;
};

struct MeetingDetails {
    MeetingRow meeting;
    std::string notes;
    std::vector<std::string> participants;
    std::vector<FieldRow> fields;
    TranscriptProcessingState processing = TranscriptProcessingState::loading;
    std::int64_t segments = 0;
    std::vector<std::string> speakers;
    SummaryState summary = SummaryState::missing;
    std::string folder;
    std::optional<std::string> problem;
};

struct RangeRow {
    std::int64_t start = 0;  ///< characters
    std::int64_t length = 0;
};

struct HitRow {
    std::string meeting;
    std::string title;
    MeetingSearch::Place place = MeetingSearch::Place::transcript;
    std::optional<std::string> speaker;
    std::optional<double> startSeconds;
    std::optional<std::string> segment;
    std::string text;
    std::vector<RangeRow> ranges;
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::MeetingRow> = json::record(
    json::field("id", &quillmoot::MeetingRow::id), json::field("title", &quillmoot::MeetingRow::title),
    json::field("createdAt", &quillmoot::MeetingRow::createdAt),
    json::field("duration", &quillmoot::MeetingRow::duration),
    json::field("state", &quillmoot::MeetingRow::state), json::field("pinned", &quillmoot::MeetingRow::pinned),
    json::field("project", &quillmoot::MeetingRow::project),
    json::field("chunkCount", &quillmoot::MeetingRow::chunkCount),
    json::field("jobs", &quillmoot::MeetingRow::jobs),
    json::field("audioRemoved", &quillmoot::MeetingRow::audioRemoved),
    json::field("hasSummary", &quillmoot::MeetingRow::hasSummary));

template <>
inline constexpr auto json::fields<quillmoot::FieldRow> = json::record(
    json::field("name", &quillmoot::FieldRow::name), json::field("value", &quillmoot::FieldRow::value));

template <>
inline constexpr auto json::fields<quillmoot::MeetingDetails> =
    json::record(json::field("meeting", &quillmoot::MeetingDetails::meeting),
                 json::field("notes", &quillmoot::MeetingDetails::notes),
                 json::field("participants", &quillmoot::MeetingDetails::participants),
                 json::field("fields", &quillmoot::MeetingDetails::fields),
                 json::field("processing", &quillmoot::MeetingDetails::processing),
                 json::field("segments", &quillmoot::MeetingDetails::segments),
                 json::field("speakers", &quillmoot::MeetingDetails::speakers),
                 json::field("summary", &quillmoot::MeetingDetails::summary),
                 json::field("folder", &quillmoot::MeetingDetails::folder),
                 json::field("problem", &quillmoot::MeetingDetails::problem));

template <>
inline constexpr auto json::fields<quillmoot::RangeRow> = json::record(
    json::field("start", &quillmoot::RangeRow::start), json::field("length", &quillmoot::RangeRow::length));

template <>
inline constexpr auto json::fields<quillmoot::HitRow> = json::record(
    json::field("meeting", &quillmoot::HitRow::meeting), json::field("title", &quillmoot::HitRow::title),
    json::field("place", &quillmoot::HitRow::place), json::field("speaker", &quillmoot::HitRow::speaker),
    json::field("startSeconds", &quillmoot::HitRow::startSeconds),
    json::field("segment", &quillmoot::HitRow::segment), json::field("text", &quillmoot::HitRow::text),
    json::field("ranges", &quillmoot::HitRow::ranges));

namespace quillmoot {
namespace {

MeetingRow rowOf(DataFolder& folder, const MeetingEntry& meeting, std::map<std::string, std::int64_t> jobs) {
    return {.id = meeting.id.string(),
            .title = meeting.title,
            .createdAt = iso8601(meeting.createdAt),
            .duration = meeting.duration,
            .state = meeting.state,
            .pinned = meeting.pinned,
            .project = projectName(folder.library(), meeting),
            .chunkCount = meeting.chunkCount,
            .jobs = std::move(jobs),
            .audioRemoved = AudioArchive::removed(meeting.id, folder.root()),
            .hasSummary = pathExists(folder.folderOf(meeting.id) / layout::summary)};
}

/// How far the transcript and what is made of it are.
std::string queueProgressOf(const MeetingRow& row) {
    const auto count = [&](const char* status) {
        const auto found = row.jobs.find(status);
        return found == row.jobs.end() ? std::int64_t{0} : found->second;
    };
    const auto open = count("pending") + count("running");
    if (isRecordingState(row.state)) return "Aufnahme läuft";
    if (open > 0 && !row.audioRemoved) {
        return "Transkript " + std::to_string(count("completed")) + " von " +
               std::to_string(open + count("completed") + count("failed"));
    }
    if (count("failed") > 0 && !row.audioRemoved)
        return countOf(static_cast<std::size_t>(count("failed")), "Fehler", "Fehler");
    if (row.hasSummary)
        return "mit Zusammenfassung";  // whether it is still current, only the transcript could tell
    return count("completed") > 0 ? "transkribiert" : "ohne Transkript";
}

/// The work on a meeting in a few words.
std::string progressOf(const MeetingRow& row) {
    auto processing = queueProgressOf(row);
    if (row.state != "interrupted") return processing;
    return processing == "ohne Transkript" ? "unterbrochen" : processing + ", unterbrochen";
}

struct ListValues {
    std::string project;
    bool json = false;
};

int list(Shell& shell, const ListValues& values) {
    auto folder = shell.folder();
    std::optional<UUID> only;
    if (!values.project.empty()) only = named(folder.library().projects, values.project, "Ein Projekt")->id;
    std::vector<MeetingRow> rows;
    auto counts = folder.jobs().jobStatsBySession();
    for (const auto& meeting : folder.library().meetings) {
        if (only && meeting.projectID != only) continue;
        rows.push_back(rowOf(folder, meeting, std::move(counts[meeting.id])));
    }
    std::ranges::stable_sort(rows, std::ranges::greater(), &MeetingRow::pinned);
    if (values.json) {
        shell.writeJSON(rows);
        return done;
    }
    if (rows.empty()) {
        shell.err().line("Keine Meetings.");
        return done;
    }
    Table table({"Kennung", "Datum", "Dauer", "Stand", "Titel"}, Table::Last::cut);
    const auto zone = TimeZone::current();
    std::map<std::string, Date> created;
    for (const auto& meeting : folder.library().meetings)
        created.emplace(meeting.id.string(), meeting.createdAt);
    for (const auto& row : rows) {
        const auto title = (row.pinned ? "★ " : "") + row.title + (row.project ? " · " + *row.project : "");
        table.add({row.id.substr(0, 8), localTime(created.at(row.id), zone), lengthOf(row.duration),
                   progressOf(row), title});
    }
    table.write(shell.out());
    return done;
}

std::vector<std::string> speakersOf(const TranscriptDocument& document) {
    std::vector<std::string> names;
    for (const auto& segment : document.segments) {
        auto name = document.speakerLabel(segment);
        if (std::ranges::find(names, name) == names.end()) names.push_back(std::move(name));
    }
    return names;
}

/// `unreadable` is what keeps the transcript or the summary from being read.
MeetingDetails detailsOf(DataFolder& folder, const MeetingEntry& meeting,
                         std::optional<MeetingError>& unreadable) {
    MeetingDetails details;
    details.meeting = rowOf(folder, meeting, folder.jobs().jobStats(meeting.id));
    details.notes = meeting.notes;
    details.folder = folder.folderOf(meeting.id).string();
    const auto metadata =
        meeting.metadata.value_or(MeetingMetadata{})
            .resolving(folder.library().customFields.value_or(std::vector<MeetingFieldDefinition>{}));
    details.participants = metadata.participants;
    for (const auto& field : metadata.fields) details.fields.push_back({field.name, field.value});
    std::optional<TranscriptDocument> document;
    try {
        document = folder.transcript(meeting.id);
        const auto summary = folder.summary(meeting.id);
        details.segments = static_cast<std::int64_t>(document->segments.size());
        details.speakers = speakersOf(*document);
        details.summary =
            MeetingExport::summaryState({meeting, &*document, summary ? &*summary : nullptr, std::nullopt});
    } catch (const MeetingError& error) {
        details.problem = error.message();
        unreadable = error;
    }
    details.processing = TranscriptProcessing::of(meeting, details.meeting.jobs,
                                                  document ? &*document : nullptr, details.meeting.audioRemoved)
                             .resolve();
    return details;
}

std::string_view wordFor(SummaryState state) {
    switch (state) {
        case SummaryState::current:
            return "aktuell";
        case SummaryState::stale:
            return "veraltet";
        case SummaryState::missing:
            break;
    }
    return "keine";
}

int show(Shell& shell, const MeetingValues& values) {
    auto folder = shell.folder();
    const auto& meeting = folder.meeting(values.meeting);
    std::optional<MeetingError> unreadable;
    const auto details = detailsOf(folder, meeting, unreadable);
    if (values.json) {
        shell.writeJSON(details);
        return unreadable ? failed : done;
    }
    auto& out = shell.out();
    out.wrapped("", meeting.title, Ink::bold);
    const auto fact = [&](const std::string& name, std::string_view value) {
        if (!value.empty())
            out.wrapped(name + std::string(16 - std::min<std::size_t>(columnsOf(name), 15), ' '), value);
    };
    fact("Kennung", details.meeting.id);
    fact("Datum", localTime(meeting.createdAt));
    fact("Dauer", lengthOf(meeting.duration));
    fact("Projekt", details.meeting.project.value_or(""));
    fact("Teilnehmer", text::joined(details.participants, ", "));
    for (const auto& field : details.fields) fact(fitted(field.name, 15), field.value);
    const bool transcribed = !details.meeting.jobs.contains("pending");
    fact("Verarbeitung", details.processing == TranscriptProcessingState::waiting && transcribed
                             ? "wartet auf die Sprecher"
                             : quillmoot::wordFor(details.processing));
    fact("Transkript", countOf(static_cast<std::size_t>(details.segments), "Segment", "Segmente"));
    fact("Sprecher", text::joined(details.speakers, ", "));
    fact("Zusammenfassung", wordFor(details.summary));
    fact("Audio", details.meeting.audioRemoved
                      ? "entfernt"
                      : countOf(static_cast<std::size_t>(meeting.chunkCount), "Abschnitt", "Abschnitte"));
    fact("Ordner", details.folder);
    if (!details.notes.empty()) {
        out.heading("Notizen");
        out.paragraphs(details.notes);
    }
    if (!unreadable) return done;
    explain(shell.err(), *unreadable);
    return failed;
}

struct SearchValues {
    std::vector<std::string> words;
    bool json = false;
};

int search(Shell& shell, const SearchValues& values) {
    auto folder = shell.folder();
    auto query = values.words.front();
    for (const auto& word : std::span(values.words).subspan(1)) query += " " + word;
    std::vector<HitRow> rows;
    const MeetingEntry* last = nullptr;
    auto& out = shell.out();
    const auto problems = MeetingSearch::run(
        query, folder.library(), folder.root(), folder.jobs(), [&](const MeetingSearch::Hit& hit) {
            const bool spoken = hit.place == MeetingSearch::Place::transcript;
            if (values.json) {
                HitRow row;
                row.meeting = hit.meeting.id.string();
                row.title = hit.meeting.title;
                row.place = hit.place;
                if (spoken) {
                    row.speaker = hit.speaker;
                    row.startSeconds = hit.startSeconds;
                    row.segment = hit.segment.string();
                }
                row.text = hit.text;
                for (const auto& range : hit.ranges) {
                    row.ranges.push_back(
                        {static_cast<std::int64_t>(range.start), static_cast<std::int64_t>(range.length)});
                }
                rows.push_back(std::move(row));
                return;
            }
            if (last != &hit.meeting) {
                if (last != nullptr) out.line();
                out.wrapped(shortID(hit.meeting.id) + "  " + localTime(hit.meeting.createdAt) + "  ",
                            hit.meeting.title, Ink::bold, Ink::bold);
                last = &hit.meeting;
            }
            if (hit.place == MeetingSearch::Place::title) return;  // the line above
            const auto first = spoken
                                   ? "  [" + lengthOf(hit.startSeconds) + "] " + printable(hit.speaker) + ": "
                                   : std::string("  Notizen: ");
            out.highlighted(first, hit.text, hit.ranges);
        });
    if (values.json) {
        shell.writeJSON(rows);
    } else if (last == nullptr) {
        shell.err().line("Keine Treffer.");
    }
    for (const auto& [meeting, error] : problems) explain(shell.err(), error, "„" + meeting.title + "“: ");
    return problems.empty() ? done : failed;
}

}  // namespace

void addListCommands(CLI::App& app, Shell& shell) {
    const auto [listed, selection] = addCommand(app, shell, "list", "Alle Meetings, die neuesten zuerst", list);
    notBlank(listed.add_option("--project", selection.project, "Nur die Meetings eines Projekts"))
        ->type_name("NAME");
    addJSON(listed, selection.json);

    const auto [shown, details] =
        addMeetingCommand(app, shell, "show", "Was über ein Meeting bekannt ist", show);
    addJSON(shown, details.json);

    const auto [searched, query] =
        addCommand(app, shell, "search", "Durchsucht Transkripte, Titel und Notizen aller Meetings", search);
    notBlank(searched.add_option("WORT", query.words, "Ein Treffer enthält alle Wörter"))->required();
    addJSON(searched, query.json);
}

}  // namespace quillmoot
}  // namespace meetingcore
