// How much of the marked meetings a summary without a model finds. Prints totals; with --detail also what is
// wrong and what is missed, of the held-out meetings only with --detail-held-out, since no rule may be made for
// a single place in them.

#include <algorithm>
#include <cstdio>
#include <span>
#include <string_view>

#include "MeetingCore/Summary/ExtractiveSummarizer.h"
#include "Support/MarkedMeeting.h"

namespace {

using namespace meetingcore;
using testing::Agreement;
using testing::MarkedMeeting;

void report(const char* title, std::span<const char* const> names, bool detail) {
    std::array<Agreement, 4> total;
    for (const auto* name : names) {
        const auto meeting =
            MarkedMeeting::load(std::filesystem::path(MEETING_SAMPLES_FOLDER) / "Meetings" / name);
        const auto found = agreement(meeting, ExtractiveSummarizer().summarize(meeting.document));
        for (std::size_t kind = 0; kind < total.size(); ++kind) total[kind].add(found[kind]);
    }
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

}  // namespace

int main(int argumentCount, char** arguments) {
    const std::span<char*> given(arguments, static_cast<std::size_t>(argumentCount));
    const auto has = [&](std::string_view option) {
        return std::find(given.begin(), given.end(), option) != given.end();
    };
    report("Meetings that the rules were written with", MarkedMeeting::developed, has("--detail"));
    report("Meetings held out", MarkedMeeting::heldOut, has("--detail-held-out"));
    return 0;
}
