#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace meetingcore::quillmoot {

/// The script that teaches a shell ("bash", "zsh" or "fish") to complete the commands, options and values of
/// the described program. For meetings the script asks the program itself.
std::string completionScript(const CLI::App& program, const std::string& shell);

}  // namespace meetingcore::quillmoot
