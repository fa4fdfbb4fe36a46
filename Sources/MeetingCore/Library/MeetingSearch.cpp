#include "MeetingCore/Library/MeetingSearch.h"

#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::MeetingSearch {

std::vector<Problem> run(std::string_view query, const LibrarySnapshot& library,
                         const std::filesystem::path& root, SQLiteJobStore& database,
                         const std::function<void(const Hit&)>& report) {
    const LiveTextSearch search(query);
    if (search.terms().empty()) throw MeetingError::invalidData("Kein Suchwort angegeben.");
    std::vector<Problem> problems;
    const auto reportIfFound = [&](Hit hit) {
        const text::FoldedText folded(hit.text);
        if (!search.matches(folded)) return;
        hit.ranges = LiveTextSearch::merged(search.ranges(folded));
        report(hit);
    };
    const auto jobs = database.jobsWithResults();
    for (const auto& meeting : library.meetings) {
        reportIfFound({meeting, Place::title, meeting.title, {}});
        reportIfFound({meeting, Place::notes, meeting.notes, {}});
        try {
            const auto found = jobs.find(meeting.id);
            if (found == jobs.end()) continue;
            const auto document = TranscriptStorage::load(meeting.id, root, found->second, database);
            for (std::size_t i = 0; i < document.segments.size(); ++i) {
                const auto& segment = document.segments[i];
                if (!search.matches(segment.text)) continue;
                const auto label = document.speakerLabel(segment);
                reportIfFound({meeting,
                               Place::transcript,
                               segment.text,
                               {},
                               label,
                               segment.startSeconds,
                               segment.id,
                               i + 1});
            }
        } catch (const MeetingError& error) {
            problems.push_back({meeting, error});
        }
    }
    return problems;
}

}  // namespace meetingcore::MeetingSearch
