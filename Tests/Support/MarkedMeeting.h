#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "MeetingCore/Summary/EvidenceSummary.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::testing {

/// A meeting under Samples/Meetings, whose README.md describes the files and what the marks mean.
struct MarkedMeeting {
    enum Kind : std::uint8_t { decision, task, question, main };
    static constexpr std::array kindNames{"decision", "task", "question", "main"};

    struct Mark {
        Kind kind = decision;
        bool optional = false;             ///< neither missed when left out nor wrong when found
        std::vector<std::size_t> places;   ///< of the segments of which a point must cite one, from 0
        std::vector<std::size_t> support;  ///< places that may be cited with them
        std::string owner;                 ///< "-" where nobody says a name
        std::string due;
        std::string note;
    };

    std::string name;
    TranscriptDocument document;
    std::vector<Mark> marks;

    static constexpr std::array developed{"standup", "budgetrunde",  "kundengespraech", "vereinsvorstand",
                                          "station", "bauausschuss", "forschungsgruppe"};
    static constexpr std::array heldOut{"projektkrise", "betriebsrat", "mundart", "produktplanung", "agentur"};

    /// Reads a meeting. Throws std::runtime_error for a line that is not as described.
    static MarkedMeeting load(const std::filesystem::path& folder);
};

/// How well a summary finds the marks of one kind.
struct Agreement {
    std::size_t points = 0;
    std::size_t right = 0;  ///< points that cite the evidence of a mark
    std::size_t marks = 0;  ///< those that are not optional
    std::size_t found = 0;
    std::size_t names = 0;  ///< owners and due dates marked on found tasks
    std::size_t named = 0;  ///< of these, those that a point has: one wording contains the other
    std::vector<std::string> wrong, missed;  ///< in words, for a report

    double precision() const {
        return points == 0 ? 1 : static_cast<double>(right) / static_cast<double>(points);
    }
    double recall() const { return marks == 0 ? 1 : static_cast<double>(found) / static_cast<double>(marks); }
    void add(const Agreement& other);
};

/// One for each kind of mark.
std::array<Agreement, 4> agreement(const MarkedMeeting& meeting, const EvidenceSummary& summary);

}  // namespace meetingcore::testing
