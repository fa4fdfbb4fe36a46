#include "HelpFormatter.h"

#include <algorithm>
#include <sstream>

#include "CommandDescription.h"
#include "Terminal.h"

namespace meetingcore::quillmoot {

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

void write(Terminal& out, const std::string& heading, const Lines& lines) {
    if (lines.empty()) return;
    const auto limit = out.style().columns;
    const std::size_t columnsLeft = limit == 0 ? 30 : std::min<std::size_t>(30, limit * 2 / 5 - 2);
    out.raw("\n" + heading + ":\n");
    for (const auto& [left, right] : lines) {
        const auto columns = columnsOf(left);
        // What is longer than the column pushes its explanation to a line of its own.
        if (columns + 2 > columnsLeft || right.empty()) out.wrapped("  ", left);
        if (right.empty()) continue;
        const auto before = columns + 2 > columnsLeft ? std::string(columnsLeft + 2, ' ')
                                                      : "  " + left + std::string(columnsLeft - columns, ' ');
        out.wrapped(before, right);
    }
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const {
    std::ostringstream text;
    Terminal out(text, {.columns = columns_});
    out.wrapped("", app->get_description());
    out.line();
    std::string lead = "Aufruf: ";
    for (const auto& line : usage(*app)) {
        out.wrapped(lead, line);
        lead.assign(lead.size(), ' ');
    }
    Lines positionals;
    for (const auto* option : optionsOf(*app, true))
        positionals.emplace_back(spelling(*option), option->get_description());
    write(out, "Argumente", positionals);
    Lines commands;
    for (const auto* command : commandsOf(*app)) {
        commands.emplace_back(command->get_name(), command->get_description());
    }
    write(out, "Befehle", commands);
    Lines switches;
    for (const auto* option : optionsOf(*app, false))
        switches.emplace_back(spelling(*option), option->get_description());
    for (const auto* option : inheritedOptions(*app))
        switches.emplace_back(spelling(*option), option->get_description());
    write(out, "Optionen", switches);
    if (!app->get_footer().empty()) {
        out.line();
        out.paragraphs(app->get_footer());
    }
    return text.str();
}

}  // namespace meetingcore::quillmoot
