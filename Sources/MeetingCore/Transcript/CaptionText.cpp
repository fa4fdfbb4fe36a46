#include "MeetingCore/Transcript/CaptionText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/UTF8.h"

namespace meetingcore::CaptionText {

namespace {

/// Longer ones are no tags; keeps the search for their ends short.
constexpr std::size_t longestTag = 1000;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

/// A number of `minimum` to `maximum` digits that the text begins with, which it then begins behind.
std::optional<int> takeNumber(std::string_view& text, std::size_t minimum, std::size_t maximum) {
    std::size_t count = 0;
    int value = 0;
    while (count < text.size() && isDigit(text[count])) {
        if (++count > maximum) return std::nullopt;
        value = value * 10 + (text[count - 1] - '0');
    }
    if (count < minimum) return std::nullopt;
    text.remove_prefix(count);
    return value;
}

bool take(std::string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    return true;
}

/// The fraction behind the mark, one to three digits, in seconds.
std::optional<double> takeFraction(std::string_view& text) {
    const auto before = text.size();
    const auto value = takeNumber(text, 1, 3);
    if (!value) return std::nullopt;
    constexpr std::array<double, 4> parts{1, 10, 100, 1000};
    return *value / parts[before - text.size()];
}

std::optional<std::int32_t> numericReference(std::string_view body) {
    const bool hexadecimal = body.starts_with('x') || body.starts_with('X');
    if (hexadecimal) body.remove_prefix(1);
    std::int32_t value = 0;
    const auto* const last = body.data() + body.size();
    const auto [end, error] = std::from_chars(body.data(), last, value, hexadecimal ? 16 : 10);
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (error != std::errc{} || end != last || value <= 0 || value > 0x10FFFF || surrogate) return std::nullopt;
    return value;
}

/// The character that a reference stands for; `body` is what stands between & and ;.
std::optional<std::int32_t> referenced(std::string_view body) {
    constexpr std::array<std::pair<std::string_view, std::int32_t>, 8> named{{{"amp", '&'},
                                                                              {"lt", '<'},
                                                                              {"gt", '>'},
                                                                              {"quot", '"'},
                                                                              {"apos", '\''},
                                                                              {"nbsp", 0xA0},
                                                                              {"lrm", 0x200E},
                                                                              {"rlm", 0x200F}}};
    if (body.starts_with('#')) return numericReference(body.substr(1));
    const auto* const found =
        std::find_if(named.begin(), named.end(), [&](const auto& entry) { return entry.first == body; });
    return found == named.end() ? std::nullopt : std::optional(found->second);
}

std::string withoutReferences(std::string_view text) {
    constexpr std::size_t longestReference = 10;
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '&') {
            const auto end = text.substr(i, longestReference).find(';');
            const auto scalar =
                end == std::string_view::npos ? std::nullopt : referenced(text.substr(i + 1, end - 1));
            if (scalar) {
                text::appendScalar(out, *scalar);
                i += end;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

/// What stands between < and > where the text begins with a tag.
template <class IsTag>
std::optional<std::string_view> tagAt(std::string_view text, const IsTag& isTag) {
    if (!text.starts_with('<')) return std::nullopt;
    const auto end = text.substr(0, longestTag).find('>');
    if (end == std::string_view::npos) return std::nullopt;
    const auto body = text.substr(1, end - 1);
    return isTag(body) ? std::optional(body) : std::nullopt;
}

bool isVTTTag(std::string_view body) {
    if (body.starts_with('/')) body.remove_prefix(1);
    if (body.empty() || body.front() == '.') return true;  // a tag without name, perhaps with classes
    return isLetter(body.front()) || seconds(body).has_value();
}

bool isSubRipTag(std::string_view body) {
    if (body.starts_with('/')) body.remove_prefix(1);
    constexpr std::string_view longest = "font";
    const auto name = text::lowercased(body.substr(0, std::min(body.find_first_of(" \t"), longest.size() + 1)));
    return name == "i" || name == "b" || name == "u" || name == "s" || name == "font";
}

/// Whether the tag is `name`, with classes or an annotation or without.
bool isNamed(std::string_view body, std::string_view name) {
    return body.starts_with(name) && (body.size() == name.size() || !isLetter(body[name.size()]));
}

/// Cuts a cue at its voices.
class Pieces {
public:
    void append(char c) { text_ += c; }

    void begin(std::string speaker) {
        close();
        if (!speaker.empty()) speaker_ = std::move(speaker);
    }

    void close() {
        auto text = singleLine(withoutReferences(text_));
        if (!text.empty()) pieces_.push_back({speaker_, std::move(text)});
        text_.clear();
        speaker_.reset();
    }

    std::vector<Piece> take() {
        close();
        return std::move(pieces_);
    }

private:
    std::optional<std::string> speaker_;
    std::string text_;
    std::vector<Piece> pieces_;
};

}  // namespace

std::string singleLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (const auto word : text::words(text)) {
        if (!line.empty()) line += ' ';
        line += word;
    }
    return std::string(text::trimmed(line));
}

std::optional<double> seconds(std::string_view text) {
    auto first = takeNumber(text, 1, 5);
    if (!first || !take(text, ':')) return std::nullopt;
    auto second = takeNumber(text, 2, 2);
    if (!second) return std::nullopt;
    int hours = 0;
    if (take(text, ':')) {
        hours = *first;
        first = second;
        second = takeNumber(text, 2, 2);
    }
    if (!second || *first > 59 || *second > 59) return std::nullopt;
    double fraction = 0;
    if (take(text, '.') || take(text, ',')) {
        const auto digits = takeFraction(text);
        if (!digits) return std::nullopt;
        fraction = *digits;
    }
    if (!text.empty()) return std::nullopt;
    return hours * 3600 + *first * 60 + *second + fraction;
}

std::vector<Piece> webVTT(std::string_view text) {
    Pieces pieces;
    while (!text.empty()) {
        const auto tag = tagAt(text, isVTTTag);
        if (!tag) {
            pieces.append(text.front());
            text.remove_prefix(1);
            continue;
        }
        text.remove_prefix(tag->size() + 2);
        if (isNamed(*tag, "/v")) pieces.close();
        if (!isNamed(*tag, "v")) continue;
        const auto name = tag->find_first_of(" \t\n");
        pieces.begin(name == std::string_view::npos ? std::string()
                                                    : singleLine(withoutReferences(tag->substr(name))));
    }
    return pieces.take();
}

std::string subRip(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto tag = tagAt(text, isSubRipTag);
        const auto overrideEnd =
            text.starts_with("{\\") ? text.substr(0, longestTag).find('}') : std::string_view::npos;
        if (tag) {
            text.remove_prefix(tag->size() + 2);
        } else if (overrideEnd != std::string_view::npos) {
            text.remove_prefix(overrideEnd + 1);
        } else {
            out += text.front();
            text.remove_prefix(1);
        }
    }
    return singleLine(out);
}

std::optional<std::string_view> namePrefix(std::string_view text) {
    constexpr std::size_t longestName = 100;
    constexpr std::size_t mostWords = 6;
    const auto end = text.substr(0, longestName).find(": ");
    if (end == std::string_view::npos || end == 0) return std::nullopt;
    const auto name = text.substr(0, end);
    if (name.find_first_of(":!?;\"<>") != std::string_view::npos) return std::nullopt;
    if (text::words(name).size() > mostWords) return std::nullopt;
    return name;
}

}  // namespace meetingcore::CaptionText
