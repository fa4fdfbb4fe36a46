#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "Support/StandInModel.h"

namespace {

namespace testing = meetingcore::testing;

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return bytes;
}

void run(const std::filesystem::path& summary, const std::filesystem::path& title,
         const std::filesystem::path& model, const std::filesystem::path& catalog) {
    writeStandInModel(model, testing::StandInScript::answering(readFile(summary), readFile(title)));
    testing::writeCatalog(catalog, model);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 5) {
        std::cerr << "usage: make-stand-in-model SUMMARY.json TITLE.json MODEL.gguf CATALOG.json\n"
                     "Writes a model that answers with the two given objects, and a catalog that names it.\n";
        return 2;
    }
    try {
        run(arguments[1], arguments[2], arguments[3], arguments[4]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "make-stand-in-model: " << error.what() << '\n';
        return 1;
    }
}
