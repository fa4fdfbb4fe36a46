#include "Program.h"

#include <csignal>
#include <cstring>
#include <iostream>
#include <new>

#include "CommandDescription.h"
#include "HelpFormatter.h"
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

/// What is wrong with the command line, in German. The parser tells what it means by its exception's type, and
/// in an English message whose names are taken over.
std::string germanMessage(const CLI::ParseError& error) {
    std::string message = error.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
        return "Unerwartetes Argument: " + behind(message, "expected: ");
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
        if (message.find("subcommand") != std::string::npos) return "Es fehlt der Befehl.";
        return "Es fehlt: " + before(message, " is required");
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
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

const CLI::App& innermost(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : innermost(*chosen.front());
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
        return wrongly(app, shell, germanMessage(error));
    } catch (const UsageError& error) {
        return wrongly(app, shell, error.what());
    } catch (const MeetingError& error) {
        // What SQLite itself says is in English.
        const bool database = error.kind() == MeetingError::Kind::database;
        return fail(shell, (database ? "Datenbank: " : "") + error.message());
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

CLI::App& addCommand(CLI::App& parent, Shell& shell, const std::string& name, const std::string& description,
                     std::function<int()> body) {
    auto& command = *parent.add_subcommand(name, description);
    command.callback([&shell, &command, body = std::move(body)] {
        if (command.get_subcommands().empty()) shell.select(body);
    });
    return command;
}

void describe(CLI::App& app, Shell& shell) {
    app.name("quillmoot");
    app.description(
        "Meetings von der Tondatei bis zur Zusammenfassung mit Belegen. Nichts verlässt diesen Computer.");
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_help_flag("-h,--help", "Diese Hilfe");
    app.set_version_flag("--version", QUILLMOOT_VERSION, "Die Version dieses Programms");
    app.add_option_function<std::string>(
           "--root", [&shell](const std::string& folder) { shell.rootOption() = folder; },
           "Der Datenordner, statt des gemerkten")
        ->type_name("ORDNER");
    app.fallthrough();
    app.require_subcommand(0, 1);
    addAudioCommands(app, shell);
    addTranscriptCommands(app, shell);
    addSummaryCommands(app, shell);
    addListCommands(app, shell);
    addMeetingCommands(app, shell);
    addFolderCommands(app, shell);
    addToolCommands(app, shell);
}

int run(std::span<char*> arguments) {
    std::ios::sync_with_stdio(false);
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    Shell shell;
    CLI::App app;
    describe(app, shell);
    const auto status = parseAndRun(app, shell, arguments);
    return written(shell, status);
}

}  // namespace meetingcore::quillmoot
