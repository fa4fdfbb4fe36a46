#pragma once

#include <string_view>

namespace meetingcore::PageAssets {

/// The style sheet and the script of the exported page, from the files in the folder Page.
extern const std::string_view style;
extern const std::string_view script;

}  // namespace meetingcore::PageAssets
