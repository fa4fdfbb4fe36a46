#include "Report.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include "MeetingCore/Platform/Text.h"

namespace meetingcore::demo {

namespace {

constexpr std::string_view bold = "\x1b[1m";
constexpr std::string_view dim = "\x1b[2m";
constexpr std::string_view yellow = "\x1b[33m";
constexpr std::string_view plain = "\x1b[0m";
constexpr std::size_t narrowest = 40;
constexpr std::size_t widest = 110;
constexpr std::size_t progressColumns = 46;

std::string blanks(std::size_t count) { return std::string(count, ' '); }

/// Takes the words of the segment off the front of what is left of a quote.
std::string_view taken(std::string_view& quote, std::string_view segmentText) {
    const auto spoken = text::trimmed(segmentText);
    if (!quote.starts_with(spoken)) return std::exchange(quote, {});  // the quote was cut here
    const auto part = quote.substr(0, spoken.size());
    quote = text::trimmed(quote.substr(spoken.size()));
    return part;
}

}  // namespace

Style Style::ofStandardOutput() {
    Style style;
    if (::isatty(STDOUT_FILENO) == 0) return style;
    style.coloured = std::getenv("NO_COLOR") == nullptr;
    winsize window{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0) {
        style.columns = std::clamp<std::size_t>(window.ws_col, narrowest, widest);
    }
    return style;
}

std::string clockTime(double seconds) {
    const auto total = static_cast<std::int64_t>(std::floor(seconds));
    std::ostringstream text;
    text << std::setfill('0');
    if (total >= 3600) text << total / 3600 << ':';
    text << std::setw(2) << total / 60 % 60 << ':' << std::setw(2) << total % 60;
    return text.str();
}

void Report::heading(std::string_view text) { out_ << '\n' << coloured(text, bold) << '\n' << std::flush; }

void Report::paragraph(std::string_view text) { wrapped("  ", text); }

void Report::notice(std::string_view text) { wrapped("  ! ", text, yellow); }

void Report::progress(double seconds, std::string_view line, std::string_view meaning) {
    std::ostringstream time;
    time << std::fixed << std::setprecision(1) << std::setw(6) << seconds << " s  ";
    auto clock = time.str();
    std::ranges::replace(clock, '.', ',');
    const auto width = text::characterCount(line);
    out_ << clock << line << blanks(width < progressColumns ? progressColumns - width : 2)
         << coloured(meaning, dim) << '\n'
         << std::flush;
}

void Report::summary(const EvidenceSummary& summary, const TranscriptDocument& document) {
    category("Überblick", summary.overview, document);
    category("Entscheidungen", summary.decisions, document);
    category("Aufgaben", summary.tasks, document);
    category("Offene Fragen", summary.openQuestions, document);
}

void Report::category(std::string_view name, const std::vector<EvidenceBullet>& points,
                      const TranscriptDocument& document) {
    heading(name);
    if (points.empty()) paragraph("keine");
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto& point = points[i];
        if (i > 0) out_ << '\n';
        wrapped("  " + std::to_string(i + 1) + ". ", point.text, bold);
        if (point.owner) wrapped("     ", "Verantwortlich: " + *point.owner);
        if (point.dueDate) wrapped("     ", "Termin: " + *point.dueDate);
        citation(point, document);
    }
}

/// The quote joins the cited segments in transcript order, so walking them gives each part its speaker and
/// time.
void Report::citation(const EvidenceBullet& point, const TranscriptDocument& document) {
    std::string_view rest = point.quote;
    for (const auto& segment : document.segments) {
        const auto& ids = point.sourceSegmentIDs;
        if (rest.empty() || std::ranges::find(ids, segment.id) == ids.end()) continue;
        const auto part = taken(rest, segment.text);
        if (part.empty()) continue;
        std::string line = "[" + clockTime(segment.startSeconds) + "] ";
        line.append(document.speakerLabel(segment)).append(": „").append(part).append("“");
        if (part.size() < text::trimmed(segment.text).size()) line += " …";
        wrapped("     ", line, dim);
    }
}

void Report::wrapped(std::string_view first, std::string_view text, std::string_view colour) {
    const auto indent = text::characterCount(first);
    std::string line(first);
    auto used = indent;
    const auto flush = [&] {
        out_ << line.substr(0, indent) << coloured(line.substr(indent), colour) << '\n';
        line = blanks(indent);
        used = indent;
    };
    for (const auto word : text::words(text)) {
        const auto length = text::characterCount(word);
        if (used > indent && used + 1 + length > style_.columns) flush();
        if (used > indent) {
            line += ' ';
            ++used;
        }
        line += word;
        used += length;
    }
    flush();
    out_ << std::flush;
}

std::string Report::coloured(std::string_view text, std::string_view colour) const {
    if (!style_.coloured || colour.empty()) return std::string(text);
    return std::string(colour).append(text).append(plain);
}

}  // namespace meetingcore::demo
