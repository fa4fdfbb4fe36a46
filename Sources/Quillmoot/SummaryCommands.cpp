#include "Program.h"

namespace meetingcore::quillmoot {

void addSummaryCommands(CLI::App& /*app*/, Shell& /*shell*/) {}

}  // namespace meetingcore::quillmoot
