#include "HelpFormatter.h"

#include <sstream>

#include "CommandDescription.h"
#include "Terminal.h"

namespace meetingcore::quillmoot {

namespace {

constexpr std::size_t columnsLeft = 30;

using Lines = std::vector<std::pair<std::string, std::string>>;

void write(std::ostream& out, const std::string& heading, const Lines& lines) {
    if (lines.empty()) return;
    out << '\n' << heading << ":\n";
    for (const auto& [left, right] : lines) {
        const auto columns = columnsOf(left);
        out << "  " << left;
        if (right.empty()) {
            out << '\n';
            continue;
        }
        // What is longer than the column pushes its explanation to a line of its own.
        out << (columns + 2 > columnsLeft ? "\n" + std::string(columnsLeft + 2, ' ')
                                          : std::string(columnsLeft - columns, ' '))
            << right << '\n';
    }
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const {
    std::ostringstream out;
    out << app->get_description() << "\n\n";
    std::string lead = "Aufruf: ";
    for (const auto& line : usage(*app)) {
        out << lead << line << '\n';
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
    if (!app->get_footer().empty()) out << '\n' << app->get_footer() << '\n';
    return out.str();
}

}  // namespace meetingcore::quillmoot
