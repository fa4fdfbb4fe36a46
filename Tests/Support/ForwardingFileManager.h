#pragma once

#include "MeetingCore/Platform/FileManager.h"

namespace meetingcore::testing {

/// Passes everything on; the start for a file manager that does one thing differently.
class ForwardingFileManager : public FileManager {
    using Path = std::filesystem::path;

public:
    explicit ForwardingFileManager(FileManager& files) : files_(files) {}

    std::optional<FileStatus> status(const Path& path) override { return files_.status(path); }
    std::vector<std::string> list(const Path& path) override { return files_.list(path); }
    std::string read(const Path& path, std::uint64_t offset, std::size_t maximum) override {
        return files_.read(path, offset, maximum);
    }
    void createDirectory(const Path& path) override { files_.createDirectory(path); }
    std::unique_ptr<FileWriter> createFile(const Path& path) override { return files_.createFile(path); }
    void move(const Path& from, const Path& to) override { files_.move(from, to); }
    void remove(const Path& path) override { files_.remove(path); }
    void flushDirectory(const Path& path) override { files_.flushDirectory(path); }

private:
    FileManager& files_;
};

}  // namespace meetingcore::testing
