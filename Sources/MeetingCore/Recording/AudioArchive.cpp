#include "MeetingCore/Recording/AudioArchive.h"

#include <algorithm>
#include <vector>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Recording/JoinedAudio.h"
#include "MeetingCore/Recording/WAV.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

/// What a complete file was made from. Chunks never change, so their records stand for their samples.
struct ArchiveManifest {
    std::vector<AudioChunk> chunks;
};

}  // namespace

template <>
inline constexpr auto json::fields<ArchiveManifest> = json::record(json::field("chunks",
                                                                               &ArchiveManifest::chunks));

namespace AudioArchive {

namespace {

/// The track's chunks by start time, as many as recovery vouches for.
std::vector<AudioChunk> trackChunks(const UUID& session, AudioSource source, const fs::path& root,
                                    FileManager& files) {
    auto chunks = DurableChunkStore(root / layout::meetings, files).recoverTrack(session, source);
    const bool tooLong = std::any_of(chunks.begin(), chunks.end(), [](const AudioChunk& chunk) {
        return chunk.endSeconds() > audio::maximumTrackSeconds;
    });
    if (chunks.empty() || tooLong) {
        throw MeetingError::invalidData("Keine Audioabschnitte oder Aufnahme länger als 24 Stunden.");
    }
    for (std::size_t i = 1; i < chunks.size(); ++i) {
        if (chunks[i].startSeconds < chunks[i - 1].endSeconds() - audio::timingToleranceSeconds) {
            throw MeetingError::invalidData("Überlappende Audioabschnitte sind nicht zulässig.");
        }
    }
    return chunks;
}

class Build {
public:
    Build(const UUID& session, AudioSource source, const fs::path& root, FileManager& files)
        : files_(files),
          meeting_(layout::meetingFolder(root, session)),
          folder_(meeting_ / layout::audio),
          track_(json::nameOf(source)),
          chunks_(trackChunks(session, source, root, files)),
          audio_(chunks_, 0) {}

    fs::path run() {
        if (isComplete()) return target();
        prepareFolder();
        const auto partial =
            folder_ / ("." + track_ + "." + UUID::random().string() + std::string(layout::partialExtension));
        try {
            write(partial);
            files_.move(partial, target());
        } catch (const std::exception&) {
            removeStalePartials();
            throw;
        }
        files_.flushDirectory(folder_);
        writeAtomically(files_, json::encode(ArchiveManifest{chunks_}), manifest());
        return target();
    }

private:
    fs::path target() const { return folder_ / (track_ + ".wav"); }
    fs::path manifest() const { return folder_ / (track_ + ".json"); }

    std::optional<FileStatus> statusOfFile(const fs::path& path) {
        const auto status = files_.status(path);
        return status && status->kind == FileStatus::Kind::file ? status : std::nullopt;
    }

    bool isComplete() {
        const auto audio = statusOfFile(target());
        const auto record = statusOfFile(manifest());
        if (!audio || audio->size != WAV::fileBytes(audio_.sampleCount()) || !record) return false;
        try {
            const auto bytes = readRecord(files_, manifest());
            return json::decode<ArchiveManifest>(bytes, quotedName(manifest())).chunks == chunks_ &&
                   files_.read(target(), 0, WAV::headerBytes) == WAV::header(audio_.sampleCount());
        } catch (const MeetingError&) {
            return false;
        }
    }

    void prepareFolder() {
        const auto status = files_.status(folder_);
        if (!status) files_.createDirectory(folder_);
        if (status && status->kind != FileStatus::Kind::directory) {
            throw MeetingError::storage(quotedName(folder_) + " ist kein Ordner.");
        }
        files_.flushDirectory(meeting_);
        removeStalePartials();
        // The manifest must never vouch for another file than the one it was written for.
        if (files_.status(manifest())) files_.remove(manifest());
        files_.flushDirectory(folder_);
    }

    /// Of a whole day they take 2.8 GB each.
    void removeStalePartials() {
        for (const auto& name : files_.list(folder_)) {
            if (name.starts_with("." + track_ + ".") && name.ends_with(layout::partialExtension))
                files_.remove(folder_ / name);
        }
    }

    void write(const fs::path& partial) {
        const auto file = files_.createFile(partial);
        audio_.write(*file, DurableChunkStore(meeting_.parent_path(), files_), files_);
        file->flush();
        file->close();
    }

    FileManager& files_;
    fs::path meeting_;
    fs::path folder_;
    std::string track_;
    std::vector<AudioChunk> chunks_;
    JoinedAudio audio_;
};

}  // namespace

bool removed(const UUID& session, const fs::path& root) {
    // What cannot be told is no removal: it would let unfinished work pass for finished.
    std::error_code undecided;
    return fs::exists(layout::meetingFolder(root, session) / removedMarkerName, undecided);
}

std::vector<Gap> gaps(std::span<const AudioChunk> chunks) {
    std::vector<Gap> gaps;
    for (const auto source : {AudioSource::microphone, AudioSource::meeting}) {
        std::int64_t next = 0;
        double end = 0;
        for (const auto& chunk : chunks) {
            if (chunk.source != source) continue;
            if (chunk.sequence > next) gaps.push_back({source, end, chunk.startSeconds});
            next = chunk.sequence + 1;
            end = chunk.endSeconds();
        }
    }
    return gaps;
}

fs::path build(const UUID& session, AudioSource source, const fs::path& root, FileManager& files) {
    Build build(session, source, root, files);
    try {
        return build.run();
    } catch (const MeetingError&) {
        throw MeetingError::storage("Vollständige Audiodatei konnte nicht gespeichert werden.");
    }
}

}  // namespace AudioArchive
}  // namespace meetingcore
