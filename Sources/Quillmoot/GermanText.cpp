#include "GermanText.h"

#include <algorithm>
#include <cmath>

#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/TimestampFormatter.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "Terminal.h"

namespace meetingcore::quillmoot {

namespace {

std::string twoDigits(std::int64_t value) { return (value < 10 ? "0" : "") + std::to_string(value); }

}  // namespace

std::string countOf(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string localTime(Date instant, const TimeZone& zone) {
    const auto time = zone.local(instant);
    return twoDigits(time.day) + "." + twoDigits(time.month) + "." + std::to_string(time.year) + " " +
           twoDigits(time.hour) + ":" + twoDigits(time.minute);
}

std::string lengthOf(double seconds) {
    const auto total = static_cast<std::int64_t>(shownSeconds(seconds));
    const auto rest = twoDigits(total / 60 % 60) + ":" + twoDigits(total % 60);
    return total >= 3600 ? std::to_string(total / 3600) + ":" + rest : rest;
}

std::string shortID(const UUID& id) { return id.string().substr(0, 8); }

std::string checkedName(const std::string& typed, const char* what) {
    const auto name = text::trimmed(typed);
    if (name.empty()) throw MeetingError::invalidData(std::string(what) + " darf nicht leer sein.");
    if (printable(name) != name)
        throw MeetingError::invalidData(std::string(what) + " darf keine Steuerzeichen enthalten.");
    return std::string(name);
}

std::string_view trackName(AudioSource source) {
    return source == AudioSource::microphone ? "Mikrofon" : "Meeting-Ton";
}

std::string_view wordFor(TranscriptProcessingState state) {
    switch (state) {
        case TranscriptProcessingState::loading:
            return "wird geladen";
        case TranscriptProcessingState::recording:
            return "wird aufgenommen";
        case TranscriptProcessingState::processing:
            return "wird transkribiert";
        case TranscriptProcessingState::waiting:
            return "wartet auf Transkription";
        case TranscriptProcessingState::failed:
            return "fehlgeschlagen";
        case TranscriptProcessingState::interrupted:
            return "unterbrochen";
        case TranscriptProcessingState::partial:
            return "teilweise transkribiert";
        case TranscriptProcessingState::empty:
            return "ohne Sprache";
        case TranscriptProcessingState::complete:
            break;
    }
    return "transkribiert";
}

std::string_view wordForJob(const std::string& status) {
    if (status == "pending") return "offen";
    if (status == "running") return "in Arbeit";
    if (status == "completed") return "fertig";
    return status == "failed" ? std::string_view("fehlgeschlagen") : std::string_view(status);
}

bool sameName(std::string_view a, std::string_view b) {
    return text::folded(text::trimmed(a)) == text::folded(text::trimmed(b));
}

std::optional<std::string> projectName(const LibrarySnapshot& library, const MeetingEntry& meeting) {
    const auto found = std::ranges::find_if(library.projects, [&](const MeetingProject& project) {
        return meeting.projectID && project.id == *meeting.projectID;
    });
    return found == library.projects.end() ? std::nullopt : std::optional(found->name);
}

void rethrowWithLease(const MeetingError& error, SQLiteJobStore& jobs, const UUID& meeting) {
    if (error.cause() != MeetingError::Cause::jobBusy) throw;
    double seconds = 0;
    const auto now = Date::now().secondsSinceReferenceDate();
    for (const auto& job : jobs.jobs(meeting)) {
        if (job.status == JobStatus::running && job.leaseUntil)
            seconds = std::max(seconds, std::ceil(job.leaseUntil->secondsSinceReferenceDate() - now));
    }
    if (seconds < 1) throw;
    throw MeetingError::database(error.message() + " Sie endet in " +
                                 countOf(static_cast<std::size_t>(seconds), "Sekunde", "Sekunden") +
                                 ", wenn niemand sie verlängert.");
}

}  // namespace meetingcore::quillmoot
