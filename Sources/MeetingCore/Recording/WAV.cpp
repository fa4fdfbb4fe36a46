#include "MeetingCore/Recording/WAV.h"

#include <bit>
#include <optional>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore {

namespace {

constexpr std::uint32_t formatBlockBytes = 16;
constexpr std::uint16_t pcm = 1;
constexpr std::uint16_t channels = 1;
constexpr std::uint32_t sampleRate = audio::sampleRate;
constexpr std::uint16_t blockAlignment = channels * WAV::bytesPerSample;
constexpr std::uint32_t bytesPerSecond = sampleRate * blockAlignment;
constexpr std::uint16_t bitsPerSample = 8 * WAV::bytesPerSample;

template <class T>
void append(std::string& out, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) out += static_cast<char>(value >> (8 * i));
}

std::optional<std::uint64_t> read(std::string_view bytes, std::size_t offset, std::size_t width) {
    if (bytes.size() < offset + width) return std::nullopt;
    std::uint64_t value = 0;
    for (std::size_t i = width; i-- > 0;) value = value << 8 | static_cast<std::uint8_t>(bytes[offset + i]);
    return value;
}

}  // namespace

std::string WAV::header(std::uint64_t sampleCount) {
    const auto dataBytes = static_cast<std::uint32_t>(bytesPerSample * sampleCount);
    std::string out;
    out.reserve(headerBytes);
    out += "RIFF";
    append(out, static_cast<std::uint32_t>(headerBytes - 8 + dataBytes));
    out += "WAVEfmt ";
    append(out, formatBlockBytes);
    append(out, pcm);
    append(out, channels);
    append(out, sampleRate);
    append(out, bytesPerSecond);
    append(out, blockAlignment);
    append(out, bitsPerSample);
    out += "data";
    append(out, dataBytes);
    return out;
}

std::string WAV::encode(std::span<const std::int16_t> samples) {
    if (samples.empty() || samples.size() > audio::maximumChunkSamples) {
        throw MeetingError::invalidData("Ein WAV-Abschnitt muss 1 bis 960.000 Samples enthalten.");
    }
    std::string out;
    out.reserve(fileBytes(samples.size()));
    out += header(samples.size());
    out += sampleBytes(samples);
    return out;
}

std::string_view WAV::sampleBytes(std::span<const std::int16_t> samples) {
    static_assert(std::endian::native == std::endian::little, "samples are stored as they lie in memory");
    return {reinterpret_cast<const char*>(samples.data()), samples.size_bytes()};
}

void WAV::validate(std::string_view bytes, std::int64_t expectedSampleCount) {
    validateHeader(bytes.substr(0, headerBytes), bytes.size(), expectedSampleCount);
}

void WAV::validateHeader(std::string_view firstBytes, std::uint64_t fileBytes,
                         std::int64_t expectedSampleCount) {
    const auto samples = static_cast<std::uint64_t>(expectedSampleCount);
    const auto is = [&](std::size_t offset, std::size_t width, std::uint64_t value) {
        return read(firstBytes, offset, width) == value;
    };
    const bool valid = fileBytes == WAV::fileBytes(samples) && firstBytes.size() == headerBytes &&
                       firstBytes.starts_with("RIFF") && firstBytes.substr(8, 8) == "WAVEfmt " &&
                       firstBytes.substr(36, 4) == "data" && is(4, 4, fileBytes - 8) &&
                       is(16, 4, formatBlockBytes) && is(20, 2, pcm) && is(22, 2, channels) &&
                       is(24, 4, sampleRate) && is(28, 4, bytesPerSecond) && is(32, 2, blockAlignment) &&
                       is(34, 2, bitsPerSample) && is(40, 4, bytesPerSample * samples) &&
                       expectedSampleCount >= 0;
    if (!valid) {
        throw MeetingError::invalidData("WAV-Datei ist beschädigt oder hat ein unerwartetes Format.");
    }
}

}  // namespace meetingcore
