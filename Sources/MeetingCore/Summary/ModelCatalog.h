#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/JSON.h"

namespace meetingcore {

/// One model file that the system runs locally.
struct LocalModel {
    std::string id;
    std::string filename;
    std::int64_t bytes = 0;  ///< exact size
    std::string sha256;      ///< 64 lower-case hexadecimal digits

    bool operator==(const LocalModel&) const = default;
};

template <>
inline constexpr auto json::fields<LocalModel> = json::record(json::field("id", &LocalModel::id),
                                                              json::field("filename", &LocalModel::filename),
                                                              json::field("bytes", &LocalModel::bytes),
                                                              json::field("sha256", &LocalModel::sha256));

/// A model file whose content was found intact.
class VerifiedModel {
public:
    const std::filesystem::path& path() const { return path_; }

    /// Throws MeetingError (invalidData) where the file under the path is no longer the one that was checked,
    /// or was written to since. To be called once the file is loaded, since loading opens it by its name again.
    void requireUnchanged() const;

private:
    friend class ModelCatalog;

    struct Identity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = 0;
        std::int64_t modifiedNanoseconds = 0;
        std::int64_t changedNanoseconds = 0;

        bool operator==(const Identity&) const = default;
    };

    static Identity identityOf(int descriptor);

    VerifiedModel(std::filesystem::path path, Identity identity)
        : path_(std::move(path)), identity_(identity) {}

    std::filesystem::path path_;
    Identity identity_;
};

/// The models by identifier, and the check of a folder's files against them. Immutable and thread-safe.
class ModelCatalog {
public:
    explicit ModelCatalog(std::vector<LocalModel> models) : models_(std::move(models)) {}

    /// The models that the system is made for: "nemotron-asr", "asr", "diarization" and "summary".
    static const ModelCatalog& builtIn();

    const std::vector<LocalModel>& models() const { return models_; }

    /// Whether the file is there with the exact size; false for an unknown identifier as well.
    bool present(std::string_view id, const std::filesystem::path& directory) const;

    /// Checks size and SHA-256, in this order, reading 4 MiB at a time. Throws MeetingError: notConfigured for
    /// a file that is missing or incomplete and for an unknown identifier, storage for one
    /// that cannot be read, invalidData for one with another content.
    VerifiedModel verify(std::string_view id, const std::filesystem::path& directory) const;

    /// SHA-256 as 64 lower-case hexadecimal digits.
    static std::string fingerprint(std::string_view data);

private:
    const LocalModel* find(std::string_view id) const;

    std::vector<LocalModel> models_;
};

}  // namespace meetingcore
