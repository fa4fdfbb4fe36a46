#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "MeetingCore/Summary/EvidenceSummary.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::demo {

/// How the report looks: coloured and as wide as the window on a terminal, plain elsewhere.
struct Style {
    bool coloured = false;
    std::size_t columns = 100;

    /// What fits our standard output. The environment variable NO_COLOR takes the colours away.
    static Style ofStandardOutput();
};

/// Writes the demo's German report. Everything is written through at once, so that it can be watched.
class Report {
public:
    Report(std::ostream& out, Style style) : out_(out), style_(style) {}

    void heading(std::string_view text);
    void paragraph(std::string_view text);

    /// What must not be overlooked.
    void notice(std::string_view text);

    /// A line of the worker as it came, `seconds` after its start, and what it means.
    void progress(double seconds, std::string_view line, std::string_view meaning);

    /// The points by category, under each the wording that it rests on, with speaker and time.
    void summary(const EvidenceSummary& summary, const TranscriptDocument& document);

private:
    void category(std::string_view name, const std::vector<EvidenceBullet>& points,
                  const TranscriptDocument& document);
    void citation(const EvidenceBullet& point, const TranscriptDocument& document);

    /// Breaks between words; the first line begins with `first`, the others with as many blanks.
    void wrapped(std::string_view first, std::string_view text, std::string_view colour = {});
    std::string coloured(std::string_view text, std::string_view colour) const;

    std::ostream& out_;
    Style style_;
};

/// A time in a recording as minutes and seconds, with hours from the first hour on.
std::string clockTime(double seconds);

}  // namespace meetingcore::demo
