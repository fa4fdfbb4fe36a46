#pragma once

#include <cstddef>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Presentation/TranscriptPresentation.h"

namespace meetingcore::quillmoot {

/// Text attributes as terminals know them (ECMA-48, SGR).
enum class Ink { plain, bold, dim, red, green, yellow, hit };

/// How one of our output streams looks: coloured and broken to the window on a terminal, plain lines of any
/// length elsewhere.
struct Style {
    bool terminal = false;
    bool coloured = false;    ///< the environment variables NO_COLOR and TERM=dumb take the colours away
    std::size_t columns = 0;  ///< 0: lines are not broken

    static Style of(int descriptor);
};

/// The columns that a text takes on a terminal: East Asian wide characters and emoji take two.
std::size_t columnsOf(std::string_view whole);

/// The text without anything that a terminal would act on: control characters become U+FFFD, line breaks and
/// tabs blanks.
std::string printable(std::string_view whole);

/// Cut to so many columns, with an ellipsis where something is missing.
std::string fitted(std::string_view whole, std::size_t columns);

/// Writes for a person to read. Everything that comes from a library passes through `printable`.
class Terminal {
public:
    Terminal(std::ostream& out, Style style) : out_(out), style_(style) {}

    const Style& style() const { return style_; }

    void line(std::string_view whole = {}, Ink ink = Ink::plain);
    void heading(std::string_view whole);

    /// A paragraph, broken between words; its first line begins with `first`, the others with as many blanks,
    /// but never more than two fifths of the window.
    void wrapped(std::string_view first, std::string_view whole, Ink ink = Ink::plain,
                 Ink firstInk = Ink::plain);

    /// Each line of the text as a paragraph of its own.
    void paragraphs(std::string_view whole);

    /// The same with some characters of the text set off.
    void highlighted(std::string_view first, std::string_view whole,
                     std::span<const text::CharacterRange> ranges);

    /// A name in a speaker's colour.
    std::string speaker(std::string_view name, SpeakerColorPreset colour) const;

    std::string inked(std::string_view whole, Ink ink) const;

    /// Writes bytes as they are, which must be printable already.
    void raw(std::string_view text) { out_ << text; }

    /// Writes bytes as they are into a file or a pipe, and each line printable to a terminal.
    void content(std::string_view whole);

private:
    struct Word {
        std::string text;  ///< with its attributes
        std::size_t columns;
    };

    void fill(std::string_view first, const std::vector<Word>& words, Ink firstInk = Ink::plain);

    std::ostream& out_;
    Style style_;
};

/// Lines of cells that stand below each other; in a window too narrow for that, each row as a paragraph with
/// the headings in front of the cells.
class Table {
public:
    /// What becomes of a cell of the last column for which the window is too narrow.
    enum class Last { wrapped, cut };

    /// One heading per column.
    explicit Table(std::vector<std::string> headings, Last last = Last::wrapped)
        : rows_{std::move(headings)}, last_(last) {}

    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    void write(Terminal& terminal) const;

private:
    void writeStacked(Terminal& terminal) const;

    std::vector<std::vector<std::string>> rows_;
    Last last_;
};

/// One line that is written over and over on a terminal, and not at all elsewhere.
class ProgressLine {
public:
    ProgressLine(std::ostream& out, Style style) : out_(out), style_(style) {}
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// A bar for a share from 0 to 1 with a text behind it.
    void show(double share, std::string_view whole);

    /// A text alone.
    void show(std::string_view whole);

    void clear();

private:
    void write(const std::string& line);

    std::ostream& out_;
    Style style_;
    std::string shown_;
};

}  // namespace meetingcore::quillmoot
