#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <simdjson.h>

#include "MeetingCore/Platform/JSON.h"

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// What another reader, which builds the whole tree, says about the same text.
bool isValidAsTree(std::string_view text) {
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    simdjson::dom::parser parser;
    const simdjson::padded_string padded(text);
    return parser.parse(padded).error() == simdjson::SUCCESS;
}

/// The tree holds integers of up to 64 bits, JSON any.
bool hasLongInteger(std::string_view text) {
    std::size_t digits = 0;
    return std::any_of(text.begin(), text.end(), [&](char c) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        return digits >= 19;
    });
}

/// Where we are stricter on purpose: halves of surrogate pairs, and nesting beyond 512.
bool mayDiffer(std::string_view text) {
    const auto brackets = std::count_if(text.begin(), text.end(), [](char c) { return c == '[' || c == '{'; });
    return brackets > 512 || text.find("\\u") != std::string_view::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const bool valid = meetingcore::json::isValid(text);
    const bool validAsTree = isValidAsTree(text);
    if (valid && !validAsTree && !hasLongInteger(text)) std::abort();
    if (!valid && validAsTree && !mayDiffer(text)) std::abort();
    return 0;
}
