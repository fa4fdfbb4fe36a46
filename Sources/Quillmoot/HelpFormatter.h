#pragma once

#include <CLI/CLI.hpp>

namespace meetingcore::quillmoot {

/// Writes a command's help in German.
class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};

}  // namespace meetingcore::quillmoot
