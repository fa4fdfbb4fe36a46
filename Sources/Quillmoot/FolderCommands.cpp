#include <algorithm>

#include "GermanWords.h"
#include "MeetingCore/Library/DataDirectoryPreference.h"
#include "MeetingCore/Library/LibraryCheck.h"
#include "MeetingCore/Library/Trash.h"
#include "Models.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

struct FolderRow {
    std::string path;
    bool exists = false;
    bool isDefault = false;
};

enum class ModelState {
    missing,
    incomplete,
    damaged,
    intact,
    present,  ///< of the right size, its content unchecked
};

struct ModelRow {
    std::string id;
    std::string filename;
    std::int64_t bytes = 0;
    ModelState state = ModelState::missing;
    std::string path;
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::FolderRow> = json::record(
    json::field("path", &quillmoot::FolderRow::path), json::field("exists", &quillmoot::FolderRow::exists),
    json::field("isDefault", &quillmoot::FolderRow::isDefault));

template <>
inline constexpr auto json::names<quillmoot::ModelState> =
    std::to_array<std::string_view>({"missing", "incomplete", "damaged", "intact", "present"});

template <>
inline constexpr auto json::fields<quillmoot::ModelRow> = json::record(
    json::field("id", &quillmoot::ModelRow::id), json::field("filename", &quillmoot::ModelRow::filename),
    json::field("bytes", &quillmoot::ModelRow::bytes), json::field("state", &quillmoot::ModelRow::state),
    json::field("path", &quillmoot::ModelRow::path));

namespace quillmoot {
namespace {

namespace fs = std::filesystem;

struct FolderValues {
    std::optional<std::string> path;
    bool json = false;
};

struct ModelValues {
    std::string models;
    bool quick = false;
    bool json = false;
};

struct DoctorValues {
    std::string models;
    bool repair = false;
    bool json = false;
};

/// Also false where that cannot be told.
bool isFolder(const fs::path& path) {
    std::error_code unknown;
    return fs::is_directory(path, unknown);
}

int dataFolder(Shell& shell, const FolderValues& values) {
    if (values.path && values.path->empty()) throw UsageError("PFAD darf nicht leer sein.");
    const auto root = values.path ? fs::absolute(*values.path).lexically_normal() : shell.root();
    if (values.path) Shell::chooseFolder(root);
    const FolderRow row{root.string(), isFolder(root), root == DataDirectoryPreference::defaultRoot()};
    if (values.json) {
        shell.writeJSON(row);
    } else {
        shell.out().line(row.path);
        if (!row.exists) {
            shell.err().line(row.isDefault
                                 ? "Der Ordner wird mit dem ersten Meeting angelegt."
                                 : "Der Ordner ist nicht erreichbar. „quillmoot data-folder PFAD“ legt "
                                   "ihn an oder wählt einen anderen.");
        }
    }
    return done;
}

Ink inkOf(LibraryCheck::Severity severity) {
    switch (severity) {
        case LibraryCheck::Severity::error:
            return Ink::red;
        case LibraryCheck::Severity::warning:
            return Ink::yellow;
        case LibraryCheck::Severity::repaired:
            return Ink::green;
        case LibraryCheck::Severity::note:
        case LibraryCheck::Severity::fine:
            break;
    }
    return Ink::plain;
}

std::string_view markOf(LibraryCheck::Severity severity) {
    switch (severity) {
        case LibraryCheck::Severity::fine:
            return "gut      ";
        case LibraryCheck::Severity::note:
            return "Hinweis  ";
        case LibraryCheck::Severity::warning:
            return "Warnung  ";
        case LibraryCheck::Severity::repaired:
            return "behoben  ";
        case LibraryCheck::Severity::error:
            break;
    }
    return "FEHLER   ";
}

int doctor(Shell& shell, const DoctorValues& values) {
    const auto root = shell.root();
    LibraryCheck::Options options;
    // A broken library is what is to be found out, so it is not opened; only the locks matter here.
    std::optional<WorkerLock> application;
    std::optional<WorkerLock> inference;
    if (values.repair || ::access(root.c_str(), R_OK | X_OK) == 0 || (errno == ENOENT && !values.json))
        DataFolder{root};  // leaves others' folders be, and says how one comes to be
    if (values.repair) {
        takeLock(application, root, WorkerLock::Purpose::application);
        takeLock(inference, root, WorkerLock::Purpose::inference);
        options.repair = moveToSystemTrash;
    }
    options.models = modelFolder(values.models, root);
    const auto findings = LibraryCheck::run(root, modelCatalog(), options, Date::now());
    const bool broken = std::ranges::any_of(
        findings, [](const auto& finding) { return finding.severity == LibraryCheck::Severity::error; });
    if (values.json) {
        shell.writeJSON(findings);
    } else {
        for (const auto& finding : findings) {
            const auto remedy = finding.repair ? " (--repair " + *finding.repair + ")" : "";
            shell.out().wrapped(std::string(markOf(finding.severity)) + finding.topic + ": ",
                                finding.text + remedy, Ink::plain, inkOf(finding.severity));
        }
    }
    return broken ? failed : done;
}

ModelRow check(const LocalModel& model, const fs::path& folder, bool quick) {
    ModelRow row{model.id, model.filename, model.bytes, ModelState::missing,
                 (folder / model.filename).string()};
    std::error_code error;
    if (!fs::exists(row.path, error)) return row;
    if (!modelCatalog().present(model.id, folder)) {
        row.state = ModelState::incomplete;
    } else if (quick) {
        row.state = ModelState::present;
    } else {
        try {
            modelCatalog().verify(model.id, folder);
            row.state = ModelState::intact;
        } catch (const MeetingError&) {
            row.state = ModelState::damaged;
        }
    }
    return row;
}

std::string_view wordFor(ModelState state) {
    switch (state) {
        case ModelState::missing:
            return "fehlt";
        case ModelState::incomplete:
            return "unvollständig";
        case ModelState::damaged:
            return "beschädigt";
        case ModelState::intact:
            return "unversehrt";
        case ModelState::present:
            break;
    }
    return "vorhanden";
}

int models(Shell& shell, const ModelValues& values) {
    const auto folder = modelFolder(values.models, shell.root());
    std::vector<ModelRow> rows;
    for (const auto& model : modelCatalog().models()) rows.push_back(check(model, folder, values.quick));
    if (values.json) {
        shell.writeJSON(rows);
        return done;
    }
    Table table({"Modell", "Größe", "Stand", "Datei"});
    for (const auto& row : rows) {
        auto gigabytes = std::to_string((row.bytes + 50'000'000) / 100'000'000);
        if (gigabytes.size() == 1) gigabytes.insert(0, "0");
        gigabytes.insert(gigabytes.size() - 1, ",");
        table.add({row.id, gigabytes + " GB", std::string(wordFor(row.state)), row.filename});
    }
    table.write(shell.out());
    const bool complete = std::ranges::all_of(rows, [](const ModelRow& row) {
        return row.state == ModelState::intact || row.state == ModelState::present;
    });
    if (!complete) {
        shell.out().line();
        shell.out().wrapped("",
                            "Was fehlt, gehört unter seinem Namen nach " + folder.string() +
                                ". Ein anderer Ordner: --models oder die Umgebungsvariable MEETING_MODELS.");
    }
    return done;
}

}  // namespace

void addFolderCommands(CLI::App& app, Shell& shell) {
    const auto [chosen, folder] =
        addCommand(app, shell, "data-folder", "Zeigt oder wählt den Ordner mit allen Meetings", dataFolder);
    addJSON(chosen, folder.json);
    chosen.add_option("PFAD", folder.path, "Der neue Datenordner, leer oder schon einer");

    const auto [checked, files] =
        addCommand(app, shell, "models", "Welche Modelle da und unversehrt sind", models);
    addJSON(checked, files.json);
    addModels(checked, files.models);
    checked.add_flag("--quick", files.quick, "Nur die Größe prüfen, nicht den Inhalt");

    const auto [examined, examination] =
        addCommand(app, shell, "doctor", "Prüft den ganzen Datenordner", doctor);
    addJSON(examined, examination.json);
    addModels(examined, examination.models);
    examined.add_flag("--repair", examination.repair, "Behebt, was sich gefahrlos beheben lässt");
}

}  // namespace quillmoot
}  // namespace meetingcore
