#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "MeetingCore/Platform/MeetingError.h"

namespace meetingcore {

/// The one audio file format of the store: RIFF/WAVE with a canonical header of 44 bytes, 16 kHz, mono, signed
/// 16-bit little-endian PCM, nothing before, between or after. Reading is as strict as writing: a header that
/// differs in any field is refused.
class WAV {
public:
    static constexpr std::size_t headerBytes = 44;
    static constexpr std::size_t bytesPerSample = 2;

    /// The whole file for one chunk. Throws MeetingError (invalidData) unless there are 1 to 960,000 samples.
    static std::string encode(std::span<const std::int16_t> samples);

    /// The samples as they stand in a file, without copying them.
    static std::string_view sampleBytes(std::span<const std::int16_t> samples);

    /// The header for any number of samples whose file stays below the format's limit of 4 GiB.
    static std::string header(std::uint64_t sampleCount);

    /// Throws MeetingError (invalidData) unless the bytes are a file of exactly this many samples. The samples
    /// themselves may be anything.
    static void validate(std::string_view bytes, std::int64_t expectedSampleCount);

    /// The same judgement by a file's first bytes and its size, without its samples.
    static void validateHeader(std::string_view firstBytes, std::uint64_t fileBytes,
                               std::int64_t expectedSampleCount);

    static constexpr std::uint64_t fileBytes(std::uint64_t sampleCount) {
        return headerBytes + bytesPerSample * sampleCount;
    }
};

}  // namespace meetingcore
