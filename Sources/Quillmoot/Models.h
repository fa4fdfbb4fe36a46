#pragma once

#include <filesystem>
#include <string>

#include "MeetingCore/Summary/ModelCatalog.h"

namespace meetingcore::quillmoot {

/// The folder of the model files: the one that was given, else that of the environment variable MEETING_MODELS,
/// else "Models" in the data folder.
std::filesystem::path modelFolder(const std::string& option, const std::filesystem::path& root);

inline const ModelCatalog& modelCatalog() { return ModelCatalog::builtIn(); }

}  // namespace meetingcore::quillmoot
