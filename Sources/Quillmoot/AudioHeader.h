#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace meetingcore::quillmoot {

/// So many bytes of a file from an offset on, fewer where the file ends.
using ByteReader = std::function<std::string(std::uint64_t offset, std::size_t count)>;

/// How long an audio file is, by its header. libsndfile takes such files for whole although they are shorter or
/// longer, so that a part of a recording would pass for all of it.
///
/// Only what the header says of the file as a whole is read, from its first 4096 bytes (of an MP3 file with an
/// ID3 tag, the first ones behind that): the size field of RIFF, RIFX, RF64, W64, AIFF and AU, and the number
/// of bytes in the `Xing` or `Info` tag of MP3. Any bytes may be given; those of other formats announce
/// nothing.
struct AnnouncedSize {
    /// Size of the whole file; 0 where the header does not tell. A size that the header gives as 0, as a
    /// recorder that died leaves it, is taken at its word: then the file ends behind its first few bytes.
    std::uint64_t bytes = 0;
    /// Whether libsndfile leaves alone what lies behind the size of the sound that the header gives. In W64 and
    /// MP3 it reads on to the end of the file.
    bool endsTheSound = false;

    /// Reads the header. The reader is asked at most twice, and its exceptions come through.
    static AnnouncedSize read(const ByteReader& file);

    /// Whether a file of this size breaks off before the announced end.
    bool isMissedBy(std::uint64_t fileBytes) const;

    /// Whether a file of this size goes on behind all that is known of it. `heardBytes` is the size of the
    /// samples that libsndfile found in it, 0 where it is not known: of a file whose size field is wrong they
    /// are the better measure.
    bool isExceededBy(std::uint64_t fileBytes, std::uint64_t heardBytes, const ByteReader& file) const;
};

}  // namespace meetingcore::quillmoot
