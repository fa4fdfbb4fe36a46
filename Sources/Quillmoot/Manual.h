#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace meetingcore::quillmoot {

/// The described program's manual page, in German, in the roff language (macros man, UTF-8).
std::string manualPage(const CLI::App& program);

}  // namespace meetingcore::quillmoot
