#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace meetingcore::text {

/// A Unicode scalar in UTF-8, or one invalid sequence.
struct Scalar {
    std::int32_t value;  ///< negative where the bytes are no UTF-8
    std::size_t end;     ///< the offset behind it
};

/// The scalar that starts at `offset`, which is inside the text.
Scalar scalarAt(std::string_view text, std::size_t offset);

/// The scalar that ends at `offset`, which is not 0; `end` is where it starts.
Scalar scalarBefore(std::string_view text, std::size_t offset);

void appendScalar(std::string& out, std::int32_t scalar);

}  // namespace meetingcore::text
