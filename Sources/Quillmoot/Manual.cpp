#include "Manual.h"

#include "CommandDescription.h"

namespace meetingcore::quillmoot {

namespace {

constexpr std::string_view descriptionText = R"(
.SH BESCHREIBUNG
.B quillmoot
nimmt Tondateien als Meeting auf, gibt ihnen Transkript und Sprecher, lässt sie durch
.BR SummaryWorker (1)
zusammenfassen und gibt alles wieder heraus.
Jeder Punkt einer Zusammenfassung nennt die Worte des Meetings, auf denen er beruht.
Alles bleibt auf diesem Computer; das Netz wird nicht benutzt.
.PP
Ein
.I MEETING
wird mit seiner Kennung (UUID) genannt, mit einem eindeutigen Anfang von ihr aus mindestens vier Ziffern,
oder mit seinem Titel.
Groß- und Kleinschreibung und Akzente sind dabei gleich.
Mit
.B \-\-json
schreiben die lesenden Befehle einen JSON-Wert auf eine Zeile, für andere Programme.
Alle Meldungen gehen auf die Standardfehlerausgabe.
)";

constexpr std::string_view furtherText = R"(
.SH UMGEBUNG
.TP
.B MEETING_MODELS
Der Ordner der Modelle, wo keine Option einen nennt; sonst ist es
.I Models
im Datenordner.
.TP
.B NO_COLOR
Gesetzt und nicht leer: Auch auf einem Terminal ohne Farben.
.TP
.B TERM
Mit dem Wert
.B dumb
ebenso.
.TP
.B COLUMNS
Die Breite der Ausgabe auf einem Terminal, das seine eigene nicht nennt.
.TP
.B XDG_DATA_HOME
Der Ordner, in dem der übliche Datenordner liegt, statt
.IR \(ti/.local/share .
.TP
.B XDG_CONFIG_HOME
Der Ordner der Einstellungen, statt
.IR \(ti/.config .
.SH DATEIEN
.TP
.I \(ti/.local/share/Quillstead
Der Datenordner, wenn kein anderer gewählt wurde. Darin liegen die Liste der Meetings
.RI ( library.json ),
die Aufträge
.RI ( quillmoot.sqlite )
und je Meeting ein Ordner unter
.IR Meetings .
.TP
.I \(ti/.config/Quillstead/preferences.json
Welcher Datenordner gewählt wurde.
.TP
.I /usr/share/doc/quillmoot/Transcription.md
Was ein Programm liest und schreibt, das
.B quillmoot transcribe
aufruft.
.SH RÜCKGABEWERT
.TP
.B 0
Getan.
.TP
.B 1
Fehlgeschlagen. Die Meldung sagt, woran.
.TP
.B 2
Der Aufruf war falsch.
.SH BEISPIELE
Zwei Tonspuren als Meeting aufnehmen:
.PP
.RS 4
.EX
quillmoot import \-\-title Planung \-\-microphone ich.wav \-\-meeting andere.wav
.EE
.RE
.PP
Das Meeting als eine Seite mit Belegen und Suche ausgeben:
.PP
.RS 4
.EX
quillmoot export Planung \-\-format html \-o planung.html
.EE
.RE
.PP
Alle Meetings, in denen beide Wörter fallen:
.PP
.RS 4
.EX
quillmoot search Lieferung Freitag
.EE
.RE
.PP
Befehle, Optionen und Meetings in der bash ergänzen lassen:
.PP
.RS 4
.EX
source <(quillmoot completion bash)
.EE
.RE
.SH "SIEHE AUCH"
.BR SummaryWorker (1)
)";

/// Text that means nothing to roff, in the midst of a line or as a line of its own.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const bool lineStart = result.empty() || result.back() == '\n';
        if (lineStart && (c == '.' || c == '\'')) result += "\\&";
        if (c == '\\') {
            result += "\\e";
        } else if (c == '-') {
            result += "\\-";
        } else if (c == '~') {
            result += "\\(ti";
        } else if (c == '"') {
            result += "\\(dq";
        } else {
            result += c;
        }
    }
    return result;
}

/// A list of options or positionals, each with its explanation indented below.
std::string listOf(const std::vector<const CLI::Option*>& options) {
    std::string text;
    for (const auto* option : options) {
        const auto value = option->get_positional() ? std::string() : valueNameOf(*option);
        const auto whole = spelling(*option);
        // What is typed as it stands is bold, what stands for something else is not.
        const auto typed =
            option->get_positional() ? std::string() : whole.substr(0, whole.size() - value.size());
        const auto meant = whole.substr(typed.size());
        text += ".TP\n";
        if (!typed.empty()) text += "\\fB" + escaped(typed) + "\\fR";
        if (!meant.empty()) text += "\\fI" + escaped(meant) + "\\fR";
        text += "\n" + escaped(option->get_description()) + ".\n";
        const auto choices = choicesOf(*option);
        if (option->get_positional() && !choices.empty())
            text += "Möglich: " + escaped(option->get_type_name()) + ".\n";
    }
    return text;
}

std::string usageLines(const CLI::App& app) {
    std::string text;
    for (const auto& line : usage(app)) text += (text.empty() ? "" : "\n.br\n") + escaped(line);
    return text + "\n";
}

std::string commandPart(const CLI::App& command) {
    auto text = ".SS \"" + escaped(fullName(command)) + "\"\n" + usageLines(command) + ".PP\n" +
                escaped(command.get_description()) + ".\n";
    auto own = optionsOf(command, false);
    std::erase_if(own, [&](const CLI::Option* option) { return option == command.get_help_ptr(); });
    text += listOf(optionsOf(command, true)) + listOf(own);
    if (!command.get_footer().empty()) text += ".PP\n" + escaped(command.get_footer()) + "\n";
    for (const auto* part : commandsOf(command)) text += commandPart(*part);
    return text;
}

}  // namespace

std::string manualPage(const CLI::App& program) {
    const auto& name = program.get_name();
    auto text = ".\\\" -*- coding: utf-8 -*-\n.\\\" Made by `quillmoot manual`.\n.TH " + name + R"( 1 "" ")" +
                name + " " QUILLMOOT_VERSION "\" Benutzerbefehle\n.nh\n.ad l\n.SH NAME\n" + name + " \\- " +
                escaped(program.get_description()) + "\n.SH ÜBERSICHT\n" + usageLines(program) +
                std::string(descriptionText.substr(1)) + ".SH BEFEHLE\n";
    for (const auto* command : commandsOf(program)) text += commandPart(*command);
    return text + ".SH OPTIONEN\nSie gelten für alle Befehle.\n" + listOf(optionsOf(program, false)) +
           std::string(furtherText.substr(1));
}

}  // namespace meetingcore::quillmoot
