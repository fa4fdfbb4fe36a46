#pragma once

#include <optional>
#include <string>
#include <vector>

#include "MeetingCore/Summary/RawSummary.h"
#include "MeetingCore/Summary/SummaryInstructions.h"
#include "SummaryWorker/MeetingRun.h"

namespace meetingcore {

/// Turns a meeting's transcript into a summary whose every point cites its segments.
///
/// A transcript too long for one prompt is summarized in parts, which are merged in passes until one result
/// remains. Checked partial results are kept in the meeting's folder "summary-parts" under a name that depends
/// on everything they were made from, so that a run that failed goes on where it stopped. "summary.json" is
/// written last, and only if the transcript is still the one that the run started with.
class SummaryTask {
public:
    explicit SummaryTask(const MeetingRun& run);

    /// Writes "summary.json" as SummaryRun does and reports "summaryFinished"; durable on return. Throws
    /// MeetingError.
    void run();

private:
    std::string prompt(const std::string& input) const;
    std::vector<std::string> parts() const;
    RawSummary summarize(const std::string& input);
    std::optional<RawSummary> cached(const std::filesystem::path& file) const;
    RawSummary accept(const std::string& answer, const std::filesystem::path& file) const;
    RawSummary merged(std::vector<RawSummary> results);
    std::vector<std::string> groups(const std::vector<RawSummary>& results) const;
    bool fits(const std::string& input) const;

    const MeetingRun& run_;
    SourceTable table_;
    SummaryInstructions instructions_;
    std::filesystem::path partsFolder_;
};

}  // namespace meetingcore
