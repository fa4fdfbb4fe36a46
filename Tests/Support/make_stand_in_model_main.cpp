#include <array>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include <openssl/evp.h>

#include "Support/StandInModel.h"

namespace {

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return bytes;
}

/// The JSON text without white space between its tokens, so that an answer may be written over several lines.
std::string compacted(const std::string& json) {
    std::string result;
    bool inString = false;
    for (std::size_t index = 0; index < json.size(); ++index) {
        const char character = json[index];
        if (!inString && std::string(" \t\r\n").find(character) != std::string::npos) continue;
        if (character == '"') inString = !inString;
        result += character;
        if (inString && character == '\\' && index + 1 < json.size()) result += json[++index];
    }
    return result;
}

std::string sha256(const std::string& bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("cannot compute SHA-256");
    }
    std::string text;
    for (unsigned index = 0; index < length; ++index) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", digest[index]);
        text += digits.data();
    }
    return text;
}

void run(const std::filesystem::path& summary, const std::filesystem::path& title,
         const std::filesystem::path& model, const std::filesystem::path& catalog) {
    using meetingcore::testing::StandInScript;
    writeStandInModel(model,
                      StandInScript::answering(compacted(readFile(summary)), compacted(readFile(title))));
    const auto bytes = readFile(model);
    std::ofstream list(catalog, std::ios::binary | std::ios::trunc);
    list << R"([{"id":"summary","filename":")" << model.filename().string() << R"(","bytes":)" << bytes.size()
         << R"(,"sha256":")" << sha256(bytes) << "\"}]";
    if (!list.flush()) throw std::runtime_error("cannot write " + catalog.string());
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
