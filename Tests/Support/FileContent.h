#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace meetingcore::testing {

/// The bytes of a file. Throws `std::runtime_error` where it cannot be opened.
inline std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Writes or overwrites a file. Throws `std::runtime_error` where that fails.
inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes).flush()) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace meetingcore::testing
