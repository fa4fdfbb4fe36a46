#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// What a scan of the store found.
struct RecoveryReport {
    std::vector<AudioChunk> chunks;  ///< complete and valid, by start time, else in byte order of their folders
    std::vector<std::filesystem::path> incompleteDirectories;  ///< what a crash left half-written
    std::vector<std::string>
        problems;  ///< one German line per inconsistency: the entry's name, then the reason
};

/// Keeps the recorded audio of every session so that it survives a crash or a power cut at any instant.
///
///     <root>/<session>/session.json
///     <root>/<session>/<chunk>.chunk/audio.wav
///     <root>/<session>/<chunk>.chunk/metadata.json
///
/// Sessions and chunks are built in a hidden ".partial" folder beside their place, each file flushed, then the
/// folder, then renamed into place, then the parent flushed. Under a final name there is therefore only what is
/// complete, and this tree alone tells which audio exists. Chunks never change.
///
/// Holds no state and no lock: commits of different chunks may run at the same time, and readers, also in other
/// processes, see whole chunks only. Errors are MeetingErrors: invalidData for broken rules, storage for the
/// file system.
class DurableChunkStore {
public:
    /// `root` is the folder of the meetings' folders, layout::meetings in the data folder. Nothing is read or
    /// created yet; the first session creates it. The file manager must outlive the store.
    explicit DurableChunkStore(std::filesystem::path root, FileManager& fm = FileManager::system());

    /// Creates the session's folder and manifest. On return both, and every folder above that had to be
    /// created, are on stable storage. After an error the session does not exist, and a repeat may succeed.
    void createSession(const MeetingSession& session);

    /// Stores a chunk and returns its folder. On return the chunk is on stable storage. An identical repeat
    /// succeeds; the same identifier with other content is refused. After an error, repeat the call with the
    /// same chunk: nothing of a failed attempt is built upon.
    std::filesystem::path commit(const AudioChunk& chunk, std::span<const std::int16_t> samples);

    /// Lists what is complete, for all sessions or for one; sessions whose audio was removed on purpose are
    /// left out. Reads no samples: a chunk's file is judged by its header and size. What is broken or foreign
    /// becomes a line in `problems`, and the scan goes on; symbolic links are not followed. Deletes and repairs
    /// nothing, but flushes the folders that name what it lists, so that a listed chunk stays.
    RecoveryReport recover();
    RecoveryReport recover(const UUID& session);

    /// The complete chunks of one track, ascending by start.
    std::vector<AudioChunk> recoverTrack(const UUID& session, AudioSource source);

    /// Makes room for a whole chunk where recovery refuses the stored one, which is kept as an unfinished one.
    void setAside(const AudioChunk& chunk);

    std::filesystem::path sessionDirectory(const UUID& session) const;
    std::filesystem::path chunkDirectory(const AudioChunk& chunk) const;

private:
    struct NewFile {
        std::string_view name;
        std::vector<std::string_view> content;  // in pieces
    };

    void publish(const std::filesystem::path& folder, std::initializer_list<NewFile> files);
    void discard(const std::filesystem::path& folder);
    bool isSession(const std::filesystem::path& folder);
    void requireIdentical(const std::filesystem::path& stored, const AudioChunk& chunk,
                          std::span<const std::int16_t> samples);
    void scanEntry(const std::string& name, RecoveryReport& report);
    void scanSession(const std::filesystem::path& folder, RecoveryReport& report);
    AudioChunk readChunk(const std::filesystem::path& folder, const UUID& session);

    std::filesystem::path root_;
    FileManager& fm_;
};

}  // namespace meetingcore
