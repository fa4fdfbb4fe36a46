#pragma once

#include "MeetingCore/Platform/FileManager.h"

namespace meetingcore::testing {

/// Passes everything on; the start for a file manager that does one thing differently.
class ForwardingFileManager : public FileManager {
public:
    explicit ForwardingFileManager(FileManager& files) : files_(files) {}

    std::optional<FileStatus> status(const std::filesystem::path& path) override { return files_.status(path); }
    std::vector<std::string> list(const std::filesystem::path& path) override { return files_.list(path); }
    std::string read(const std::filesystem::path& path, std::uint64_t offset, std::size_t maximum) override {
        return files_.read(path, offset, maximum);
    }
    void createDirectory(const std::filesystem::path& path) override { files_.createDirectory(path); }
    std::unique_ptr<FileWriter> createFile(const std::filesystem::path& path) override {
        return files_.createFile(path);
    }
    void move(const std::filesystem::path& from, const std::filesystem::path& to) override {
        files_.move(from, to);
    }
    void remove(const std::filesystem::path& path) override { files_.remove(path); }
    void flushDirectory(const std::filesystem::path& path) override { files_.flushDirectory(path); }

private:
    FileManager& files_;
};

}  // namespace meetingcore::testing
