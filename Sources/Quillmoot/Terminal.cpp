#include "Terminal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/ioctl.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>
#include <unistd.h>

#include "MeetingCore/Platform/Text.h"

namespace meetingcore::quillmoot {

namespace {

constexpr std::size_t usualColumns = 80;
constexpr std::size_t narrowest = 20;
constexpr std::size_t widest = 110;  // longer lines are hard to read
constexpr std::string_view reset = "\x1b[0m";
constexpr std::string_view replacement = "\xEF\xBF\xBD";
constexpr std::string_view ellipsis = "…";

std::string_view codeOf(Ink ink) {
    switch (ink) {
        case Ink::bold:
            return "\x1b[1m";
        case Ink::dim:
            return "\x1b[2m";
        case Ink::red:
            return "\x1b[31m";
        case Ink::green:
            return "\x1b[32m";
        case Ink::yellow:
            return "\x1b[33m";
        case Ink::hit:
            return "\x1b[1;7m";
        case Ink::plain:
            break;
    }
    return {};
}

/// From the palette of 256 colours, readable on light and on dark ground.
int paletteIndex(SpeakerColorPreset colour) {
    switch (colour) {
        case SpeakerColorPreset::ocean:
            return 33;
        case SpeakerColorPreset::sage:
            return 71;
        case SpeakerColorPreset::violet:
            return 135;
        case SpeakerColorPreset::amber:
            return 172;
        case SpeakerColorPreset::rose:
            return 168;
        case SpeakerColorPreset::teal:
            return 37;
        case SpeakerColorPreset::indigo:
            return 99;
        case SpeakerColorPreset::clay:
            return 137;
        case SpeakerColorPreset::olive:
            return 142;
        case SpeakerColorPreset::slate:
            break;
    }
    return 102;
}

std::size_t windowColumns(int descriptor) {
    winsize window{};
    std::size_t columns = 0;
    if (::ioctl(descriptor, TIOCGWINSZ, &window) == 0) columns = window.ws_col;
    if (const char* const set = std::getenv("COLUMNS"); columns == 0 && set != nullptr) {
        std::from_chars(set, set + std::strlen(set), columns);
    }
    return std::clamp(columns == 0 ? usualColumns : columns, narrowest, widest);
}

bool isWide(UChar32 scalar) {
    const auto width = u_getIntPropertyValue(scalar, UCHAR_EAST_ASIAN_WIDTH);
    return width == U_EA_WIDE || width == U_EA_FULLWIDTH ||
           u_hasBinaryProperty(scalar, UCHAR_EMOJI_PRESENTATION);
}

/// Calls `use(character, columns)` for each character (grapheme cluster).
template <class Use>
void forEachCharacter(std::string_view whole, const Use& use) {
    std::size_t start = 0;
    for (const auto end : text::characterEnds(whole)) {
        const auto character = whole.substr(start, end - start);
        UChar32 scalar = 0;
        std::int32_t offset = 0;
        U8_NEXT(reinterpret_cast<const std::uint8_t*>(character.data()), offset,
                static_cast<std::int32_t>(character.size()), scalar);
        use(character, isWide(scalar) ? std::size_t{2} : std::size_t{1});
        start = end;
    }
}

}  // namespace

Style Style::of(int descriptor) {
    Style style;
    style.terminal = ::isatty(descriptor) != 0;
    if (!style.terminal) return style;
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const term = std::getenv("TERM");
    style.coloured =
        (noColour == nullptr || *noColour == '\0') && term != nullptr && std::strcmp(term, "dumb") != 0;
    style.columns = windowColumns(descriptor);
    return style;
}

std::size_t columnsOf(std::string_view whole) {
    std::size_t columns = 0;
    forEachCharacter(whole, [&](std::string_view, std::size_t wide) { columns += wide; });
    return columns;
}

std::string printable(std::string_view whole) {
    const auto sound = text::repaired(whole);
    std::string result;
    result.reserve(sound.size());
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(sound.data());
    const auto size = static_cast<std::int32_t>(sound.size());
    for (std::int32_t i = 0; i < size;) {
        const auto start = i;
        UChar32 scalar = 0;
        U8_NEXT(bytes, i, size, scalar);
        const auto kind = u_charType(scalar);
        // Marks that turn the direction of writing could make a line read as another one.
        const bool turns = (scalar >= 0x202A && scalar <= 0x202E) || (scalar >= 0x2066 && scalar <= 0x2069);
        if (scalar == '\n' || scalar == '\r' || scalar == '\t' || kind == U_LINE_SEPARATOR ||
            kind == U_PARAGRAPH_SEPARATOR) {
            result += ' ';
        } else if (kind == U_CONTROL_CHAR || turns) {
            result += replacement;
        } else {
            result.append(sound, static_cast<std::size_t>(start), static_cast<std::size_t>(i - start));
        }
    }
    return result;
}

std::string fitted(std::string_view whole, std::size_t columns) {
    if (columnsOf(whole) <= columns) return std::string(whole);
    std::string result;
    std::size_t used = 1;  // for the ellipsis
    bool full = false;
    forEachCharacter(whole, [&](std::string_view character, std::size_t wide) {
        full = full || used + wide > columns;
        if (full) return;
        used += wide;
        result += character;
    });
    return columns == 0 ? std::string() : result + std::string(ellipsis);
}

std::string Terminal::inked(std::string_view whole, Ink ink) const {
    const auto code = codeOf(ink);
    if (!style_.coloured || code.empty() || whole.empty()) return std::string(whole);
    return std::string(code).append(whole).append(reset);
}

std::string Terminal::speaker(std::string_view name, SpeakerColorPreset colour) const {
    if (!style_.coloured) return printable(name);
    return "\x1b[1;38;5;" + std::to_string(paletteIndex(colour)) + "m" + printable(name) + std::string(reset);
}

void Terminal::line(std::string_view whole, Ink ink) { out_ << inked(printable(whole), ink) << '\n'; }

void Terminal::heading(std::string_view whole) {
    out_ << '\n';
    line(whole, Ink::bold);
}

void Terminal::wrapped(std::string_view first, std::string_view whole, Ink ink, Ink firstInk) {
    std::vector<Word> words;
    const auto sound = printable(whole);
    for (const auto word : text::words(sound)) words.push_back({inked(word, ink), columnsOf(word)});
    fill(first, words, firstInk);
}

void Terminal::paragraphs(std::string_view whole) {
    for (std::size_t start = 0; start < whole.size();) {
        const auto end = std::min(whole.find('\n', start), whole.size());
        wrapped("", whole.substr(start, end - start));
        start = end + 1;
    }
}

void Terminal::content(std::string_view whole) {
    if (!style_.terminal) return raw(whole);
    for (std::size_t start = 0; start < whole.size();) {
        const auto end = std::min(whole.find('\n', start), whole.size());
        line(whole.substr(start, end - start));
        start = end + 1;
    }
}

void Terminal::highlighted(std::string_view first, std::string_view whole,
                           std::span<const text::CharacterRange> ranges) {
    std::vector<Word> words;
    Word word{"", 0};
    std::string run;  // characters of one attribute
    bool inHit = false;
    const auto endRun = [&] {
        word.text += inked(run, inHit ? Ink::hit : Ink::plain);
        run.clear();
    };
    const auto endWord = [&] {
        endRun();
        if (word.columns > 0) words.push_back(std::exchange(word, {"", 0}));
    };
    std::size_t position = 0;
    std::size_t start = 0;
    auto range = ranges.begin();
    for (const auto end : text::characterEnds(whole)) {
        const auto character = printable(whole.substr(start, end - start));
        while (range != ranges.end() && position >= range->end()) ++range;
        const bool hit = range != ranges.end() && position >= range->start;
        if (hit != inHit) {
            endRun();
            inHit = hit;
        }
        if (text::words(character).empty()) {
            endWord();
        } else {
            run += character;
            word.columns += columnsOf(character);
        }
        ++position;
        start = end;
    }
    endWord();
    fill(first, words);
}

void Terminal::fill(std::string_view first, const std::vector<Word>& words, Ink firstInk) {
    const auto limit = style_.columns;
    const auto whole = columnsOf(first);
    const auto indent = limit == 0 ? whole : std::min(whole, limit * 2 / 5);
    out_ << inked(first, firstInk);
    auto used = whole;
    bool begun = false;  // whether a word stands on this line
    for (const auto& word : words) {
        const auto next = used + (begun ? 1 : 0) + word.columns;
        // A word that is too long for any line stays behind what is there, to be copied as a whole.
        if (limit > 0 && next > limit && (begun || (used > indent && indent + word.columns <= limit))) {
            out_ << '\n' << std::string(indent, ' ');
            used = indent;
        } else if (begun) {
            out_ << ' ';
            ++used;
        }
        begun = true;
        out_ << word.text;
        used += word.columns;
    }
    out_ << '\n';
}

void Table::write(Terminal& terminal) const {
    constexpr std::size_t gap = 2;
    std::vector<std::size_t> widths(rows_.front().size(), 0);
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columnsOf(printable(row[i])));
        }
    }
    std::size_t before = 0;
    for (std::size_t i = 0; i + 1 < widths.size(); ++i) before += widths[i] + gap;
    const auto limit = terminal.style().columns;
    if (limit > 0 && before + narrowest / 2 > limit) return writeStacked(terminal);
    for (std::size_t r = 0; r < rows_.size(); ++r) {
        const auto ink = r == 0 ? Ink::dim : Ink::plain;
        std::string line;
        for (std::size_t i = 0; i + 1 < rows_[r].size(); ++i) {
            const auto cell = printable(rows_[r][i]);
            line += cell + std::string(widths[i] - columnsOf(cell) + gap, ' ');
        }
        const auto cell = printable(rows_[r].back());
        if (limit > 0 && last_ == Last::wrapped && before + columnsOf(cell) > limit) {
            terminal.wrapped(line, cell, ink, ink);
            continue;
        }
        line += limit == 0 ? cell : fitted(cell, limit - before);
        while (line.ends_with(' ')) line.pop_back();
        terminal.raw(terminal.inked(line, ink) + "\n");
    }
}

void Table::writeStacked(Terminal& terminal) const {
    for (std::size_t r = 1; r < rows_.size(); ++r) {
        if (r > 1) terminal.line();
        for (std::size_t i = 0; i < rows_[r].size(); ++i) {
            if (!rows_[r][i].empty())
                terminal.wrapped(rows_.front()[i] + " ", rows_[r][i], Ink::plain, Ink::dim);
        }
    }
}

void ProgressLine::show(double share, std::string_view whole) {
    constexpr std::size_t barColumns = 24;
    const auto filled = static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * barColumns));
    std::string bar;
    for (std::size_t i = 0; i < barColumns; ++i) bar += i < filled ? "█" : "░";
    const auto percent = std::to_string(std::lround(std::clamp(share, 0.0, 1.0) * 100)) + " %";
    const bool narrow = style_.columns < 2 * barColumns;
    write((narrow ? "" : bar + " ") + percent + "  " + printable(whole));
}

void ProgressLine::show(std::string_view whole) { write(printable(whole)); }

void ProgressLine::write(const std::string& line) {
    if (!style_.terminal) return;
    const auto fitting = fitted(line, style_.columns - 1);
    if (fitting == shown_) return;
    shown_ = fitting;
    out_ << "\r\x1b[K" << fitting << std::flush;
}

void ProgressLine::clear() {
    if (shown_.empty()) return;
    out_ << "\r\x1b[K" << std::flush;
    shown_.clear();
}

}  // namespace meetingcore::quillmoot
