#include <string>
#include <vector>

#include "SummaryWorker/Worker.h"

int main(int argumentCount, char** arguments) {
    const std::vector<std::string> list(arguments, arguments + argumentCount);
    return meetingcore::runSummaryWorker(list, meetingcore::ModelCatalog::builtIn());
}
