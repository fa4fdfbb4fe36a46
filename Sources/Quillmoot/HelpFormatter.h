#pragma once

#include <CLI/CLI.hpp>

namespace meetingcore::quillmoot {

/// Writes a command's help in German.
class HelpFormatter : public CLI::FormatterBase {
public:
    /// Lines are broken to so many columns; 0: they are not.
    explicit HelpFormatter(std::size_t columns) : columns_(columns) {}

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;

private:
    std::size_t columns_;
};

}  // namespace meetingcore::quillmoot
