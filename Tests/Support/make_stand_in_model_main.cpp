#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "Support/StandInModel.h"

namespace {

using meetingcore::LocalModel;
using meetingcore::ModelCatalog;
using meetingcore::testing::StandInScript;

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return bytes;
}

void run(const std::filesystem::path& summary, const std::filesystem::path& title,
         const std::filesystem::path& model, const std::filesystem::path& catalog) {
    writeStandInModel(model, StandInScript::answering(readFile(summary), readFile(title)));
    const auto bytes = readFile(model);
    const std::vector<LocalModel> models{{.id = "summary",
                                          .filename = model.filename().string(),
                                          .bytes = static_cast<std::int64_t>(bytes.size()),
                                          .sha256 = ModelCatalog::fingerprint(bytes)}};
    std::ofstream list(catalog, std::ios::binary | std::ios::trunc);
    if (!(list << meetingcore::json::encode(models)).flush())
        throw std::runtime_error("cannot write " + catalog.string());
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
