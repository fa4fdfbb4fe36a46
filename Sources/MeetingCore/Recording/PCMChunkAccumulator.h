#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

/// Turns the stream of timestamped 16 kHz mono buffers of one track into chunks. A chunk never spans missing
/// audio: a gap closes it early. A chunk whose commit failed is kept, samples and identifier, and is offered
/// again before anything else, so that a store which treats an identical repeat as success never doubles it.
///
/// Holds at most one chunk of samples, allocated when it is made; `append` allocates nothing itself. Not
/// thread-safe: one capture queue drives it.
class PCMChunkAccumulator {
public:
    /// Receives each finished chunk with its samples, which are valid during the call only. An exception means
    /// that the chunk is not stored.
    using Commit = std::function<void(const AudioChunk&, std::span<const std::int16_t>)>;

    /// Nothing unless the chunks are to be 1 to 60 seconds long.
    static std::optional<PCMChunkAccumulator> make(const UUID& sessionID, AudioSource source,
                                                   int secondsPerChunk, Commit commit);

    /// Takes the samples of one capture buffer that began `startSeconds` after the start of the recording. Up
    /// to 0.05 s beside the end of the previous buffer counts as continuous; later closes the chunk.
    ///
    /// Throws MeetingError (invalidData) for a time that is negative, not finite or more than 0.05 s before
    /// the end of the previous buffer; nothing is taken then. A commit's failure is passed on unchanged. It
    /// leaves untaken what would have followed the failed chunk: `bufferedEndSeconds` tells where to go on.
    void append(std::span<const std::int16_t> samples, double startSeconds);

    /// Commits what is buffered, if anything. After a failure the next call offers the same chunk again.
    void flush();

    /// Flushes; the next buffer may then start anywhere. For a pause or the end of the track.
    void endSpan();

    /// Where the buffered samples begin and end; nothing while none are buffered.
    std::optional<double> bufferedStartSeconds() const { return bufferStart_; }
    std::optional<double> bufferedEndSeconds() const;

private:
    PCMChunkAccumulator(const UUID& sessionID, AudioSource source, std::size_t maximumSamples, Commit commit);

    AudioChunk makeChunk() const;

    UUID sessionID_;
    AudioSource source_;
    std::size_t maximumSamples_;
    Commit commit_;
    std::vector<std::int16_t> buffer_;
    std::optional<double> bufferStart_;
    std::optional<double> expectedNext_;
    std::int64_t sequence_ = 0;
    std::optional<AudioChunk> pendingChunk_;  // offered to commit, not yet stored
};

}  // namespace meetingcore
