#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "Report.h"
#include "Support/Process.h"
#include "Support/SampleMeeting.h"
#include "Support/StandInModel.h"
#include "Support/TemporaryFolder.h"

namespace meetingcore::demo {

namespace fs = std::filesystem;

using testing::SampleMeeting;

namespace {

constexpr const char* usage =
    "Aufruf: demo [--root ORDNER] [--models ORDNER] [--sample ORDNER]\n"
    "  --root    Datenordner, der neu angelegt wird und bleibt (sonst ein vorübergehender)\n"
    "  --models  Ordner mit der Datei des Sprachmodells (sonst aus der Umgebungsvariablen MEETING_MODELS)\n"
    "  --sample  das Beispielmeeting (sonst kundenportal)\n";

struct Options {
    std::optional<fs::path> root;
    std::optional<fs::path> models;
    fs::path sample = fs::path(MEETING_SAMPLES_FOLDER) / "kundenportal";
};

class UsageError : public std::runtime_error {
    using runtime_error::runtime_error;
};

Options parse(const std::vector<std::string>& arguments) {
    Options options;
    if (const char* const models = std::getenv("MEETING_MODELS")) options.models = models;
    for (std::size_t i = 0; i < arguments.size(); i += 2) {
        if (i + 1 == arguments.size()) throw UsageError("Wert fehlt: " + arguments[i]);
        const fs::path value = arguments[i + 1];
        if (arguments[i] == "--root") {
            options.root = value;
        } else if (arguments[i] == "--models") {
            options.models = value;
        } else if (arguments[i] == "--sample") {
            options.sample = value;
        } else {
            throw UsageError("Unbekannte Option: " + arguments[i]);
        }
    }
    return options;
}

/// Which worker runs on which model.
struct Engine {
    fs::path worker;
    fs::path models;
    testing::ChildProcess::Environment environment;
    bool standIn = false;
};

const LocalModel& summaryModel() {
    const auto& models = ModelCatalog::builtIn().models();
    return *std::ranges::find(models, "summary", &LocalModel::id);
}

Engine realEngine(const fs::path& models) { return {MEETING_SummaryWorker_PATH, models, {}, false}; }

/// Makes a model that says the sample's own answers.
Engine standInEngine(const SampleMeeting& sample, const fs::path& folder) {
    fs::create_directory(folder);
    const auto model = folder / summaryModel().filename;
    const auto catalog = folder / "catalog.json";
    writeStandInModel(model, testing::StandInScript::answering(sample.summaryAnswer, sample.titleAnswer));
    testing::writeCatalog(catalog, model);
    return {MEETING_SummaryWorkerFixture_PATH, folder, {{"SUMMARY_WORKER_CATALOG", catalog.string()}}, true};
}

void describe(Report& report, const Engine& engine, const std::optional<fs::path>& models) {
    report.heading("Sprachmodell");
    if (!engine.standIn) {
        report.paragraph("Es antwortet " + summaryModel().filename + " aus " + engine.models.string() +
                         ". Das dauert auf der CPU einige Minuten.");
        return;
    }
    report.notice(
        "Es antwortet kein Sprachmodell, sondern ein Stellvertreter: Der Wortlaut von Titel und Punkten "
        "steht fest im Beispiel und ist nicht aus dem Gespräch erzeugt.");
    const auto where = models ? "liegt nicht vollständig in " + models->string() : "wurde nicht angegeben";
    report.paragraph("Das echte Modell " + summaryModel().filename + " " + where +
                     " (--models ORDNER oder MEETING_MODELS).");
    report.paragraph(
        "Alles andere ist echt: Der SummaryWorker lädt eine kleine GGUF-Datei, llama.cpp erzeugt die "
        "Antwort Token für Token unter der Grammatik, und jeder Punkt wird am Transkript geprüft.");
}

struct ProgressLine {
    std::string state;
    std::optional<std::string> message;
};

}  // namespace
}  // namespace meetingcore::demo

namespace meetingcore {

template <>
inline constexpr auto json::fields<demo::ProgressLine> = json::record(
    json::field("state", &demo::ProgressLine::state), json::field("message", &demo::ProgressLine::message));

}  // namespace meetingcore

namespace meetingcore::demo {
namespace {

std::string meaning(const ProgressLine& line) {
    static const std::map<std::string, std::string> meanings{
        {"loadingSummary", "Transkript ist vollständig; Modell wird geprüft und geladen"},
        {"summarizing", "Modell fasst einen Teil zusammen oder führt Teile zusammen"},
        {"summaryFinished", "geprüft und gespeichert in summary.json"},
        {"titling", "Modell schlägt einen Titel vor"},
        {"titleFinished", "geprüft und gespeichert in automatic-title.json"},
        {"failed", "abgebrochen"}};
    const auto found = meanings.find(line.state);
    return found == meanings.end() ? "" : found->second;
}

/// Runs the worker as the recorder does. Throws with its message where it fails.
void runWorker(Report& report, const Engine& engine, const std::vector<std::string>& arguments) {
    const auto start = std::chrono::steady_clock::now();
    std::string message = "SummaryWorker hat keine Meldung hinterlassen.";
    const auto result = testing::runProcess(engine.worker, arguments, engine.environment, [&](auto text) {
        const auto line = json::decode<ProgressLine>(text, "Die Fortschrittszeile");
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        report.progress(elapsed.count(), text, meaning(line));
        if (line.message) message = *line.message;
    });
    if (result.status == 0) return;
    throw std::runtime_error("SummaryWorker endete mit Status " + std::to_string(result.status) + ": " +
                             message + (result.err.empty() ? "" : "\n" + result.err));
}

std::string countOf(std::size_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void requireFresh(const fs::path& root) {
    if (fs::exists(root) && !fs::is_empty(root)) {
        throw MeetingError::invalidData("Der Datenordner " + root.string() +
                                        " ist nicht leer. Bitte einen neuen Namen angeben.");
    }
}

void prepare(Report& report, const SampleMeeting& sample, const fs::path& root, const Options& options) {
    report.heading("Beispielmeeting");
    install(sample, root);
    SQLiteJobStore store(root / "quillmoot.sqlite");
    const auto document = TranscriptStorage::load(sample.session.id, root, store);
    std::set<std::string> speakers;
    for (const auto& turn : document.diarization ? document.diarization->turns : std::vector<SpeakerTurn>()) {
        speakers.insert(turn.speakerID);
    }
    report.paragraph(options.sample.filename().string() + ": " +
                     countOf(document.segments.size(), "Segment", "Segmente") + " auf zwei Tonspuren, " +
                     countOf(speakers.size(), "Sprecher", "Sprecher") + ", " +
                     clockTime(document.rawSegments.back().endSeconds) + " Minuten");
    report.paragraph("Datenordner: " + root.string() +
                     (options.root ? "" : " (vorübergehend; --root behält ihn)"));
    report.paragraph("Auftragsspeicher: " + std::to_string(store.registeredChunkCount()) +
                     " Audioabschnitte, " + std::to_string(store.jobStats(sample.session.id)["completed"]) +
                     " abgeschlossene Transkriptionsaufträge");
}

void show(Report& report, const SampleMeeting& sample, const fs::path& root) {
    SQLiteJobStore store(root / "quillmoot.sqlite");
    const auto document = TranscriptStorage::load(sample.session.id, root, store);
    const auto folder = TranscriptStorage::sessionDirectory(root, sample.session.id);
    const auto title = TranscriptStorage::readOptional<MeetingTitleArtifact>(folder / "automatic-title.json");
    const auto artifact = TranscriptStorage::readOptional<SummaryArtifact>(folder / "summary.json");
    const auto fingerprint = SummaryArtifact::fingerprint(document);
    if (!title || !artifact || title->transcriptFingerprint != fingerprint ||
        artifact->transcriptFingerprint != fingerprint) {
        throw MeetingError::invalidData("Zusammenfassung oder Titel gehören nicht zu diesem Transkript.");
    }
    artifact->summary.validate(document.segments);
    report.heading("Titel");
    report.paragraph(title->title);
    report.summary(artifact->summary, document);
}

void run(const Options& options) {
    Report report(std::cout, Style::ofStandardOutput());
    const auto sample = SampleMeeting::load(options.sample);
    const testing::TemporaryFolder workspace;
    const auto root = fs::absolute(options.root.value_or(workspace.path() / "Daten"));
    requireFresh(root);
    prepare(report, sample, root, options);

    const bool real = options.models && ModelCatalog::builtIn().present("summary", *options.models);
    const auto engine =
        real ? realEngine(*options.models) : standInEngine(sample, workspace.path() / "Modelle");
    describe(report, engine, options.models);
    std::vector<std::string> arguments{"--protocol", "1",           "--session", sample.session.id.string(),
                                       "--root",     root.string(), "--models",  engine.models.string()};
    report.heading("SummaryWorker: Zusammenfassung");
    runWorker(report, engine, arguments);
    arguments.emplace_back("--title-only");
    report.heading("SummaryWorker --title-only: Titel");
    runWorker(report, engine, arguments);
    show(report, sample, root);
}

}  // namespace
}  // namespace meetingcore::demo

int main(int argumentCount, char** arguments) {
    namespace demo = meetingcore::demo;
    try {
        demo::run(demo::parse({arguments + 1, arguments + argumentCount}));
        return 0;
    } catch (const demo::UsageError& error) {
        std::cerr << error.what() << '\n' << demo::usage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
