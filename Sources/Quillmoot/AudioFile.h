#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "AudioHeader.h"
#include "MeetingCore/Library/RecordingImport.h"

namespace meetingcore::quillmoot {

/// An audio file of any form that libsndfile reads, as 16 kHz mono samples: channels are averaged, other rates
/// converted by libsamplerate's band-limited interpolation, and what is too loud is limited. A file that has
/// the form already passes through bit by bit. Memory does not depend on the length.
class AudioFile : public SampleSource {
public:
    /// Opens the file once; what takes its name later is not read. Throws MeetingError: invalidData where it is
    /// no audio file, holds no sound or more than its header knows of, storage where it cannot be read.
    explicit AudioFile(std::filesystem::path file);
    AudioFile(const AudioFile&) = delete;
    AudioFile& operator=(const AudioFile&) = delete;
    ~AudioFile() override;

    /// Throws MeetingError (storage) where the file cannot be read on, which is no end.
    std::size_t read(std::span<std::int16_t> buffer) override;

    /// Length as the file's header gives it; 0 where it does not know.
    double seconds() const;

    /// Once all is read: whether the file breaks off before the end that its header announces, or is damaged.
    bool isCutOff() const;

    /// What tells this content from another one: size and digest of the whole file. Two recordings of the same
    /// length may well begin and end in the same silence.
    std::string description() const;

private:
    struct Bytes;
    struct Decoder;

    std::size_t decode(std::span<std::int16_t> buffer);
    void requireRead() const;
    void requireKnownToTheEnd() const;

    std::filesystem::path file_;
    std::unique_ptr<Bytes> bytes_;  ///< outlives the decoder
    AnnouncedSize announced_;
    std::unique_ptr<Decoder> decoder_;
};

}  // namespace meetingcore::quillmoot
