#include "GermanWords.h"

#include "MeetingCore/Presentation/TimestampFormatter.h"

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

std::string_view wordFor(JobStatus status) {
    switch (status) {
        case JobStatus::pending:
            return "offen";
        case JobStatus::running:
            return "in Arbeit";
        case JobStatus::completed:
            return "fertig";
        case JobStatus::failed:
            break;
    }
    return "fehlgeschlagen";
}

}  // namespace meetingcore::quillmoot
