#include "Program.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <new>
#include <numeric>
#include <sstream>

#include "CommandDescription.h"
#include "HelpFormatter.h"
#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"

namespace meetingcore::quillmoot {

namespace {

/// The part of the parser's English message behind or before what it always says.
std::string behind(const std::string& message, std::string_view marker) {
    const auto found = message.find(marker);
    return found == std::string::npos ? message : message.substr(found + marker.size());
}

std::string before(const std::string& message, std::string_view marker) {
    return message.substr(0, message.find(marker));
}

const CLI::App& innermost(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : innermost(*chosen.front());
}

/// How many letters must be put in, left out or replaced to make one text the other.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const auto replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

/// The option or command that was probably meant; empty where none is near.
std::string nearest(const std::string& typed, const CLI::App& command) {
    if (typed.starts_with('-') && typed.size() < 3) return {};
    std::vector<std::string> known;
    const auto add = [&](const std::vector<const CLI::Option*>& options) {
        for (const auto* option : options) std::ranges::move(namesOf(*option), std::back_inserter(known));
    };
    if (typed.starts_with('-')) {
        add(optionsOf(command, false));
        add(inheritedOptions(command));
    } else {
        for (const auto* below : commandsOf(command)) known.push_back(below->get_name());
    }
    std::string best;
    std::size_t least = typed.size() < 4 ? 2 : 3;
    for (const auto& name : known) {
        const auto steps = distance(typed, name);
        if (steps >= least) continue;
        least = steps;
        best = name;
    }
    return best;
}

/// What the command line has too much, and how it may be meant. Behind an unknown option stands its value,
/// before a command's own options the unknown command.
std::string unexpected(const CLI::App& app) {
    const auto& command = innermost(app);
    const bool option = &command != &app;
    const auto extra = app.remaining(true);
    const auto found =
        std::ranges::find_if(extra, [&](const std::string& typed) { return typed.starts_with('-') == option; });
    const auto whole = found != extra.end() ? *found : extra.empty() ? std::string() : extra.front();
    const auto typed = whole.starts_with('-') ? whole.substr(0, whole.find('=')) : whole;
    const auto meant = nearest(typed, command);
    const auto what = typed.starts_with('-')        ? "Unbekannte Option: "
                      : commandsOf(command).empty() ? "Unerwartetes Argument: "
                                                    : "Unbekannter Befehl: ";
    if (!meant.empty()) return what + typed + " (gemeint ist vielleicht " + meant + ")";
    const bool file = !typed.starts_with('-') && command.get_option_no_throw("--microphone") != nullptr;
    return what + typed + (file ? " (eine Tondatei steht hinter --microphone oder --meeting)" : "");
}

/// What is wrong with the command line, in German. The parser tells what it means by its exception's type, and
/// in an English message whose names are taken over.
std::string germanMessage(const CLI::App& app, const CLI::ParseError& error) {
    std::string message = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) return unexpected(app);
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
        if (message.find("subcommand") != std::string::npos) return "Es fehlt der Befehl.";
        const auto name = before(message, " is required");
        const auto* const option = innermost(app).get_option_no_throw(name);
        const auto choices = option == nullptr ? std::vector<std::string>{} : choicesOf(*option);
        return "Es fehlt: " + name + (choices.empty() ? "" : " (möglich: " + text::joined(choices, ", ") + ")");
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        if (message.find("At Most") != std::string::npos) return "Mehrfach angegeben: " + before(message, ":");
        return "Der Wert fehlt: " + before(message, ":");
    }
    if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
        return "Ungültiger Wert: " + behind(message, "Could not convert: ");
    }
    if (dynamic_cast<const CLI::ValidationError*>(&error) != nullptr) return message;
    if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
        return "Das passt nicht zusammen: " + before(message, " excludes ") + ", " +
               behind(message, " excludes ");
    }
    if (dynamic_cast<const CLI::RequiresError*>(&error) != nullptr) {
        return "Es fehlt: " + behind(message, " requires ");
    }
    return "Der Aufruf ist nicht zu verstehen.";
}

/// The error's message; in place of what SQLite says in English, and in no sentence, what that means.
std::string inGerman(const MeetingError& error) {
    using enum MeetingError::Cause;
    switch (error.cause()) {
        case databaseDamaged:
            return "„quillmoot.sqlite“ ist beschädigt oder keine Datenbank. „quillmoot doctor“ prüft den "
                   "Datenordner; es hilft nur eine Sicherung.";
        case databaseNotWritable:
            return "„quillmoot.sqlite“ kann nicht geschrieben werden. Bitte die Rechte des Datenordners "
                   "prüfen.";
        case databaseIO:
            return "„quillmoot.sqlite“ kann nicht gelesen oder geschrieben werden. Bitte prüfen, ob auf dem "
                   "Datenträger noch Platz ist.";
        case databaseLocked:
            return "Ein anderes Programm arbeitet gerade mit „quillmoot.sqlite“. Bitte gleich noch einmal "
                   "versuchen.";
        case databaseOther:
            return "Datenbank: " + error.message();
        default:
            return error.message();
    }
}

/// What a person can do about what the core says, which knows no commands; empty where that says it itself.
std::string_view nextStep(MeetingError::Cause cause) {
    using enum MeetingError::Cause;
    switch (cause) {
        case diarizationUnreadable:
            return "„quillmoot speakers import MEETING DATEI --replace“ ersetzt die Sprecherzuordnung.";
        case editsUnreadable:
            return "Wird die Datei aus dem Ordner des Meetings entfernt, gilt das Erkannte, ohne Korrekturen "
                   "und Namen.";
        case summaryUnreadable:
            return "„quillmoot summarize MEETING“ erstellt die Zusammenfassung neu.";
        case libraryUnreadable:
            return "Bitte eine Sicherung der Datei zurückholen. Ohne die Datei stellt „quillmoot doctor "
                   "--repair“ die Liste der Meetings aus den Aufnahmen wieder her, ohne Projekte, Felder und "
                   "Notizen.";
        case meetingUnknown:
            return "„quillmoot list“ zeigt alle Meetings.";
        case alreadyThere:
            return "Mit --replace wird ersetzt.";
        case speakersPending:
            return "Sie fehlt noch: „quillmoot speakers import“ oder „quillmoot speakers none“.";
        case transcriptIncomplete:
            return "Das Transkript kommt von „quillmoot transcribe“ oder „quillmoot transcript import“; "
                   "„quillmoot jobs“ zeigt, was fehlt.";
        case dataFolderUnreachable:
            return "„quillmoot data-folder PFAD“ wählt einen anderen.";
        case lockFileUnavailable:
            return "Bitte die Rechte des Datenordners prüfen.";
        default:
            return {};
    }
}

int wrongly(const CLI::App& app, Shell& shell, const std::string& message) {
    shell.err().line(message, Ink::red);
    shell.err().line("Hilfe: " + fullName(innermost(app)) + " --help");
    return wrongUse;
}

int fail(Shell& shell, const std::string& message) {
    shell.err().line(message, Ink::red);
    return failed;
}

int parseAndRun(CLI::App& app, Shell& shell, std::span<char*> arguments) {
    try {
        app.parse(static_cast<int>(arguments.size()), arguments.data());
        return shell.selected() ? shell.selected()() : wrongly(app, shell, "Es fehlt der Befehl.");
    } catch (const CLI::CallForHelp&) {
        shell.out().raw(innermost(app).help());
        return done;
    } catch (const CLI::CallForVersion&) {
        shell.out().line("quillmoot " QUILLMOOT_VERSION);
        return done;
    } catch (const CLI::ParseError& error) {
        return wrongly(app, shell, germanMessage(app, error));
    } catch (const UsageError& error) {
        return wrongly(app, shell, error.what());
    } catch (const MeetingError& error) {
        explain(shell.err(), error);
        return failed;
    } catch (const std::filesystem::filesystem_error& error) {
        return fail(shell, error.path1().string() + ": " + systemErrorText(error.code().value()));
    } catch (const std::bad_alloc&) {
        return fail(shell, "Der Arbeitsspeicher reicht nicht aus.");
    } catch (const std::exception& error) {
        return fail(shell, std::string("Unerwarteter Fehler: ") + error.what());
    }
}

/// Whoever closes a pipe has seen enough; any other failure to write loses what was asked for.
int written(Shell& shell, int status) {
    errno = 0;
    std::cout.flush();
    if (std::cout.good() || errno == EPIPE) return status;
    return fail(shell, "Die Ausgabe konnte nicht geschrieben werden.");
}

}  // namespace

void explain(Terminal& out, const MeetingError& error, const std::string& lead) {
    std::istringstream lines(lead + inGerman(error));
    for (std::string line; std::getline(lines, line);) out.line(line, Ink::red);
    if (const auto step = nextStep(error.cause()); !step.empty()) out.line(step);
}

CLI::App& addCommand(CLI::App& parent, Shell& shell, const std::string& name, const std::string& description,
                     std::function<int()> body) {
    auto& command = *parent.add_subcommand(name, description);
    command.callback([&shell, &command, body = std::move(body)] {
        if (command.get_subcommands().empty()) shell.select(body);
    });
    return command;
}

AudioSource trackOf(const std::string& name) {
    return name == "microphone" ? AudioSource::microphone : AudioSource::meeting;
}

void addJSON(CLI::App& command, bool& json) { command.add_flag("--json", json, "Als JSON für Programme"); }

void addModels(CLI::App& command, std::string& folder) {
    notBlank(command.add_option("--models", folder, "Der Ordner der Modelle"))->type_name("ORDNER");
}

void describe(CLI::App& app, Shell& shell) {
    app.name("quillmoot");
    app.description(
        "Meetings von der Tondatei bis zur Zusammenfassung mit Belegen. Nichts verlässt diesen Computer.");
    app.formatter(std::make_shared<HelpFormatter>(shell.out().style().columns));
    app.set_help_flag("-h,--help", "Diese Hilfe");
    app.set_version_flag("--version", QUILLMOOT_VERSION, "Die Version dieses Programms");
    app.add_option_function<std::string>(
           "--root", [&shell](const std::string& folder) { shell.rootOption() = folder; },
           "Der Datenordner, statt des gemerkten")
        ->type_name("ORDNER");
    app.fallthrough();
    app.require_subcommand(0, 1);
    addAudioCommands(app, shell);
    addRecognitionCommands(app, shell);
    addTranscriptCommands(app, shell);
    addSpeakerCommands(app, shell);
    addExportCommands(app, shell);
    addSummaryCommands(app, shell);
    addListCommands(app, shell);
    addMeetingCommands(app, shell);
    addFolderCommands(app, shell);
    addToolCommands(app, shell);
}

int run(std::span<char*> arguments) {
    std::ios::sync_with_stdio(false);
    occupyStandardDescriptors();
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    static_cast<void>(std::signal(SIGCHLD, SIG_DFL));  // or nobody learns how a started program ended
    // A write beyond the limit then fails with an error that has a message.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    Shell shell;
    CLI::App app;
    describe(app, shell);
    const auto status = parseAndRun(app, shell, arguments);
    return written(shell, status);
}

}  // namespace meetingcore::quillmoot
