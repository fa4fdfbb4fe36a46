#include "MeetingCore/Recording/JoinedAudio.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "MeetingCore/Recording/WAV.h"

namespace meetingcore {

namespace {

constexpr std::size_t pieceBytes = 262'144;  // stays in the processor's cache between reading and writing

std::int64_t sampleAt(double seconds) { return std::llround(seconds * audio::sampleRate); }

void writeSilence(FileWriter& file, std::uint64_t samples) {
    static constexpr std::array<char, pieceBytes> silence{};
    for (auto left = samples * WAV::bytesPerSample; left > 0;) {
        const auto count = std::min<std::uint64_t>(left, silence.size());
        file.write({silence.data(), count});
        left -= count;
    }
}

/// All samples of a chunk's file but the first `skipped`.
void copySamples(FileWriter& file, const std::filesystem::path& audio, std::int64_t sampleCount,
                 std::uint64_t skipped, FileManager& files) {
    const auto status = files.status(audio);
    WAV::validateHeader(files.read(audio, 0, WAV::headerBytes), status ? status->size : 0, sampleCount);
    const auto end = WAV::fileBytes(static_cast<std::uint64_t>(sampleCount));
    for (auto offset = WAV::fileBytes(skipped); offset < end;) {
        const auto bytes = files.read(audio, offset, std::min<std::uint64_t>(end - offset, pieceBytes));
        if (bytes.empty()) throw MeetingError::storage(quotedName(audio) + " ist zu kurz.");
        file.write(bytes);
        offset += bytes.size();
    }
}

}  // namespace

JoinedAudio::JoinedAudio(std::span<const AudioChunk> chunks, double startSeconds)
    : chunks_(chunks), startSeconds_(startSeconds) {
    for (const auto& chunk : chunks) {
        sampleCount_ =
            std::max(sampleCount_, firstSample(chunk) + static_cast<std::uint64_t>(chunk.sampleCount));
    }
}

std::uint64_t JoinedAudio::firstSample(const AudioChunk& chunk) const {
    return static_cast<std::uint64_t>(sampleAt(chunk.startSeconds) - sampleAt(startSeconds_));
}

void JoinedAudio::write(FileWriter& file, const DurableChunkStore& store, FileManager& files) const {
    file.write(WAV::header(sampleCount_));
    std::uint64_t written = 0;
    for (const auto& chunk : chunks_) {
        const auto start = firstSample(chunk);
        const auto end = start + static_cast<std::uint64_t>(chunk.sampleCount);
        if (start > written) writeSilence(file, start - written);
        if (end > std::max(start, written)) {
            copySamples(file, store.chunkDirectory(chunk) / "audio.wav", chunk.sampleCount,
                        written > start ? written - start : 0, files);
            written = end;
        }
    }
}

}  // namespace meetingcore
