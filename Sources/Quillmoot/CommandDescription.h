#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace meetingcore::quillmoot {

/// What can be read from the description of the command line. Help, completion and manual come from it alone,
/// so that a new command needs no second list.

/// Accepts no other values, and names them as the value's type, `text|markdown`.
CLI::Option* oneOf(CLI::Option* option, std::initializer_list<const char*> choices);

/// Accepts no empty text, nor one of blanks alone.
CLI::Option* notBlank(CLI::Option* option);

/// The values that `oneOf` has set; empty where there are others.
std::vector<std::string> choicesOf(const CLI::Option& option);

/// The options, or the positionals in their order, that are meant to be seen.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app, bool positional);

/// The program's options that every command takes as well, such as --root.
std::vector<const CLI::Option*> inheritedOptions(const CLI::App& app);

/// The commands below this one that are meant to be seen.
std::vector<const CLI::App*> commandsOf(const CLI::App& app);

/// With all that comes before it: `quillmoot project add`.
std::string fullName(const CLI::App& app);

/// How it is called: `quillmoot rename [OPTIONEN] MEETING TITEL`. Several ways are several lines.
std::vector<std::string> usage(const CLI::App& app);

/// The option's names with their hyphens, short ones first.
std::vector<std::string> namesOf(const CLI::Option& option);

/// What stands for the value, `DATEI` or `text|markdown`; empty for a switch.
std::string valueNameOf(const CLI::Option& option);

/// Whether a positional takes all arguments that follow.
bool takesRest(const CLI::Option& positional);

/// How an option or positional is written in a call, `-o, --output DATEI` or `MEETING`.
std::string spelling(const CLI::Option& option);

}  // namespace meetingcore::quillmoot
