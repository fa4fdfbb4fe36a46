#include "CommandDescription.h"

#include <algorithm>
#include <sstream>

#include "MeetingCore/Platform/Text.h"

namespace meetingcore::quillmoot {

CLI::Option* oneOf(CLI::Option* option, std::initializer_list<const char*> choices) {
    const std::vector<std::string> all(choices.begin(), choices.end());
    option->type_name(text::joined(all, "|"));
    return option->check([all](const std::string& value) {
        if (std::ranges::find(all, value) != all.end()) return std::string();
        return "Ungültiger Wert: " + value + " (möglich: " + text::joined(all, ", ") + ")";
    });
}

CLI::Option* notBlank(CLI::Option* option) {
    return option->check([](const std::string& value) {
        return text::trimmed(value).empty() ? "Der Wert darf nicht leer sein." : std::string();
    });
}

std::vector<std::string> choicesOf(const CLI::Option& option) {
    std::istringstream type(option.get_type_name());
    std::vector<std::string> choices;
    for (std::string choice; std::getline(type, choice, '|');) choices.push_back(choice);
    return choices.size() > 1 ? choices : std::vector<std::string>{};
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& app, bool positional) {
    return app.get_options([&](const CLI::Option* option) {
        return option->get_positional() == positional && !option->get_group().empty();
    });
}

std::vector<const CLI::Option*> inheritedOptions(const CLI::App& app) {
    if (app.get_parent() == nullptr) return {};
    const auto* program = &app;
    while (program->get_parent() != nullptr) program = program->get_parent();
    auto options = optionsOf(*program, false);
    // Those without a value are the calls for help, which each command has itself, and for the version.
    std::erase_if(options, [](const CLI::Option* option) { return valueNameOf(*option).empty(); });
    return options;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::string fullName(const CLI::App& app) {
    return app.get_parent() == nullptr ? app.get_name() : fullName(*app.get_parent()) + " " + app.get_name();
}

std::vector<std::string> usage(const CLI::App& app) {
    auto text = fullName(app);
    if (!optionsOf(app, false).empty()) text += " [OPTIONEN]";
    for (const auto* positional : optionsOf(app, true)) {
        const auto name = spelling(*positional);
        text += positional->get_required() ? " " + name : " [" + name + "]";
    }
    const auto commands = commandsOf(app);
    if (!commands.empty() && optionsOf(app, true).empty()) return {text + " BEFEHL …"};
    std::vector<std::string> lines{text};
    for (const auto* command : commands) lines.push_back(fullName(*command) + " …");
    return lines;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& name : option.get_snames()) names.push_back("-" + name);
    for (const auto& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

std::string valueNameOf(const CLI::Option& option) {
    return option.get_type_size() == 0 ? std::string() : option.get_type_name();
}

bool takesRest(const CLI::Option& positional) { return positional.get_expected_max() > 1; }

std::string spelling(const CLI::Option& option) {
    if (option.get_positional()) return option.get_name(true) + (takesRest(option) ? " …" : "");
    const auto value = valueNameOf(option);
    return text::joined(namesOf(option), ", ") + (value.empty() ? "" : " " + value);
}

}  // namespace meetingcore::quillmoot
