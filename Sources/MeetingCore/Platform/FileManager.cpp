#include "MeetingCore/Platform/FileManager.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UUID.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

constexpr mode_t directoryMode = 0700;
constexpr mode_t fileMode = 0600;

[[noreturn]] void fail(const fs::path& path, const char* whatCannotBeDone, int error) {
    throw MeetingError::storage(quotedName(path) + " " + whatCannotBeDone + ": " + systemErrorText(error));
}

FileStatus::Kind kindOf(mode_t mode) {
    if (S_ISREG(mode)) return FileStatus::Kind::file;
    if (S_ISDIR(mode)) return FileStatus::Kind::directory;
    if (S_ISLNK(mode)) return FileStatus::Kind::symbolicLink;
    return FileStatus::Kind::other;
}

class SystemFileWriter final : public FileWriter {
public:
    SystemFileWriter(FileDescriptor descriptor, fs::path path)
        : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

    void write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const auto written = ::write(descriptor_.get(), bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) fail(path_, "kann nicht geschrieben werden", errno);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void flush() override {
        if (flushToStableStorage(descriptor_.get()) != 0) {
            throw MeetingError::storage(std::string("F_FULLFSYNC fehlgeschlagen: ") + std::strerror(errno));
        }
    }

    void close() override {
        if (!descriptor_.close()) fail(path_, "kann nicht abgeschlossen werden", errno);
    }

private:
    FileDescriptor descriptor_;
    fs::path path_;
};

class SystemFileManager final : public FileManager {
public:
    std::optional<FileStatus> status(const fs::path& path) override {
        struct stat info {};
        if (::lstat(path.c_str(), &info) == 0)
            return FileStatus{kindOf(info.st_mode), static_cast<std::uint64_t>(info.st_size)};
        if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
        fail(path, "kann nicht geprüft werden", errno);
    }

    std::vector<std::string> list(const fs::path& directory) override {
        struct Closing {
            void operator()(DIR* stream) const { ::closedir(stream); }
        };
        const std::unique_ptr<DIR, Closing> stream(::opendir(directory.c_str()));
        if (stream == nullptr) fail(directory, "kann nicht aufgelistet werden", errno);
        std::vector<std::string> names;
        for (errno = 0; const auto* entry = ::readdir(stream.get()); errno = 0) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") names.emplace_back(name);
        }
        if (errno != 0) fail(directory, "kann nicht aufgelistet werden", errno);
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string read(const fs::path& path, std::uint64_t offset, std::size_t maximum) override {
        // Without O_NONBLOCK a pipe under the file's name would hold the reader forever.
        const auto descriptor = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
        if (!descriptor) fail(path, "kann nicht geöffnet werden", errno);
        struct stat info {};
        if (::fstat(descriptor.get(), &info) != 0) fail(path, "kann nicht gelesen werden", errno);
        if (!S_ISREG(info.st_mode))
            throw MeetingError::storage(quotedName(path) + " ist keine gewöhnliche Datei.");
        const auto size = static_cast<std::uint64_t>(info.st_size);
        std::string bytes(std::min<std::uint64_t>(maximum, size > offset ? size - offset : 0), '\0');
        std::size_t count = 0;
        while (count < bytes.size()) {
            const auto got = ::pread(descriptor.get(), bytes.data() + count, bytes.size() - count,
                                     static_cast<off_t>(offset + count));
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) fail(path, "kann nicht gelesen werden", errno);
            if (got == 0) break;
            count += static_cast<std::size_t>(got);
        }
        bytes.resize(count);
        return bytes;
    }

    void createDirectory(const fs::path& path) override {
        if (::mkdir(path.c_str(), directoryMode) != 0 || ::chmod(path.c_str(), directoryMode) != 0) {
            fail(path, "kann nicht angelegt werden", errno);
        }
    }

    std::unique_ptr<FileWriter> createFile(const fs::path& path) override {
        auto descriptor = FileDescriptor::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, fileMode);
        if (!descriptor || ::fchmod(descriptor.get(), fileMode) != 0) {
            if (descriptor) ::unlink(path.c_str());
            throw MeetingError::storage("Datei konnte nicht angelegt werden: " +
                                        text::repaired(path.filename().string()));
        }
        return std::make_unique<SystemFileWriter>(std::move(descriptor), path);
    }

    void move(const fs::path& from, const fs::path& to) override {
        if (::rename(from.c_str(), to.c_str()) != 0)
            fail(to, "kann nicht an ihren Platz gebracht werden", errno);
    }

    void remove(const fs::path& path) override {
        if (::remove(path.c_str()) != 0) fail(path, "kann nicht entfernt werden", errno);
    }

    void flushDirectory(const fs::path& path) override {
        const auto descriptor = FileDescriptor::open(path, O_RDONLY | O_DIRECTORY);
        if (!descriptor) throw MeetingError::storage("Verzeichnis kann nicht synchronisiert werden.");
        if (::fsync(descriptor.get()) != 0) {
            throw MeetingError::storage(std::string("Verzeichnissicherung fehlgeschlagen: ") +
                                        std::strerror(errno));
        }
    }
};

}  // namespace

FileManager& FileManager::system() {
    static SystemFileManager manager;
    return manager;
}

bool pathExists(const fs::path& path) {
    std::error_code undecided;
    return fs::exists(path, undecided) || undecided;
}

std::string readRecord(FileManager& files, const fs::path& path) {
    // One byte more than allowed tells a file that is too large, also one that grows meanwhile.
    auto bytes = files.read(path, 0, maximumRecordBytes + 1);
    if (bytes.size() > maximumRecordBytes) throw MeetingError::invalidData("Ergebnisdatei ist zu groß.");
    return bytes;
}

void createDirectories(FileManager& files, const fs::path& path) {
    if (path.empty() || path == path.root_path()) return;
    const auto parent = path.parent_path();
    if (path.filename().empty()) return createDirectories(files, parent);  // a trailing slash
    const auto folder = parent.empty() ? fs::path(".") : parent;
    if (std::error_code undecided; fs::is_directory(path, undecided)) {
        try {
            files.flushDirectory(folder);
        } catch (const MeetingError&) {  // a folder above ours may be closed to us, and then was not our doing
        }
        return;
    }
    createDirectories(files, parent);
    try {
        files.createDirectory(path);
    } catch (const MeetingError&) {
        std::error_code undecided;
        if (!fs::is_directory(path, undecided)) throw;  // else another process was faster
    }
    try {
        files.flushDirectory(folder);
    } catch (const std::exception&) {
        // The system may now take the parent for clean. Creating the folder anew makes the next flush count.
        try {
            files.remove(path);
        } catch (const MeetingError&) {  // the first error is the one to report
        }
        throw;
    }
}

void restrictToOwner(const fs::path& file) {
    if (::chmod(file.c_str(), fileMode) != 0) fail(file, "kann nicht geschützt werden", errno);
}

void writeSynced(FileManager& files, std::span<const std::string_view> content, const fs::path& path) {
    const auto file = files.createFile(path);
    for (const auto piece : content) file->write(piece);
    file->flush();
    file->close();
}

constexpr std::string_view hiddenEnding = ".tmp";

namespace {

/// Tells people what the file was to become, by as much of its name as fits.
std::string hiddenName(std::string_view name) {
    constexpr std::size_t longestName = 255;
    const auto ending = "." + UUID::random().string() + std::string(hiddenEnding);
    auto size = std::min(name.size(), longestName - 1 - ending.size());
    const auto isInsideCharacter = [&] { return size < name.size() && (name[size] & 0xC0) == 0x80; };
    while (size > 0 && isInsideCharacter()) --size;
    return "." + std::string(name.substr(0, size)) + ending;
}

}  // namespace

void writeAtomically(FileManager& files, std::string_view bytes, const fs::path& path) {
    const auto folder = path.parent_path();
    const auto hidden = folder / hiddenName(path.filename().string());
    const auto removeHidden = [&] {
        try {
            if (files.status(hidden)) files.remove(hidden);
        } catch (const MeetingError&) {  // the first error is the one to report
        }
    };
    try {
        writeSynced(files, {&bytes, 1}, hidden);
        files.move(hidden, path);
    } catch (const MeetingError& error) {
        removeHidden();
        // The user knows the file, not the hidden one that was to become it.
        throw MeetingError(error.kind(), text::replacing(error.message(), hidden.filename().string(),
                                                         path.filename().string()));
    } catch (const std::exception&) {
        removeHidden();
        throw;
    }
    files.flushDirectory(folder.empty() ? fs::path(".") : folder);
}

bool isInterruptedWrite(std::string_view name) {
    constexpr std::size_t identifier = 36;
    if (!name.starts_with('.') || !name.ends_with(hiddenEnding)) return false;
    name.remove_suffix(hiddenEnding.size());
    return name.size() > identifier + 1 && UUID::parse(name.substr(name.size() - identifier));
}

int flushToStableStorage(int descriptor) noexcept {
#ifdef F_FULLFSYNC
    if (::fsync(descriptor) != 0) return -1;
    return ::fcntl(descriptor, F_FULLFSYNC) == -1 ? -1 : 0;
#else
    return ::fsync(descriptor);
#endif
}

std::string systemErrorText(int error) {
    struct Entry {
        int error;
        const char* text;
    };
    static constexpr auto entries = std::to_array<Entry>({
        {EACCES, "Keine Berechtigung."},
        {EPERM, "Keine Berechtigung."},
        {EROFS, "Der Datenträger ist schreibgeschützt."},
        {ENOSPC, "Auf dem Datenträger ist kein Platz mehr. Bitte Platz schaffen und erneut versuchen."},
        {EDQUOT, "Das Speicherkontingent ist erschöpft. Bitte Platz schaffen und erneut versuchen."},
        {EIO, "Der Datenträger meldet einen Lese- oder Schreibfehler."},
        {ENOENT, "Datei oder Ordner nicht vorhanden."},
        {ENOTDIR, "Ein Teil des Pfades ist kein Ordner."},
        {EISDIR, "Unter diesem Namen liegt ein Ordner."},
        {EEXIST, "Der Name ist schon vergeben."},
        {ENOTEMPTY, "Der Ordner ist nicht leer."},
        {ENAMETOOLONG, "Der Name ist zu lang."},
        {ELOOP, "Zu viele symbolische Verknüpfungen."},
        {EMFILE, "Zu viele geöffnete Dateien."},
        {ENFILE, "Zu viele geöffnete Dateien."},
        {EFBIG, "Die Datei ist zu groß für den Datenträger."},
        {EXDEV, "Quelle und Ziel liegen auf verschiedenen Datenträgern."},
        {ENODEV, "Der Datenträger ist nicht erreichbar."},
        {ESTALE, "Der Datenträger ist nicht erreichbar."},
        {ENXIO, "Unter diesem Namen liegt keine Datei."},
        {ENOMEM, "Der Arbeitsspeicher reicht nicht aus."},
        {EBUSY, "Datei oder Ordner wird gerade benutzt."},
    });
    const auto* const found =
        std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.error == error; });
    return found != entries.end() ? found->text : "Systemfehler " + std::to_string(error) + ".";
}

std::string quotedName(const fs::path& path) {
    const auto name = path.filename().empty() ? path.parent_path().filename() : path.filename();
    return "„" + text::repaired(name.string()) + "“";
}

}  // namespace meetingcore
