#include <cstdlib>
#include <iostream>

#include "FileContent.h"
#include "SummaryWorker/Worker.h"

/// The worker with a catalog of the tests' own, which the real one takes from nowhere but its own code.
int main(int argumentCount, char** arguments) {
    const char* const path = std::getenv("SUMMARY_WORKER_CATALOG");
    if (path == nullptr) {
        std::cerr << "SUMMARY_WORKER_CATALOG names no catalog\n";
        return 2;
    }
    const meetingcore::ModelCatalog catalog(meetingcore::json::decode<std::vector<meetingcore::LocalModel>>(
        meetingcore::testing::contentOf(path), path));
    return meetingcore::runSummaryWorker(std::vector<std::string>(arguments, arguments + argumentCount),
                                         catalog);
}
