#pragma once

#include <cstdint>
#include <span>

#include "MeetingCore/Platform/FileManager.h"
#include "MeetingCore/Recording/DurableChunkStore.h"

namespace meetingcore {

/// Chunks of one track as one WAV file that begins at a given time of the recording: what no chunk covers is
/// silence, and where chunks overlap, the earlier one counts.
class JoinedAudio {
public:
    /// The chunks ascend by start, and none starts before `startSeconds`. They must outlive the object.
    JoinedAudio(std::span<const AudioChunk> chunks, double startSeconds);

    std::uint64_t sampleCount() const { return sampleCount_; }

    /// Writes the whole file in pieces; flushes nothing. Throws MeetingError where a chunk's file in the store
    /// is not what its record says.
    void write(FileWriter& file, const DurableChunkStore& store, FileManager& files) const;

private:
    std::uint64_t firstSample(const AudioChunk& chunk) const;

    std::span<const AudioChunk> chunks_;
    double startSeconds_;
    std::uint64_t sampleCount_ = 0;
};

}  // namespace meetingcore
