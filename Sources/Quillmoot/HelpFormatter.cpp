#include "HelpFormatter.h"

#include <algorithm>
#include <sstream>

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

std::string commandName(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name() : commandName(*app.get_parent()) + " " + app.get_name();
}

std::vector<const CLI::Option*> options(const CLI::App& app, bool positional) {
    return app.get_options([&](const CLI::Option* option) {
        return option->get_positional() == positional && !option->get_group().empty();
    });
}

std::string usage(const CLI::App& app) {
    std::string text = "Aufruf: " + commandName(app);
    if (!options(app, false).empty()) text += " [OPTIONEN]";
    for (const auto* option : options(app, true)) {
        const auto name = spelling(*option);
        text += option->get_required() ? " " + name : " [" + name + "]";
    }
    const auto commands = app.get_subcommands({});
    if (commands.empty()) return text;
    if (options(app, true).empty()) return text + " BEFEHL …";
    for (const auto* command : commands) text += "\n        " + commandName(*command) + " …";
    return text;
}

}  // namespace

std::string spelling(const CLI::Option& option) {
    std::string text;
    if (option.get_positional()) {
        text = option.get_name(true);
    } else {
        for (const auto& name : option.get_snames()) text += (text.empty() ? "-" : ", -") + name;
        for (const auto& name : option.get_lnames()) text += (text.empty() ? "--" : ", --") + name;
        if (option.get_type_size() != 0 && !option.get_type_name().empty())
            text += " " + option.get_type_name();
    }
    return option.get_expected_max() > 1 && option.get_positional() ? text + " …" : text;
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string /*name*/,
                                     CLI::AppFormatMode /*mode*/) const {
    std::ostringstream out;
    out << app->get_description() << "\n\n" << usage(*app) << '\n';
    Lines positionals;
    for (const auto* option : options(*app, true))
        positionals.emplace_back(spelling(*option), option->get_description());
    write(out, "Argumente", positionals);
    Lines commands;
    for (const auto* command : app->get_subcommands({})) {
        commands.emplace_back(command->get_name(), command->get_description());
    }
    write(out, "Befehle", commands);
    Lines switches;
    for (const auto* option : options(*app, false))
        switches.emplace_back(spelling(*option), option->get_description());
    if (app->get_parent() != nullptr)
        switches.emplace_back("--root ORDNER", "Der Datenordner, statt des gemerkten");
    write(out, "Optionen", switches);
    if (!app->get_footer().empty()) out << '\n' << app->get_footer() << '\n';
    return out.str();
}

}  // namespace meetingcore::quillmoot
