#include <charconv>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/TranscriptionRun.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/CommandTranscriber.h"
#include "Names.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

struct JobRow {
    std::string id;
    std::string kind;
    JobStatus status = JobStatus::pending;
    std::int64_t attempts = 0;
    std::optional<AudioSource> source;
    std::optional<double> startSeconds;
    std::optional<double> endSeconds;
    std::optional<std::string> lastError;
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::JobRow> = json::record(
    json::field("id", &quillmoot::JobRow::id), json::field("kind", &quillmoot::JobRow::kind),
    json::field("status", &quillmoot::JobRow::status), json::field("attempts", &quillmoot::JobRow::attempts),
    json::field("source", &quillmoot::JobRow::source),
    json::field("startSeconds", &quillmoot::JobRow::startSeconds),
    json::field("endSeconds", &quillmoot::JobRow::endSeconds),
    json::field("lastError", &quillmoot::JobRow::lastError));

namespace quillmoot {
namespace {

struct TranscribeValues {
    std::string meeting;
    std::string engine;
    int jobs = 1;
    int timeout = 600;
};

/// Makes the jobs that are missing: an import that was cut off has chunks, but no jobs yet.
void planWindows(const UUID& meeting, DataFolder& folder) {
    const auto chunks = DurableChunkStore(folder.root() / layout::meetings).recover(meeting).chunks;
    const auto coverage = WorkScheduler::coverage(meeting, chunks, folder.jobs());
    if (chunks.empty() && coverage.windows.empty())
        throw MeetingError::invalidData("Das Meeting hat kein Audio.");
    WorkScheduler::enqueue(coverage.unplanned, folder.queue(), true);
}

int transcribe(Shell& shell, const TranscribeValues& values) {
    auto folder = shell.folder();
    const auto& entry = folder.meeting(values.meeting);
    if (entry.isBeingRecorded()) {
        throw MeetingError::invalidData("Das Meeting wird gerade aufgenommen oder importiert.");
    }
    const auto meeting = entry.id;
    planWindows(meeting, folder);
    const auto& stop = stopOnInterrupt();
    CommandTranscriber engine(values.engine, folder.root(), std::chrono::seconds(values.timeout));
    auto bar = shell.progress();
    TranscriptionRun::Options options;
    options.jobs = values.jobs;
    const auto report = TranscriptionRun::run(
        meeting, folder.root(), folder.queue(), engine, options, stop,
        [&](const TranscriptionRun::Progress& progress) {
            const auto share = progress.total == 0 ? 1.0
                                                   : static_cast<double>(progress.done + progress.failed) /
                                                         static_cast<double>(progress.total);
            bar.show(share,
                     std::to_string(progress.done) + " von " + std::to_string(progress.total) + " Abschnitten");
        });
    bar.clear();
    shell.err().line(std::to_string(report.transcribed) + " transkribiert, " +
                     std::to_string(report.progress.done) + " von " + std::to_string(report.progress.total) +
                     " Abschnitten fertig.");
    for (const auto& window : report.setAside) {
        shell.err().line(std::string(trackName(window.source)) + " " + lengthOf(window.startSeconds) + "–" +
                             lengthOf(window.endSeconds) + " zurückgestellt: " + window.message,
                         Ink::red);
    }
    if (stop.requested()) {
        shell.err().line("Abgebrochen. Derselbe Aufruf macht weiter.", Ink::yellow);
        return failed;
    }
    if (report.progress.failed > 0) {
        shell.err().line("Mit „quillmoot jobs " + shortID(meeting) +
                         " retry“ wird Fehlgeschlagenes wieder offen.");
    }
    if (report.elsewhere > 0) {
        shell.err().line(
            countOf(static_cast<std::size_t>(report.elsewhere), "Abschnitt ist", "Abschnitte sind") +
            " bei einem anderen Programm in Arbeit.");
    }
    const bool complete = report.progress.failed == 0 && report.pending == 0 && report.elsewhere == 0;
    if (complete && folder.transcript(meeting).diarizationPending()) {
        shell.err().line(
            "Es fehlen noch die Sprecher: „quillmoot speakers import“ oder „quillmoot speakers none“.");
    }
    return complete ? done : failed;
}

JobRow rowOf(const JobState& job) {
    JobRow row{.id = job.id,
               .kind = job.kind,
               .status = job.status,
               .attempts = job.attempts,
               .source = {},
               .startSeconds = {},
               .endSeconds = {},
               .lastError = job.lastError};
    if (const auto window = WorkScheduler::windowOf(job)) {
        row.source = window->source;
        row.startSeconds = window->startSeconds();
        row.endSeconds = window->endSeconds();
    }
    return row;
}

/// Opens jobs again; `confirmed` allows to do so with those that are done.
void openJobs(const UUID& meeting, const std::string& action, bool confirmed, DataFolder& folder) {
    if (AudioArchive::removed(meeting, folder.root()))
        throw MeetingError::invalidData("Das Audio dieses Meetings wurde bewusst entfernt.");
    auto& jobs = folder.queue();
    if (action == "retry") return jobs.retrySession(meeting);
    const auto finished = jobs.jobStats(meeting)["completed"];
    if (finished > 0 && !confirmed) {
        std::size_t corrections = 0;
        try {
            corrections = folder.transcript(meeting).edits.correctedText.size();
        } catch (const MeetingError&) {  // to be transcribed anew is what helps against some
        }
        throw MeetingError::invalidData(
            "Das legt " +
            countOf(static_cast<std::size_t>(finished), "fertigen Abschnitt", "fertige Abschnitte") +
            " beiseite, damit alles neu transkribiert wird; bis dahin gilt der bisherige Text, und es gibt "
            "keine neue Zusammenfassung. " +
            (corrections == 0 ? ""
                              : countOf(corrections, "Korrektur passt", "Korrekturen passen") +
                                    " danach vielleicht zu keinem Segment mehr. ") +
            "Mit --yes geschieht es.");
    }
    jobs.recoverExpired(Date::now());  // which would pass for work under way
    try {
        jobs.restartSession(meeting);
    } catch (const MeetingError& error) {
        rethrowWithLease(error, folder.jobs(), meeting);
    }
}

struct JobsValues {
    std::string meeting;
    std::string action;
    bool yes = false;
    bool json = false;
};

int jobs(Shell& shell, const JobsValues& values) {
    auto folder = shell.folder();
    const auto& meeting = folder.meeting(values.meeting);
    if (!values.action.empty()) openJobs(meeting.id, values.action, values.yes, folder);
    std::vector<JobRow> rows;
    for (const auto& job : folder.jobs().jobs(meeting.id)) rows.push_back(rowOf(job));
    if (values.json) {
        shell.writeJSON(rows);
        return done;
    }
    if (rows.empty()) {
        shell.err().line("Keine Aufträge.");
        return done;
    }
    Table table({"Tonspur", "Zeit", "Stand", "Versuche", "Meldung"}, Table::Last::cut);
    for (const auto& row : rows) {
        table.add({std::string(row.source ? trackName(*row.source) : std::string_view(row.kind)),
                   row.startSeconds ? lengthOf(*row.startSeconds) + "–" + lengthOf(*row.endSeconds) : "",
                   std::string(quillmoot::wordFor(row.status)), std::to_string(row.attempts),
                   row.lastError.value_or("")});
    }
    table.write(shell.out());
    return done;
}

/// Accepts the whole numbers of a range.
std::function<std::string(const std::string&)> inRange(int least, int most) {
    return [=](const std::string& text) {
        int value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool fits =
            error == std::errc{} && end == text.data() + text.size() && value >= least && value <= most;
        return fits ? std::string()
                    : "Erwartet wird eine Zahl von " + std::to_string(least) + " bis " + std::to_string(most) +
                          ": " + text;
    };
}

}  // namespace

void addRecognitionCommands(CLI::App& app, Shell& shell) {
    const auto [recognised, recognition] =
        addMeetingCommand(app, shell, "transcribe", "Transkribiert mit einem Programm nach Wahl", transcribe);
    notBlank(recognised.add_option("--engine", recognition.engine, "Der Aufruf; {wav} steht für die Tondatei"))
        ->type_name("BEFEHL")
        ->required();
    recognised.add_option("--jobs", recognition.jobs, "Wie viele Abschnitte zugleich, sonst einer")
        ->type_name("ZAHL")
        ->check(inRange(1, 64));
    recognised
        .add_option("--timeout", recognition.timeout, "Sekunden, die ein Abschnitt dauern darf, sonst 600")
        ->type_name("SEKUNDEN")
        ->check(inRange(1, 86'400));
    recognised.footer(
        "Was das Programm liest und schreibt, steht in Transcription.md (installiert: "
        "/usr/share/doc/quillmoot/Transcription.md).");

    const auto [queued, queue] =
        addMeetingCommand(app, shell, "jobs", "Die Transkriptionsaufträge eines Meetings", jobs);
    oneOf(queued.add_option("AKTION", queue.action,
                            "retry: Fehlgeschlagenes noch einmal; restart: alles von vorn"),
          {"retry", "restart"});
    queued.add_flag("--yes", queue.yes, "restart auch, wenn schon etwas transkribiert ist");
    addJSON(queued, queue.json);
}

}  // namespace quillmoot
}  // namespace meetingcore
