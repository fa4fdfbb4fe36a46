// How much of the marked meetings a summary without a model finds. Prints totals; with --detail also what is
// wrong and what is missed, of the held-out meetings only with --detail-held-out, since no rule may be made for
// a single place in them. With --developed the held-out meetings are not touched at all, so that work on the
// rules is blind to them; with --fit it prints the rows of Signals.cpp, fitted anew to the other meetings.

#include <algorithm>
#include <cstdio>
#include <span>
#include <string_view>

#include "MeetingCore/Summary/ExtractiveSummarizer.h"
#include "Support/MarkedMeeting.h"
#include "WeightFit.h"

namespace meetingcore {
namespace {

using testing::Agreement;
using testing::MarkedMeeting;
using Totals = std::array<Agreement, 4>;

std::vector<MarkedMeeting> load(std::span<const char* const> names) {
    std::vector<MarkedMeeting> meetings;
    for (const auto* name : names) {
        meetings.push_back(
            MarkedMeeting::load(std::filesystem::path(MEETING_SAMPLES_FOLDER) / "Meetings" / name));
    }
    return meetings;
}

void add(Totals& totals, const MarkedMeeting& meeting, const WeightTable& weights) {
    const auto found = agreement(meeting, ExtractiveSummarizer(weights).summarize(meeting.document));
    for (std::size_t kind = 0; kind < totals.size(); ++kind) totals[kind].add(found[kind]);
}

Totals measured(std::span<const MarkedMeeting> meetings) {
    Totals totals;
    for (const auto& meeting : meetings) add(totals, meeting, fittedWeights());
    return totals;
}

/// Each meeting with weights that were fitted to the others only.
Totals leftOut(std::span<const MarkedMeeting> meetings) {
    Totals totals;
    for (std::size_t i = 0; i < meetings.size(); ++i) {
        std::vector<MarkedMeeting> others(meetings.begin(), meetings.end());
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
        add(totals, meetings[i], fitWeights(others));
    }
    return totals;
}

void report(const char* title, const Totals& total, bool detail) {
    std::printf("\n%s\n%-9s  %-21s  %s\n", title, "", "precision", "recall");
    for (std::size_t kind = 0; kind < total.size(); ++kind) {
        const auto& of = total[kind];
        std::printf("%-9s  %.2f (%3zu of %3zu)      %.2f (%3zu of %3zu)\n", MarkedMeeting::kindNames[kind],
                    of.precision(), of.right, of.points, of.recall(), of.found, of.marks);
    }
    const auto& tasks = total[MarkedMeeting::task];
    std::printf("owners and due dates of the tasks found: %zu of %zu\n", tasks.named, tasks.names);
    for (std::size_t kind = 0; detail && kind < total.size(); ++kind) {
        for (const auto& line : total[kind].wrong) {
            std::printf("  wrong %s, %s\n", MarkedMeeting::kindNames[kind], line.c_str());
        }
        for (const auto& line : total[kind].missed) {
            std::printf("  missed %s, %s\n", MarkedMeeting::kindNames[kind], line.c_str());
        }
    }
}

void printRows(const WeightTable& table) {
    for (const auto& [signal, weights] : table) {
        std::printf("    {\"%.*s\", {", static_cast<int>(signal.size()), signal.data());
        for (std::size_t i = 0; i < weights.size(); ++i) {
            std::printf("%s%.2fF", i == 0 ? "" : ", ", static_cast<double>(weights[i]));
        }
        std::printf("}},\n");
    }
}

int run(std::span<char*> given) {
    const auto has = [&](std::string_view option) {
        return std::find(given.begin(), given.end(), option) != given.end();
    };
    const auto developed = load(MarkedMeeting::developed);
    if (has("--fit")) {
        printRows(fitWeights(developed));
        return 0;
    }
    report("Meetings that the rules were written with", measured(developed), has("--detail"));
    report("The same, each with weights fitted to the others", leftOut(developed), has("--detail-left-out"));
    if (has("--developed")) return 0;
    report("Meetings held out", measured(load(MarkedMeeting::heldOut)), has("--detail-held-out"));
    return 0;
}

}  // namespace
}  // namespace meetingcore

int main(int argumentCount, char** arguments) {
    return meetingcore::run({arguments, static_cast<std::size_t>(argumentCount)});
}
