#include "MeetingCore/Recording/DurableChunkStore.h"

#include <algorithm>
#include <iterator>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Recording/WAV.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

using Kind = FileStatus::Kind;

constexpr const char* audioName = "audio.wav";
constexpr const char* metadataName = "metadata.json";

/// A name that is taken by nothing, hidden and recognisable as unfinished.
fs::path partialBeside(const fs::path& folder) {
    const auto name =
        "." + folder.stem().string() + "." + UUID::random().string() + std::string(layout::partialExtension);
    return folder.parent_path() / name;
}

/// Refuses what is of another kind, a symbolic link above all: it could lead anywhere.
FileStatus require(FileManager& fm, Kind kind, const fs::path& path) {
    const auto status = fm.status(path);
    if (status && status->kind == kind) return *status;
    const char* const reason = !status                              ? " fehlt."
                               : status->kind == Kind::symbolicLink ? " ist eine symbolische Verknüpfung."
                               : kind == Kind::directory            ? " ist kein Ordner."
                                                                    : " ist keine gewöhnliche Datei.";
    throw MeetingError::invalidData(quotedName(path) + reason);
}

template <class T>
T decodeFile(FileManager& fm, const fs::path& file) {
    require(fm, Kind::file, file);
    return json::decode<T>(readRecord(fm, file), quotedName(file));
}

void addProblem(RecoveryReport& report, const fs::path& entry, const MeetingError& error) {
    report.problems.push_back(text::repaired(entry.filename().string()) + ": " + error.message());
}

void sortByStart(std::vector<AudioChunk>& chunks) {
    std::stable_sort(chunks.begin(), chunks.end(),
                     [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; });
}

}  // namespace

DurableChunkStore::DurableChunkStore(fs::path root, FileManager& fm) : root_(std::move(root)), fm_(fm) {}

fs::path DurableChunkStore::sessionDirectory(const UUID& session) const { return root_ / session.string(); }

fs::path DurableChunkStore::chunkDirectory(const AudioChunk& chunk) const {
    return sessionDirectory(chunk.sessionID) / (chunk.id.string() + std::string(layout::chunkExtension));
}

void DurableChunkStore::createSession(const MeetingSession& session) {
    if (!session.consentConfirmed) throw MeetingError::invalidData("Die Aufnahme wurde nicht freigegeben.");
    const auto folder = sessionDirectory(session.id);
    if (fm_.status(folder)) throw MeetingError::invalidData("Die Sitzung existiert bereits.");
    createDirectories(fm_, root_);
    const auto manifest = json::encode(session);
    publish(folder, {{layout::manifest, {manifest}}});
    try {
        fm_.flushDirectory(root_);
    } catch (const std::exception&) {
        // Left in place it would be in the way of the repeat.
        const auto withdrawn = partialBeside(folder);
        try {
            fm_.move(folder, withdrawn);
        } catch (const MeetingError&) {  // the first error is the one to report
        }
        discard(withdrawn);
        throw;
    }
}

fs::path DurableChunkStore::commit(const AudioChunk& chunk, std::span<const std::int16_t> samples) {
    chunk.validate();
    if (samples.size() != static_cast<std::size_t>(chunk.sampleCount)) {
        throw MeetingError::invalidData("Sampleanzahl passt nicht zu den Metadaten.");
    }
    const auto session = sessionDirectory(chunk.sessionID);
    if (!isSession(session)) throw MeetingError::invalidData("Die Sitzung wurde noch nicht angelegt.");
    auto folder = chunkDirectory(chunk);
    if (fm_.status(folder)) {
        requireIdentical(folder, chunk, samples);
        // The attempt that moved it here may have failed in flushing the session's folder, after which the
        // system may take that folder for clean. Only a new change makes the next flush worth believing.
        const auto change = partialBeside(folder);
        fm_.createDirectory(change);
        fm_.remove(change);
    } else {
        const auto header = WAV::header(samples.size());
        const auto metadata = json::encode(chunk);
        publish(folder, {{audioName, {header, WAV::sampleBytes(samples)}}, {metadataName, {metadata}}});
    }
    fm_.flushDirectory(session);
    // Its creator may have been killed before it came to this.
    fm_.flushDirectory(root_);
    return folder;
}

void DurableChunkStore::setAside(const AudioChunk& chunk) {
    const auto folder = chunkDirectory(chunk);
    if (fm_.status(folder)) fm_.move(folder, partialBeside(folder));
}

std::vector<AudioChunk> DurableChunkStore::recoverTrack(const UUID& session, AudioSource source) {
    auto chunks = recover(session).chunks;
    std::erase_if(chunks, [&](const AudioChunk& chunk) { return chunk.source != source; });
    return chunks;
}

/// Builds the folder under a hidden name and renames it into place. What remains is to flush the parent.
void DurableChunkStore::publish(const fs::path& folder, std::initializer_list<NewFile> files) {
    const auto partial = partialBeside(folder);
    try {
        fm_.createDirectory(partial);
        for (const auto& [name, content] : files) writeSynced(fm_, content, partial / name);
        fm_.flushDirectory(partial);
        fm_.move(partial, folder);
    } catch (const std::exception&) {
        discard(partial);
        throw;
    }
}

/// Removes what a failed attempt left, as far as that is possible: repeated attempts must not fill the disk.
void DurableChunkStore::discard(const fs::path& folder) {
    for (const auto& path : {folder / audioName, folder / metadataName, folder / layout::manifest, folder}) {
        try {
            if (fm_.status(path)) fm_.remove(path);
        } catch (const MeetingError&) {  // then it stays, under a name that counts for nothing
        }
    }
}

bool DurableChunkStore::isSession(const fs::path& folder) {
    const auto status = fm_.status(folder);
    if (!status || status->kind != Kind::directory) return false;
    const auto manifest = fm_.status(folder / layout::manifest);
    return manifest && manifest->kind == Kind::file;
}

void DurableChunkStore::requireIdentical(const fs::path& stored, const AudioChunk& chunk,
                                         std::span<const std::int16_t> samples) {
    const auto identical = [&] {
        require(fm_, Kind::directory, stored);
        if (decodeFile<AudioChunk>(fm_, stored / metadataName) != chunk) return false;
        const auto file = stored / audioName;
        return require(fm_, Kind::file, file).size == WAV::fileBytes(samples.size()) &&
               fm_.read(file, 0, WAV::fileBytes(samples.size())) == WAV::encode(samples);
    };
    try {
        if (identical()) return;
    } catch (const MeetingError& error) {
        // A disk that cannot be read says nothing about the content; a missing or broken file does.
        if (error.kind() == MeetingError::Kind::storage) throw;
    }
    throw MeetingError::invalidData("Konflikt: Abschnitts-ID existiert mit anderem Inhalt.");
}

RecoveryReport DurableChunkStore::recover() {
    RecoveryReport report;
    if (!fm_.status(root_)) return report;
    const auto names = fm_.list(root_);
    fm_.flushDirectory(root_);
    for (const auto& name : names) scanEntry(name, report);
    sortByStart(report.chunks);
    return report;
}

RecoveryReport DurableChunkStore::recover(const UUID& session) {
    RecoveryReport report;
    if (!fm_.status(sessionDirectory(session))) return report;
    fm_.flushDirectory(root_);
    scanEntry(session.string(), report);
    sortByStart(report.chunks);
    return report;
}

void DurableChunkStore::scanEntry(const std::string& name, RecoveryReport& report) {
    const auto entry = root_ / name;
    try {
        require(fm_, Kind::directory, entry);
        if (entry.extension() == layout::partialExtension) {
            report.incompleteDirectories.push_back(entry);
        } else if (!fm_.status(entry / AudioArchive::removedMarkerName)) {
            scanSession(entry, report);
        }
    } catch (const MeetingError& error) {
        addProblem(report, entry, error);
    }
}

void DurableChunkStore::scanSession(const fs::path& folder, RecoveryReport& report) {
    const auto session = decodeFile<MeetingSession>(fm_, folder / layout::manifest);
    if (session.id.string() != folder.filename()) {
        throw MeetingError::invalidData("Sitzungsmanifest stimmt nicht mit dem Verzeichnis überein.");
    }
    std::vector<AudioChunk> chunks;
    for (const auto& name : fm_.list(folder)) {
        const auto entry = folder / name;
        const auto extension = entry.extension();
        try {
            if (extension == layout::partialExtension) {
                report.incompleteDirectories.push_back(entry);
            } else if (extension == layout::chunkExtension) {
                chunks.push_back(readChunk(entry, session.id));
            }
        } catch (const MeetingError& error) {
            addProblem(report, entry, error);
        }
    }
    if (chunks.empty()) return;
    // A chunk whose writer was killed right after the rename is complete, but its name would not outlive a
    // power cut. What is inside was flushed before it was renamed.
    fm_.flushDirectory(folder);
    std::move(chunks.begin(), chunks.end(), std::back_inserter(report.chunks));
}

AudioChunk DurableChunkStore::readChunk(const fs::path& folder, const UUID& session) {
    require(fm_, Kind::directory, folder);
    const auto chunk = decodeFile<AudioChunk>(fm_, folder / metadataName);
    chunk.validate();
    if (chunk.id.string() != folder.stem() || chunk.sessionID != session) {
        throw MeetingError::invalidData("Abschnitt gehört nicht zur erwarteten Sitzung.");
    }
    const auto audio = folder / audioName;
    const auto size = require(fm_, Kind::file, audio).size;
    WAV::validateHeader(fm_.read(audio, 0, WAV::headerBytes), size, chunk.sampleCount);
    return chunk;
}

}  // namespace meetingcore
