#include "MeetingCore/Recording/PCMChunkAccumulator.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace meetingcore {

namespace {

double seconds(std::size_t samples) {
    return static_cast<double>(samples) / static_cast<double>(audio::sampleRate);
}

}  // namespace

std::optional<PCMChunkAccumulator> PCMChunkAccumulator::make(const UUID& sessionID, AudioSource source,
                                                             int secondsPerChunk, Commit commit) {
    constexpr auto longest = static_cast<int>(audio::maximumChunkSamples / audio::sampleRate);
    if (secondsPerChunk < 1 || secondsPerChunk > longest) return std::nullopt;
    const auto maximumSamples = static_cast<std::size_t>(secondsPerChunk) * audio::sampleRate;
    return PCMChunkAccumulator(sessionID, source, maximumSamples, std::move(commit));
}

PCMChunkAccumulator::PCMChunkAccumulator(const UUID& sessionID, AudioSource source, std::size_t maximumSamples,
                                         Commit commit)
    : sessionID_(sessionID), source_(source), maximumSamples_(maximumSamples), commit_(std::move(commit)) {
    buffer_.reserve(maximumSamples);
}

void PCMChunkAccumulator::append(std::span<const std::int16_t> samples, double startSeconds) {
    if (!std::isfinite(startSeconds) || startSeconds < 0) {
        throw MeetingError::invalidData("Ungültiger Audiotimestamp.");
    }
    if (samples.empty()) return;
    if (pendingChunk_) flush();
    if (expectedNext_ && std::abs(startSeconds - *expectedNext_) > audio::timingToleranceSeconds) {
        if (startSeconds < *expectedNext_) {
            throw MeetingError::invalidData("Audiobuffer überlappen oder kommen in falscher Reihenfolge.");
        }
        flush();
    }
    for (std::size_t taken = 0; taken < samples.size();) {
        if (!bufferStart_) bufferStart_ = startSeconds + seconds(taken);
        const auto piece =
            samples.subspan(taken, std::min(samples.size() - taken, maximumSamples_ - buffer_.size()));
        buffer_.insert(buffer_.end(), piece.begin(), piece.end());
        taken += piece.size();
        if (buffer_.size() == maximumSamples_) flush();
    }
    expectedNext_ = startSeconds + seconds(samples.size());
}

void PCMChunkAccumulator::flush() {
    if (buffer_.empty() || !bufferStart_) return;
    if (!pendingChunk_) pendingChunk_ = makeChunk();
    commit_(*pendingChunk_, buffer_);
    ++sequence_;
    buffer_.clear();
    bufferStart_.reset();
    pendingChunk_.reset();
}

void PCMChunkAccumulator::endSpan() {
    flush();
    expectedNext_.reset();
}

std::optional<double> PCMChunkAccumulator::bufferedEndSeconds() const {
    if (!bufferStart_) return std::nullopt;
    return *bufferStart_ + seconds(buffer_.size());
}

AudioChunk PCMChunkAccumulator::makeChunk() const {
    AudioChunk chunk;
    chunk.id = UUID::random();
    chunk.sessionID = sessionID_;
    chunk.source = source_;
    chunk.sequence = sequence_;
    chunk.startSeconds = *bufferStart_;
    chunk.sampleCount = static_cast<std::int64_t>(buffer_.size());
    return chunk;
}

}  // namespace meetingcore
