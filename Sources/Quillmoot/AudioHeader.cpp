#include "AudioHeader.h"

#include <algorithm>
#include <bit>
#include <string_view>

namespace meetingcore::quillmoot {

namespace {

/// An unsigned number of so many bytes; 0 where the file ends before it does.
std::uint64_t numberAt(std::string_view header, std::size_t at, std::size_t bytes, std::endian order) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes && at + bytes <= header.size(); ++i) {
        const bool highestFirst = order == std::endian::big;
        const auto byte = static_cast<unsigned char>(header[highestFirst ? at + i : at + bytes - 1 - i]);
        number = number << 8U | byte;
    }
    return number;
}

/// Whoever writes to a pipe does not know the size, and names about the largest one that programs read, with
/// or without a sign. Recordings of hours lie between the two.
bool isUnknown32(std::uint64_t size) {
    constexpr std::uint64_t signedFrom = 0x7F000000;
    constexpr std::uint64_t signedTo = 0x80010000;
    constexpr std::uint64_t unsignedFrom = 0xFFFF0000;
    return (size >= signedFrom && size < signedTo) || size >= unsignedFrom;
}

/// No file has so many bytes; what writes to a pipe fills the field with ones.
bool isUnknown64(std::uint64_t size) { return size >> 63U != 0; }

/// In the first frame, after the flags: how many frames, where these are told, and then how many bytes.
AnnouncedSize sizeOfMP3(std::string_view frame, std::uint64_t start) {
    constexpr std::size_t lastPlace = 64;
    const auto tag = std::min(frame.find("Xing"), frame.find("Info"));
    if (!frame.starts_with('\xFF') || tag > lastPlace) return {};
    const auto flags = numberAt(frame, tag + 4, 4, std::endian::big);
    const auto size = numberAt(frame, (flags & 1U) != 0 ? tag + 12 : tag + 8, 4, std::endian::big);
    return {(flags & 2U) != 0 && size > 0 ? start + size : 0, false};
}

}  // namespace

AnnouncedSize AnnouncedSize::read(const ByteReader& file) {
    using enum std::endian;
    constexpr std::size_t headerBytes = 4096;
    const auto header = file(0, headerBytes);
    const auto size32 = [&](std::size_t at, std::endian order, std::uint64_t before) {
        const auto size = numberAt(header, at, 4, order);
        return AnnouncedSize{isUnknown32(size) ? 0 : size + before, true};
    };
    const auto size64 = [&](std::size_t at, std::uint64_t before, bool ends) {
        const auto size = numberAt(header, at, 8, little);
        return AnnouncedSize{isUnknown64(size) ? 0 : size + before, ends};
    };
    if (header.starts_with("RIFF")) return size32(4, little, 8);
    if (header.starts_with("RIFX") || header.starts_with("FORM")) return size32(4, big, 8);
    if (header.starts_with(".snd")) return size32(8, big, numberAt(header, 4, 4, big));
    if (header.starts_with("dns.")) return size32(8, little, numberAt(header, 4, 4, little));
    if (header.starts_with("RF64")) return size64(20, 8, true);
    if (header.starts_with("riff\x2E\x91\xCF\x11")) return size64(16, 0, false);
    if (!header.starts_with("ID3")) return sizeOfMP3(header, 0);
    constexpr std::size_t tagHeaderBytes = 10;
    std::uint64_t start = 0;
    for (std::size_t i = 6; i < tagHeaderBytes; ++i) start = start << 7U | numberAt(header, i, 1, big);
    start += tagHeaderBytes;
    return sizeOfMP3(file(start, headerBytes), start);
}

bool AnnouncedSize::isMissedBy(std::uint64_t fileBytes) const {
    // Some count the eight bytes before what the size is of, and a padding byte is often left out.
    constexpr std::uint64_t uncertainBytes = 8;
    return bytes > fileBytes + uncertainBytes;
}

bool AnnouncedSize::isExceededBy(std::uint64_t fileBytes, std::uint64_t heardBytes,
                                 const ByteReader& file) const {
    constexpr std::uint64_t otherChunks = 65'536;
    const auto known = std::max(bytes, heardBytes);
    if (!endsTheSound || known == 0 || fileBytes <= known || fileBytes - known <= otherChunks) return false;
    constexpr std::string_view tag = "ID3";  // some programs put one behind it all, with pictures
    return file(bytes, tag.size()) != tag;
}

}  // namespace meetingcore::quillmoot
