#include "MeetingCore/Platform/UTF8.h"

#include <algorithm>

#include <unicode/utf8.h>

namespace meetingcore::text {

// ICU's UTF-8 macros narrow integers on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"

Scalar scalarAt(std::string_view text, std::size_t offset) {
    const auto lead = static_cast<unsigned char>(text[offset]);
    if (lead < 0x80) return {lead, offset + 1};
    // ICU's macros count in 32 bits; four bytes are all that one scalar needs.
    const auto length = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - offset, 4));
    std::int32_t i = 0;
    UChar32 value = 0;
    U8_NEXT(text.data() + offset, i, length, value);
    return {value, offset + static_cast<std::size_t>(i)};
}

Scalar scalarBefore(std::string_view text, std::size_t offset) {
    const auto length = static_cast<std::int32_t>(std::min<std::size_t>(offset, 4));
    const auto start = offset - static_cast<std::size_t>(length);
    std::int32_t i = length;
    UChar32 value = 0;
    U8_PREV(text.data() + start, 0, i, value);
    return {value, start + static_cast<std::size_t>(i)};
}

void appendScalar(std::string& out, std::int32_t scalar) {
    char buffer[U8_MAX_LENGTH];
    std::int32_t length = 0;
    U8_APPEND_UNSAFE(buffer, length, scalar);
    out.append(buffer, static_cast<std::size_t>(length));
}

#pragma GCC diagnostic pop

}  // namespace meetingcore::text
