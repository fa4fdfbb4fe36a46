#pragma once

#include <CLI/CLI.hpp>

namespace meetingcore::quillmoot {

/// Writes a command's help in German.
class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};

/// How an option or positional is written in a call, `--title TEXT` or `MEETING`.
std::string spelling(const CLI::Option& option);

}  // namespace meetingcore::quillmoot
