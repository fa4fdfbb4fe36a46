#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

/// What stands under a name in a folder.
struct FileStatus {
    enum class Kind { file, directory, symbolicLink, other };

    Kind kind = Kind::other;
    std::uint64_t size = 0;  ///< bytes, for files
};

/// A new file that is being written. Destroying it closes the file without an error report.
class FileWriter {
public:
    virtual ~FileWriter() = default;

    /// Writes all bytes at the end. After an error nothing is known about how many of them arrived.
    virtual void write(std::string_view bytes) = 0;

    /// Returns once the file's content is on stable storage. After an error the content must be taken as lost,
    /// even if a second attempt succeeds: write the data to a new file.
    virtual void flush() = 0;

    virtual void close() = 0;
};

/// The one seam between the core and the file system: everything that must survive a crash is written through
/// it.
///
/// Folders are created with permissions 0700 and files with 0600, whatever the process's umask. Every failure
/// is a MeetingError (storage) with a German message. Thread-safe; holds no state.
class FileManager {
public:
    virtual ~FileManager() = default;

    /// The real file system.
    static FileManager& system();

    /// What the name stands for, without following a symbolic link; nothing where the name does not exist.
    virtual std::optional<FileStatus> status(const std::filesystem::path& path) = 0;

    /// The names in a folder, hidden ones included, in byte order.
    virtual std::vector<std::string> list(const std::filesystem::path& directory) = 0;

    /// Up to `maximum` bytes of a regular file from `offset` on, fewer only at its end.
    virtual std::string read(const std::filesystem::path& path, std::uint64_t offset, std::size_t maximum) = 0;

    /// Creates one folder; its parent must exist and the name must be free.
    virtual void createDirectory(const std::filesystem::path& path) = 0;

    /// Creates an empty file for writing; the name must be free.
    virtual std::unique_ptr<FileWriter> createFile(const std::filesystem::path& path) = 0;

    /// Renames atomically; a file in the way is replaced.
    virtual void move(const std::filesystem::path& from, const std::filesystem::path& to) = 0;

    /// Removes a file, a symbolic link or an empty folder.
    virtual void remove(const std::filesystem::path& path) = 0;

    /// Returns once the names in the folder are on stable storage. A file's own flush does not do that.
    virtual void flushDirectory(const std::filesystem::path& path) = 0;
};

/// Whether the name leads to anything; links are followed. True where that cannot be told, so that the next
/// step reports the error instead of taking the name for free.
bool pathExists(const std::filesystem::path& path);

/// No file of a meeting is read as a record beyond this size: 64 MiB. The library and preferences may be
/// larger.
inline constexpr std::size_t maximumRecordBytes = 67'108'864;

/// The whole content of a record's file. Throws MeetingError (invalidData) beyond `maximumRecordBytes`.
std::string readRecord(FileManager& files, const std::filesystem::path& path);

/// Creates the missing folders of the path and flushes the parent of each, so that they outlive a power cut.
/// The last one that was there already counts too where its parent may be opened: a process that was killed
/// after creating it may not have come to that.
void createDirectories(FileManager& files, const std::filesystem::path& path);

/// Sets a file's permissions to 0600.
void restrictToOwner(const std::filesystem::path& file);

/// Creates a file with this content, given in pieces, and flushes it. Its name is durable only once the folder
/// was flushed too.
void writeSynced(FileManager& files, std::span<const std::string_view> content,
                 const std::filesystem::path& path);

/// Replaces the file as a whole: writes and flushes a hidden file beside it, renames it over the target and
/// flushes the folder. Readers, and the disk after a power cut, have the old content or the new, nothing
/// between. On an error before the rename the target is untouched and the hidden file is removed.
void writeAtomically(FileManager& files, std::string_view bytes, const std::filesystem::path& path);

/// Whether a file of this name is what writeAtomically leaves behind when it is cut off.
bool isInterruptedWrite(std::string_view name);

/// Flushes an open file down to the drive: `fsync`, and F_FULLFSYNC where the system has it, since `fsync`
/// there leaves the drive's own cache unflushed. Returns 0, or -1 with errno set.
int flushToStableStorage(int descriptor) noexcept;

/// The German text for a system error number, for the end of a message.
std::string systemErrorText(int error);

/// The path's last component in German quotes, as messages name a file: „summary.json“.
std::string quotedName(const std::filesystem::path& path);

}  // namespace meetingcore
