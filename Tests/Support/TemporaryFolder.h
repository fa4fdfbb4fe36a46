#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace meetingcore::testing {

/// An empty folder of a test's own under `parent`, by default the system's temporary folder, with permissions
/// 0700. It goes with everything in it when the object does; folders that a test made unwritable are opened up
/// again first.
class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string pattern = (std::filesystem::canonical(parent) / "meetingcore-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), pattern);
        }
        path_ = pattern;
    }
    ~TemporaryFolder() {
        namespace fs = std::filesystem;
        std::error_code ignored;
        const auto open = [&](const fs::path& folder) {
            fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
        };
        open(path_);
        for (fs::recursive_directory_iterator entry(path_, ignored), end; entry != end;
             entry.increment(ignored))
            if (std::error_code unknown; entry->symlink_status(unknown).type() == fs::file_type::directory)
                open(entry->path());
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Absolute, without symbolic links.
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace meetingcore::testing
