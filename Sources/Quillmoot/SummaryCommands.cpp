#include <chrono>
#include <future>
#include <map>
#include <optional>
#include <unordered_set>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Presentation/MeetingExport.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Summary/ExtractiveSummarizer.h"
#include "MeetingCore/Summary/SummaryProcess.h"
#include "MeetingCore/Summary/SummaryRun.h"
#include "Models.h"
#include "Program.h"
#include "Report.h"

namespace meetingcore {

namespace quillmoot {
namespace {

/// One point as `summary --json` gives it.
struct PointRow {
    std::string text;
    std::vector<UUID> sources;
    std::string quote;
    std::optional<std::string> owner;
    std::optional<std::string> dueDate;
    bool borneOut = false;  ///< whether the transcript still says so
};

struct SummaryRow {
    SummaryState state = SummaryState::missing;
    std::optional<std::string> createdAt;  ///< ISO 8601
    std::optional<std::string> engine;     ///< "model" or "extractive"
    std::vector<PointRow> overview;
    std::vector<PointRow> decisions;
    std::vector<PointRow> tasks;
    std::vector<PointRow> openQuestions;
};

struct TitleRow {
    std::string title;
    bool adopted = false;
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::PointRow> = json::record(
    json::field("text", &quillmoot::PointRow::text), json::field("sources", &quillmoot::PointRow::sources),
    json::field("quote", &quillmoot::PointRow::quote), json::field("owner", &quillmoot::PointRow::owner),
    json::field("dueDate", &quillmoot::PointRow::dueDate),
    json::field("borneOut", &quillmoot::PointRow::borneOut));

template <>
inline constexpr auto json::fields<quillmoot::SummaryRow> =
    json::record(json::field("state", &quillmoot::SummaryRow::state),
                 json::field("createdAt", &quillmoot::SummaryRow::createdAt),
                 json::field("engine", &quillmoot::SummaryRow::engine),
                 json::field("overview", &quillmoot::SummaryRow::overview),
                 json::field("decisions", &quillmoot::SummaryRow::decisions),
                 json::field("tasks", &quillmoot::SummaryRow::tasks),
                 json::field("openQuestions", &quillmoot::SummaryRow::openQuestions));

template <>
inline constexpr auto json::fields<quillmoot::TitleRow> = json::record(
    json::field("title", &quillmoot::TitleRow::title), json::field("adopted", &quillmoot::TitleRow::adopted));

namespace quillmoot {
namespace {

struct EngineValues : MeetingValues {
    std::string models;
    std::string engine;
    std::string worker;
};

std::vector<PointRow> rowsOf(const std::vector<EvidenceBullet>& points, const TranscriptDocument& document) {
    std::vector<PointRow> rows;
    rows.reserve(points.size());
    for (const auto& point : points) {
        rows.push_back({point.text, point.sourceSegmentIDs, point.quote, point.owner, point.dueDate,
                        isBorneOut(point, document.segments)});
    }
    return rows;
}

/// How much of a meeting's audio is not transcribed.
double untranscribedSeconds(DataFolder& folder, const UUID& meeting) {
    std::map<AudioSource, double> seconds;  // tracks run side by side
    const auto chunks = DurableChunkStore(folder.root() / layout::meetings).recover(meeting).chunks;
    const auto coverage = WorkScheduler::coverage(meeting, chunks, folder.jobs());
    for (const auto& chunk : coverage.unplanned)
        seconds[chunk.source] += chunk.endSeconds() - chunk.startSeconds;
    // A job that was opened again still has its former result.
    const auto ids = folder.jobs().jobsWithResults()[meeting];
    const std::unordered_set<std::string> transcribed(ids.begin(), ids.end());
    for (const auto& window : coverage.windows) {
        if (!transcribed.contains(window.id()))
            seconds[window.source] += window.endSeconds() - window.startSeconds();
    }
    return std::max(seconds[AudioSource::microphone], seconds[AudioSource::meeting]);
}

/// A summary knows of what was transcribed alone.
void warnOfUntranscribed(Shell& shell, DataFolder& folder, const UUID& meeting) {
    if (AudioArchive::removed(meeting, folder.root())) return;
    double seconds = 0;
    try {
        seconds = untranscribedSeconds(folder, meeting);
    } catch (const MeetingError&) {  // which says nothing against the summary
    }
    if (seconds == 0) return;
    shell.err().line("Von der Aufnahme sind " + lengthOf(seconds) +
                         " nicht transkribiert und fehlen in der Zusammenfassung.",
                     Ink::yellow);
}

int showSummary(Shell& shell, const MeetingValues& values) {
    auto folder = shell.folder();
    const auto& meeting = folder.meeting(values.meeting);
    const auto document = folder.transcript(meeting.id);
    const auto stored = folder.summary(meeting.id);
    const auto state =
        MeetingExport::summaryState({meeting, &document, stored ? &*stored : nullptr, std::nullopt});
    if (values.json) {
        SummaryRow row;
        row.state = state;
        if (stored) {
            row.createdAt = iso8601(stored->createdAt);
            row.engine = stored->isExtractive() ? "extractive" : "model";
            row.overview = rowsOf(stored->summary.overview, document);
            row.decisions = rowsOf(stored->summary.decisions, document);
            row.tasks = rowsOf(stored->summary.tasks, document);
            row.openQuestions = rowsOf(stored->summary.openQuestions, document);
        }
        shell.writeJSON(row);
        return done;
    }
    if (!stored) {
        shell.err().line(MeetingExport::noSummaryText);
        return done;
    }
    auto& out = shell.out();
    out.wrapped("", meeting.title, Ink::bold);
    out.line("Zusammengefasst am " + localTime(stored->createdAt), Ink::dim);
    if (stored->isExtractive()) out.wrapped("", MeetingExport::extractiveSummaryText, Ink::yellow);
    if (state == SummaryState::stale) out.wrapped("", MeetingExport::staleSummaryText, Ink::yellow);
    warnOfUntranscribed(shell, folder, meeting.id);
    writeSummary(out, stored->summary, document);
    return done;
}

std::string_view wordFor(SummaryProcess::State state) {
    switch (state) {
        case SummaryProcess::State::loadingSummary:
            return "Modell wird geprüft und geladen";
        case SummaryProcess::State::summarizing:
            return "Modell fasst zusammen";
        case SummaryProcess::State::titling:
            return "Modell schlägt einen Titel vor";
        case SummaryProcess::State::summaryFinished:
        case SummaryProcess::State::titleFinished:
            return "geprüft und gespeichert";
        case SummaryProcess::State::failed:
            break;
    }
    return {};
}

/// Runs the worker, with a line that shows what it is doing and for how long. False when the user stopped it.
bool runWorker(Shell& shell, const SummaryProcess::Task& task) {
    const auto& stop = stopOnInterrupt();
    const auto start = std::chrono::steady_clock::now();
    std::atomic<SummaryProcess::State> state = SummaryProcess::State::loadingSummary;
    std::atomic<int> parts = 0;
    // The worker is silent for minutes, so the clock is kept by a thread of its own.
    auto outcome = std::async(std::launch::async, [&] {
        return SummaryProcess::run(task, stop, [&](SummaryProcess::State reached) {
            if (reached == SummaryProcess::State::summarizing) ++parts;
            state = reached;
            if (!shell.err().style().terminal) shell.err().line(wordFor(reached));
        });
    });
    auto line = shell.progress();
    while (outcome.wait_for(std::chrono::milliseconds(200)) != std::future_status::ready) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        const auto now = state.load();
        auto text = lengthOf(elapsed.count()) + "  " + std::string(wordFor(now));
        if (now == SummaryProcess::State::summarizing) text += " (Schritt " + std::to_string(parts) + ")";
        line.show(text);
    }
    line.clear();
    return outcome.get();
}

/// Which engine is to work. Without a choice the model does where its file is intact, and the user is told.
bool useModel(Shell& shell, const EngineValues& values, const std::filesystem::path& models, bool titleOnly) {
    if (!values.engine.empty()) return values.engine == "model";
    try {
        modelCatalog().verify("summary", models);
        return true;
    } catch (const MeetingError& error) {
        shell.err().line(error.message() + " „quillmoot models“ zeigt, wohin die Datei gehört.");
        shell.err().line(titleOnly ? "Ohne Sprachmodell nennt der Titel die wichtigsten Wörter des Transkripts."
                                   : "Ohne Sprachmodell werden Stellen des Transkripts ausgewählt, ein erster "
                                     "Überblick und kein Protokoll.");
        return false;
    }
}

/// Works on one meeting's summary or title; false when the user stopped it.
bool work(Shell& shell, DataFolder& folder, const EngineValues& values, bool titleOnly) {
    const auto meeting = folder.meeting(values.meeting).id;
    const auto models = modelFolder(values.models, folder.root());
    folder.queue();  // throws where it is lost
    // What stands in the way shows here with its cause, which a worker could only put into words.
    std::optional<SummaryRun> run(std::in_place, meeting, folder.root());
    if (titleOnly) run->requireCompleteForTitle();
    if (useModel(shell, values, models, titleOnly)) {
        run.reset();  // its lock is for the worker
        SummaryProcess::Task task{
            .session = meeting, .root = folder.root(), .models = models, .titleOnly = titleOnly};
        if (!values.worker.empty()) task.program = values.worker;
        return runWorker(shell, task);
    }
    const ExtractiveSummarizer summarizer;
    if (titleOnly) {
        run->writeTitle(summarizer.title(run->document()));
    } else {
        run->writeSummary(summarizer.summarize(run->document()), std::nullopt);
    }
    return true;
}

int stoppedByUser(Shell& shell) {
    shell.err().line("Abgebrochen.", Ink::yellow);
    return failed;
}

int summarize(Shell& shell, const EngineValues& values) {
    auto folder = shell.folder();
    if (!work(shell, folder, values, false)) return stoppedByUser(shell);
    if (!folder.summary(folder.meeting(values.meeting).id)) {
        throw MeetingError::storage("Die Zusammenfassung wurde nicht gespeichert.");
    }
    return showSummary(shell, values);
}

/// Gives the meeting the title unless it has one of the user's.
bool adopt(Shell& shell, const UUID& meeting, const std::string& title) {
    auto open = shell.openLibrary();
    bool adopted = false;
    open.change(meeting, [&](MeetingEntry& entry) {
        adopted = entry.needsAutomaticTitle();
        if (adopted) entry.title = title;
        entry.automaticTitlePending = false;
    });
    return adopted;
}

int title(Shell& shell, const EngineValues& values) {
    auto folder = shell.folder();
    const auto meeting = folder.meeting(values.meeting).id;
    if (!work(shell, folder, values, true)) return stoppedByUser(shell);
    const auto artifact = TranscriptStorage::readOptional<MeetingTitleArtifact>(folder.folderOf(meeting) /
                                                                                layout::automaticTitle);
    if (!artifact) throw MeetingError::storage("Der Titel wurde nicht gespeichert.");
    TitleRow row{artifact->title};
    std::optional<MeetingError> obstacle;  // to giving the title to the meeting, not to showing it
    try {
        row.adopted = adopt(shell, meeting, artifact->title);
    } catch (const MeetingError& error) {
        obstacle = error;
    }
    if (values.json) {
        shell.writeJSON(row);
    } else {
        shell.out().line(row.title);
    }
    if (obstacle) {
        explain(shell.err(), *obstacle);
        return failed;
    }
    if (!row.adopted && !values.json)
        shell.err().line("Das Meeting behält seinen Titel; „quillmoot rename“ ändert ihn.");
    return done;
}

}  // namespace

void addSummaryCommands(CLI::App& app, Shell& shell) {
    const auto addWithEngine = [&](const char* name, const char* description,
                                   int (*body)(Shell&, const EngineValues&)) {
        const auto [command, values] = addMeetingCommand(app, shell, name, description, body);
        addJSON(command, values.json);
        oneOf(command.add_option(
                  "--engine", values.engine,
                  "Das Sprachmodell, oder Stellen des Transkripts; sonst das Modell, wenn es da ist"),
              {"model", "extractive"});
        addModels(command, values.models);
        notBlank(command.add_option("--worker", values.worker, "Der SummaryWorker, sonst der neben quillmoot"))
            ->type_name("PROGRAMM");
    };
    addWithEngine("summarize", "Fasst ein Meeting mit Belegen zusammen", summarize);
    addWithEngine("title", "Schlägt einen Titel vor und gibt ihn einem Meeting, das keinen hat", title);

    const auto [shown, values] =
        addMeetingCommand(app, shell, "summary", "Zeigt die gespeicherte Zusammenfassung", showSummary);
    addJSON(shown, values.json);
}

}  // namespace quillmoot
}  // namespace meetingcore
