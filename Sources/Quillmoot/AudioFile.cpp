#include "AudioFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <vector>

#include <samplerate.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "MeetingCore/Platform/Digest.h"
#include "MeetingCore/Platform/FileDescriptor.h"
#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Recording/Models.h"

namespace meetingcore::quillmoot {

namespace {

constexpr sf_count_t blockFrames = 8192;
constexpr std::size_t digestedBytes = 1U << 20U;  // at a time
constexpr int mostChannels = 64;

MeetingError unreadable(const std::filesystem::path& file, const std::string& reason) {
    return MeetingError::invalidData(quotedName(file) + " ist keine lesbare Audiodatei: " + reason);
}

/// Why libsndfile could not open the file. Its own words are English.
std::string openingFailure() {
    switch (sf_error(nullptr)) {
        case SF_ERR_UNRECOGNISED_FORMAT:
            return "das Format ist unbekannt; bitte in WAV, FLAC, Ogg oder MP3 umwandeln.";
        case SF_ERR_UNSUPPORTED_ENCODING:
            return "die Kodierung ist unbekannt; bitte in WAV, FLAC, Ogg oder MP3 umwandeln.";
        default:
            return "die Datei ist beschädigt.";
    }
}

/// How many bytes a sample has; 0 where that differs.
std::uint64_t bytesPerSample(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return 1;
        case SF_FORMAT_PCM_16:
            return 2;
        case SF_FORMAT_PCM_24:
            return 3;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
            return 4;
        case SF_FORMAT_DOUBLE:
            return 8;
        default:
            return 0;
    }
}

std::int16_t toSample(float value) {
    if (std::isnan(value)) return 0;
    constexpr float fullScale = 32768;
    return static_cast<std::int16_t>(std::lrint(std::clamp(value * fullScale, -fullScale, fullScale - 1)));
}

}  // namespace

/// The file, opened once: what is described is what is heard, whoever puts another one in its place meanwhile.
struct AudioFile::Bytes {
    FileDescriptor file;
    sf_count_t size = 0;
    sf_count_t position = 0;
    int error = 0;  ///< of a failed read, which libsndfile takes for the file's end

    std::size_t read(std::uint64_t offset, void* into, std::size_t count) {
        std::size_t filled = 0;
        while (filled < count) {
            const auto got = ::pread(file.get(), static_cast<char*>(into) + filled, count - filled,
                                     static_cast<off_t>(offset + filled));
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) error = errno;
            if (got <= 0) break;
            filled += static_cast<std::size_t>(got);
        }
        return filled;
    }

    std::string text(std::uint64_t offset, std::size_t count) {
        std::string bytes(count, '\0');
        bytes.resize(read(offset, bytes.data(), count));
        return bytes;
    }

    ByteReader reader() {
        return [this](std::uint64_t offset, std::size_t count) { return text(offset, count); };
    }

    static Bytes& of(void* data) { return *static_cast<Bytes*>(data); }

    /// The same for libsndfile.
    static SF_VIRTUAL_IO* calls() {
        static SF_VIRTUAL_IO calls{
            [](void* data) { return of(data).size; },
            [](sf_count_t offset, int whence, void* data) {
                auto& bytes = of(data);
                if (whence == SEEK_CUR) offset += bytes.position;
                if (whence == SEEK_END) offset += bytes.size;
                bytes.position = std::max<sf_count_t>(offset, 0);
                return bytes.position;
            },
            [](void* into, sf_count_t count, void* data) {
                auto& bytes = of(data);
                const auto got = static_cast<sf_count_t>(bytes.read(static_cast<std::uint64_t>(bytes.position),
                                                                    into, static_cast<std::size_t>(count)));
                bytes.position += got;
                return got;
            },
            nullptr, [](void* data) { return of(data).position; }};
        return &calls;
    }
};

struct AudioFile::Decoder {
    struct CloseFile {
        void operator()(SNDFILE* open) const { sf_close(open); }
    };
    struct CloseConverter {
        void operator()(SRC_STATE* state) const { src_delete(state); }
    };

    SF_INFO info{};
    std::unique_ptr<SNDFILE, CloseFile> file;
    std::unique_ptr<SRC_STATE, CloseConverter> converter;
    std::vector<float> frames;  ///< as read, interleaved
    std::vector<float> mono;    ///< averaged, to be converted
    sf_count_t framesRead = 0;
    std::size_t used = 0;  ///< of `mono`
    bool atEnd = false;

    /// Whether the samples can be taken as they are.
    bool isExact() const {
        return info.samplerate == audio::sampleRate && info.channels == 1 &&
               (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16;
    }

    /// Reads and averages the next block once the last one is used up.
    void refill() {
        if (atEnd || used < mono.size()) return;
        const auto count = sf_readf_float(file.get(), frames.data(), blockFrames);
        framesRead += count;
        atEnd = count < blockFrames;
        mono.resize(static_cast<std::size_t>(count));
        used = 0;
        const auto channels = static_cast<std::size_t>(info.channels);
        for (std::size_t i = 0; i < mono.size(); ++i) {
            float sum = 0;
            for (std::size_t c = 0; c < channels; ++c) sum += frames[i * channels + c];
            const auto mean = sum / static_cast<float>(channels);
            mono[i] = std::isfinite(mean) ? mean : 0;
        }
    }
};

AudioFile::AudioFile(std::filesystem::path file)
    : file_(std::move(file)), bytes_(std::make_unique<Bytes>()), decoder_(std::make_unique<Decoder>()) {
    auto& decoder = *decoder_;
    // Not waiting for the writer of a pipe; reading stops and starts again at the beginning, which no pipe can.
    bytes_->file = FileDescriptor::open(file_, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!bytes_->file || ::fstat(bytes_->file.get(), &status) != 0) {
        if (errno == ENOENT) throw MeetingError::storage(quotedName(file_) + " gibt es nicht.");
        bytes_->error = errno;
        requireRead();
    }
    if (!S_ISREG(status.st_mode)) {
        throw MeetingError::storage(quotedName(file_) + " ist keine gewöhnliche Datei.");
    }
    bytes_->size = status.st_size;
    announced_ = AnnouncedSize::read(bytes_->reader());
    const auto open = [&] {
        decoder.file.reset();  // reads from the same place
        decoder.info = {};
        bytes_->position = 0;
        decoder.file.reset(sf_open_virtual(Bytes::calls(), SFM_READ, &decoder.info, bytes_.get()));
        requireRead();
        if (decoder.file == nullptr) throw unreadable(file_, openingFailure());
    };
    open();
    const auto& info = decoder.info;
    if (info.channels < 1 || info.channels > mostChannels || info.samplerate < 1) {
        throw unreadable(file_, "ungültige Kanalzahl oder Abtastrate.");
    }
    requireKnownToTheEnd();
    // What the header promises may not be there.
    std::vector<float> frame(static_cast<std::size_t>(info.channels));
    const bool sounds = info.frames > 0 && sf_readf_float(decoder.file.get(), frame.data(), 1) == 1;
    requireRead();
    if (!sounds) throw MeetingError::invalidData(quotedName(file_) + " enthält keinen Ton.");
    open();  // at the beginning again, also where that cannot be sought
    if (decoder.isExact()) return;
    decoder.frames.resize(static_cast<std::size_t>(blockFrames * info.channels));
    if (info.samplerate == audio::sampleRate) return;
    int error = 0;
    decoder.converter.reset(src_new(SRC_SINC_MEDIUM_QUALITY, 1, &error));
    if (decoder.converter == nullptr ||
        src_is_valid_ratio(static_cast<double>(audio::sampleRate) / info.samplerate) == 0) {
        throw unreadable(file_, "die Abtastrate lässt sich nicht umrechnen.");
    }
}

AudioFile::~AudioFile() = default;

double AudioFile::seconds() const {
    if (decoder_->info.frames == SF_COUNT_MAX) return 0;
    return static_cast<double>(decoder_->info.frames) / static_cast<double>(decoder_->info.samplerate);
}

bool AudioFile::isCutOff() const {
    constexpr sf_count_t estimateSeconds = 3;  // the headers of some sound files promise a little too much
    const auto& decoder = *decoder_;
    const auto missing =
        decoder.info.frames - decoder.framesRead;  // much where the end, which tells, is missing
    const auto allowed =
        std::max<sf_count_t>(estimateSeconds * decoder.info.samplerate, decoder.info.frames / 100);
    const bool isShort = announced_.isMissedBy(static_cast<std::uint64_t>(bytes_->size));
    return sf_error(decoder.file.get()) != SF_ERR_NO_ERROR || missing > allowed || isShort;
}

/// So end up the sizes of recordings beyond 4 GiB, and of those whose recorder died: a part would pass for the
/// whole.
void AudioFile::requireKnownToTheEnd() const {
    const auto& info = decoder_->info;
    const auto heard = static_cast<std::uint64_t>(info.frames) * static_cast<std::uint64_t>(info.channels) *
                       bytesPerSample(info.format);
    if (!announced_.isExceededBy(static_cast<std::uint64_t>(bytes_->size), heard, bytes_->reader())) return;
    throw unreadable(file_,
                     "sie ist länger, als ihr Kopf angibt, sodass ein Teil fehlen würde; bitte neu "
                     "speichern, etwa als FLAC.");
}

void AudioFile::requireRead() const {
    if (bytes_->error == 0) return;
    throw MeetingError::storage(quotedName(file_) +
                                " konnte nicht gelesen werden: " + systemErrorText(bytes_->error));
}

std::size_t AudioFile::read(std::span<std::int16_t> buffer) {
    const auto count = decode(buffer);
    requireRead();
    return count;
}

std::size_t AudioFile::decode(std::span<std::int16_t> buffer) {
    auto& decoder = *decoder_;
    if (decoder.isExact()) {
        const auto count =
            sf_readf_short(decoder.file.get(), buffer.data(), static_cast<sf_count_t>(buffer.size()));
        decoder.framesRead += count;
        return static_cast<std::size_t>(count);
    }
    std::vector<float> converted(buffer.size());
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        decoder.refill();
        const auto left = decoder.mono.size() - decoder.used;
        if (decoder.converter == nullptr) {
            if (left == 0) break;
            const auto count = std::min(left, buffer.size() - filled);
            std::copy_n(decoder.mono.begin() + static_cast<std::ptrdiff_t>(decoder.used), count,
                        converted.begin() + static_cast<std::ptrdiff_t>(filled));
            decoder.used += count;
            filled += count;
            continue;
        }
        SRC_DATA data{};
        data.data_in = decoder.mono.data() + decoder.used;
        data.input_frames = static_cast<long>(left);
        data.data_out = converted.data() + filled;
        data.output_frames = static_cast<long>(buffer.size() - filled);
        data.end_of_input = decoder.atEnd ? 1 : 0;
        data.src_ratio = static_cast<double>(audio::sampleRate) / decoder.info.samplerate;
        if (src_process(decoder.converter.get(), &data) != 0)
            throw unreadable(file_, "die Abtastrate lässt sich nicht umrechnen.");
        decoder.used += static_cast<std::size_t>(data.input_frames_used);
        filled += static_cast<std::size_t>(data.output_frames_gen);
        if (decoder.atEnd && data.output_frames_gen == 0 && data.input_frames_used == 0) break;
    }
    std::transform(converted.begin(), converted.begin() + static_cast<std::ptrdiff_t>(filled), buffer.begin(),
                   toSample);
    return filled;
}

std::string AudioFile::description() const {
    SHA256 digest;
    std::uint64_t size = 0;
    for (;;) {
        const auto block = bytes_->text(size, digestedBytes);
        digest.update(block);
        size += block.size();
        if (block.size() < digestedBytes) break;
    }
    requireRead();
    return std::to_string(size) + " " + digest.hex();
}

}  // namespace meetingcore::quillmoot
