#include "Support/MarkedMeeting.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace meetingcore::testing {

namespace {

std::vector<std::vector<std::string>> table(const std::filesystem::path& file, std::size_t columns) {
    std::ifstream in(file);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::stringstream stream(line);
        auto& row = rows.emplace_back();
        for (std::string cell; std::getline(stream, cell, '\t');) row.push_back(cell);
        if (row.size() != columns) throw std::runtime_error(file.string() + ": " + line);
    }
    if (rows.empty()) throw std::runtime_error(file.string() + " is missing or empty");
    return rows;
}

std::vector<std::size_t> places(const std::string& numbers) {
    std::stringstream stream(numbers);
    std::vector<std::size_t> list;
    for (std::size_t number = 0; stream >> number;) list.push_back(number - 1);
    return list;
}

bool alike(const std::optional<std::string>& said, const std::string& marked) {
    return said && marked != "-" &&
           (said->find(marked) != std::string::npos || marked.find(*said) != std::string::npos);
}

}  // namespace

MarkedMeeting MarkedMeeting::load(const std::filesystem::path& folder) {
    MarkedMeeting meeting;
    meeting.name = folder.filename().string();
    std::map<std::string, std::string> speakers;
    DiarizationResult diarization{2, UUID::random(), UUID::random(), true, {}};
    for (const auto& row : table(folder / "transcript.tsv", 5)) {
        const auto source = row[2] == "microphone" ? AudioSource::microphone : AudioSource::meeting;
        const auto next = (row[2] == "microphone" ? "mic:" : "") + std::to_string(speakers.size() + 1);
        const auto& id = speakers.try_emplace(row[3], next).first->second;
        meeting.document.segments.push_back(
            {UUID::random(), std::stod(row[0]), std::stod(row[1]), source, id, row[4]});
    }
    for (const auto& [name, id] : speakers) meeting.document.edits.speakerNames[id] = name;
    meeting.document.edits.speakerGeneration = diarization.generation;
    meeting.document.rawSegments = meeting.document.segments;
    meeting.document.diarization = std::move(diarization);
    for (auto& row : table(folder / "marks.tsv", 6)) {
        const bool optional = row[0].ends_with('?');
        if (optional) row[0].pop_back();
        const auto kind = std::find(kindNames.begin(), kindNames.end(), row[0]);
        if (kind == kindNames.end()) throw std::runtime_error("unknown kind " + row[0]);
        meeting.marks.push_back({static_cast<Kind>(kind - kindNames.begin()), optional, places(row[1]),
                                 places(row[2]), row[3], row[4], row[5]});
    }
    return meeting;
}

void Agreement::add(const Agreement& other) {
    points += other.points;
    right += other.right;
    marks += other.marks;
    found += other.found;
    names += other.names;
    named += other.named;
    wrong.insert(wrong.end(), other.wrong.begin(), other.wrong.end());
    missed.insert(missed.end(), other.missed.begin(), other.missed.end());
}

namespace {

bool cites(const EvidenceBullet& point, const MarkedMeeting::Mark& mark, const MarkedMeeting& meeting) {
    return std::any_of(mark.places.begin(), mark.places.end(), [&](auto place) {
        return std::find(point.sourceSegmentIDs.begin(), point.sourceSegmentIDs.end(),
                         meeting.document.segments.at(place).id) != point.sourceSegmentIDs.end();
    });
}

/// Compares one mark with the points of its kind, and notes in `right` which of them cite it.
void compare(const MarkedMeeting::Mark& mark, const std::vector<EvidenceBullet>& points,
             const MarkedMeeting& meeting, Agreement& result, std::vector<bool>& right) {
    bool found = false, owner = false, due = false;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!cites(points[i], mark, meeting)) continue;
        found = right[i] = true;
        owner = owner || alike(points[i].owner, mark.owner);
        due = due || alike(points[i].dueDate, mark.due);
    }
    result.names += found ? static_cast<std::size_t>((mark.owner != "-") + (mark.due != "-")) : 0;
    result.named += static_cast<std::size_t>(owner + due);
    if (mark.optional) return;
    ++result.marks;
    result.found += found ? 1 : 0;
    if (!found) result.missed.push_back(meeting.name + ": " + mark.note);
}

}  // namespace

std::array<Agreement, 4> agreement(const MarkedMeeting& meeting, const EvidenceSummary& summary) {
    std::array<Agreement, 4> all;
    const std::array lists{&summary.decisions, &summary.tasks, &summary.openQuestions, &summary.overview};
    for (std::size_t kind = 0; kind < all.size(); ++kind) {
        auto& result = all[kind];
        const auto& points = *lists[kind];
        std::vector<bool> right(points.size());
        for (const auto& mark : meeting.marks) {
            if (mark.kind == kind) compare(mark, points, meeting, result, right);
        }
        result.points = points.size();
        for (std::size_t i = 0; i < right.size(); ++i) {
            result.right += right[i] ? 1 : 0;
            if (!right[i]) result.wrong.push_back(meeting.name + ": " + points[i].text);
        }
    }
    return all;
}

}  // namespace meetingcore::testing
