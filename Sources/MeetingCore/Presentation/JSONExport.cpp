#include "MeetingCore/Presentation/JSONExport.h"

#include <cmath>
#include <unordered_map>

#include "MeetingCore/Presentation/TranscriptLayout.h"
#include "MeetingCore/Presentation/Wording.h"

namespace meetingcore {

namespace {

struct Recording {
    std::string startedAt;
    std::string timeZone;
};

struct NamedValue {
    std::string name;
    std::string value;
};

struct Speaker {
    std::int64_t index = 0;
    std::string name;
    AudioSource source = AudioSource::microphone;
    std::optional<std::string> speakerID;
};

struct Segment {
    UUID id;
    double startSeconds = 0;
    double endSeconds = 0;
    std::int64_t speaker = 0;  ///< its index
    std::string_view text;
    std::optional<std::string_view> recognizedText;  ///< where the user corrected it
};

struct Summary {
    SummaryState state = SummaryState::missing;
    std::optional<std::string> createdAt;
    std::optional<std::string_view> engine;
    std::optional<EvidenceSummary> points;
};

struct Meeting {
    std::int64_t version = 1;
    UUID id;
    std::string title;
    std::string createdAt;
    std::optional<Recording> recording;
    std::vector<std::string> participants;
    std::vector<NamedValue> fields;
    std::string notes;
    std::optional<std::vector<Speaker>> speakers;
    std::optional<std::vector<Segment>> segments;
    Summary summary;
};

}  // namespace

template <>
inline constexpr auto json::fields<Recording> = json::record(json::field("startedAt", &Recording::startedAt),
                                                             json::field("timeZone", &Recording::timeZone));

template <>
inline constexpr auto json::fields<NamedValue> = json::record(json::field("name", &NamedValue::name),
                                                              json::field("value", &NamedValue::value));

template <>
inline constexpr auto json::fields<Speaker> = json::record(json::field("index", &Speaker::index),
                                                           json::field("name", &Speaker::name),
                                                           json::field("source", &Speaker::source),
                                                           json::field("speakerID", &Speaker::speakerID));

template <>
inline constexpr auto json::fields<Segment> =
    json::record(json::field("id", &Segment::id), json::field("startSeconds", &Segment::startSeconds),
                 json::field("endSeconds", &Segment::endSeconds), json::field("speaker", &Segment::speaker),
                 json::field("text", &Segment::text), json::field("recognizedText", &Segment::recognizedText));

template <>
inline constexpr auto json::fields<Summary> = json::record(json::field("state", &Summary::state),
                                                           json::field("createdAt", &Summary::createdAt),
                                                           json::field("engine", &Summary::engine),
                                                           json::field("points", &Summary::points));

template <>
inline constexpr auto json::fields<Meeting> =
    json::record(json::field("version", &Meeting::version), json::field("id", &Meeting::id),
                 json::field("title", &Meeting::title), json::field("createdAt", &Meeting::createdAt),
                 json::field("recording", &Meeting::recording),
                 json::field("participants", &Meeting::participants), json::field("fields", &Meeting::fields),
                 json::field("notes", &Meeting::notes), json::field("speakers", &Meeting::speakers),
                 json::field("segments", &Meeting::segments), json::field("summary", &Meeting::summary));

namespace {

double finite(double seconds) { return std::isfinite(seconds) ? seconds : 0; }

/// Lists the segments and, in order of first occurrence, their speakers.
void addTranscript(Meeting& meeting, const TranscriptDocument& document) {
    auto& speakers = meeting.speakers.emplace();
    auto& segments = meeting.segments.emplace();
    segments.reserve(document.segments.size());
    std::unordered_map<TranscriptSpeakerKey, std::int64_t> indexes;
    const Wording recognised(document, true);
    for (const auto& segment : document.segments) {
        auto key = TranscriptSpeakerKey::of(segment);
        const auto [entry, isNew] = indexes.try_emplace(key, static_cast<std::int64_t>(indexes.size()));
        if (isNew) {
            speakers.push_back({entry->second, MeetingExport::speakerName(document, segment), key.source,
                                std::move(key.speakerID)});
        }
        const auto original = recognised.of(segment);
        segments.push_back({segment.id, finite(segment.startSeconds), finite(segment.endSeconds), entry->second,
                            segment.text, original == segment.text ? std::nullopt : std::optional(original)});
    }
}

Summary summaryOf(const ExportedMeeting& meeting) {
    Summary summary{MeetingExport::summaryState(meeting), {}, {}, {}};
    if (summary.state == SummaryState::missing) return summary;
    summary.createdAt = iso8601(meeting.summary->createdAt);
    summary.engine = meeting.summary->isExtractive() ? "extractive" : "model";
    if (summary.state == SummaryState::current) summary.points = meeting.summary->summary;
    return summary;
}

}  // namespace

std::string JSONExport::render(const ExportedMeeting& meeting) {
    const auto& entry = meeting.entry;
    Meeting out;
    out.id = entry.id;
    out.title = entry.title;
    out.createdAt = iso8601(entry.createdAt);
    if (const auto& recording = meeting.recording) {
        out.recording = Recording{iso8601(recording->startedAt), recording->timeZoneIdentifier};
    }
    if (entry.metadata) {
        out.participants = entry.metadata->participants;
        for (const auto& field : entry.metadata->fields) out.fields.push_back({field.name, field.value});
    }
    out.notes = entry.notes;
    if (meeting.transcript != nullptr) addTranscript(out, *meeting.transcript);
    out.summary = summaryOf(meeting);
    return json::encode(out);
}

}  // namespace meetingcore
