#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "SummaryWorker/Worker.h"

/// The worker with a catalog of the tests' own, which the real one takes from nowhere but its own code.
int main(int argumentCount, char** arguments) {
    using namespace meetingcore;
    const char* const path = std::getenv("SUMMARY_WORKER_CATALOG");
    if (path == nullptr) {
        std::cerr << "SUMMARY_WORKER_CATALOG names no catalog\n";
        return 2;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const ModelCatalog catalog(json::decode<std::vector<LocalModel>>(bytes, path));
    const std::vector<std::string> list(arguments, arguments + argumentCount);
    return runSummaryWorker(list, catalog);
}
