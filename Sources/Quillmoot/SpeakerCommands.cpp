#include <algorithm>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/SpeakerIntake.h"
#include "MeetingCore/Presentation/MeetingExport.h"
#include "MeetingCore/Transcript/TranscriptEditing.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

struct SpeakerRow {
    std::optional<std::string> id;  ///< of the diarization
    std::string label;
    AudioSource source = AudioSource::microphone;
    std::int64_t segments = 0;
    double seconds = 0;  ///< of speech
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::SpeakerRow> = json::record(
    json::field("id", &quillmoot::SpeakerRow::id), json::field("label", &quillmoot::SpeakerRow::label),
    json::field("source", &quillmoot::SpeakerRow::source),
    json::field("segments", &quillmoot::SpeakerRow::segments),
    json::field("seconds", &quillmoot::SpeakerRow::seconds));

namespace quillmoot {
namespace {

struct SpeakerImportValues {
    std::string meeting;
    std::string file;
    std::string source;
    std::optional<std::string> recording;
    bool replace = false;
};

struct NoSpeakersValues {
    std::string meeting;
    bool replace = false;
};

struct SpeakerNameValues {
    std::string meeting;
    std::string speaker;
    std::string name;
};

int nameSpeaker(Shell& shell, const SpeakerNameValues& values) {
    auto open = shell.openLibrary();
    TranscriptEditing::nameSpeaker(open.meeting(values.meeting).id, values.speaker, values.name, open.root(),
                                   open.jobs());
    return done;
}

SpeakerIntake::Existing existingSpeakers(bool replace) {
    return replace ? SpeakerIntake::Existing::replace : SpeakerIntake::Existing::refuse;
}

/// Which recording of the file belongs to which track. Recordings named like the tracks are theirs; the only
/// one of another name is the meeting's, or that of the only track. What stays open is left to the import to
/// refuse.
std::vector<SpeakerIntake::Selection> selections(const SpeakerImportValues& values, const SpeakerTurnFile& file,
                                                 const UUID& meeting, OpenLibrary& open) {
    const auto recordings = file.recordings();
    const auto isThere = [&](const std::string& name) { return std::ranges::count(recordings, name) != 0; };
    if (values.recording) {
        const auto& track = values.source.empty() ? *values.recording : values.source;
        return {{trackOf(track), values.recording}};
    }
    if (!values.source.empty()) {
        const bool named = recordings.size() > 1 && isThere(values.source);
        return {{trackOf(values.source), named ? std::optional(values.source) : std::nullopt}};
    }
    std::vector<SpeakerIntake::Selection> found;
    for (const auto source : {AudioSource::microphone, AudioSource::meeting}) {
        if (std::string name(json::nameOf(source)); isThere(name)) found.push_back({source, std::move(name)});
    }
    if (!found.empty() && found.size() == recordings.size()) return found;
    const auto tracks = SpeakerIntake::recordedTracks(meeting, open.root(), open.jobs());
    return {{tracks.size() == 1 ? *tracks.begin() : AudioSource::meeting, std::nullopt}};
}

int importSpeakers(Shell& shell, const SpeakerImportValues& values) {
    auto open = shell.openLibrary();
    const auto meeting = open.meeting(values.meeting).id;
    const auto file = SpeakerTurnFile::read(values.file);
    const auto existing = existingSpeakers(values.replace);
    const auto reports = SpeakerIntake::take(meeting, file, selections(values, file, meeting, open),
                                             open.root(), open.jobs(), existing);
    for (const auto& report : reports) {
        shell.err().line(std::string(trackName(report.source)) + ": " +
                         countOf(report.speakers, "Sprecher", "Sprecher") +
                         (report.changed ? ", davon " + std::to_string(report.named) + " mit Namen."
                                         : " wie bisher. Namen, die das Meeting schon hat, bleiben."));
    }
    return done;
}

int withoutSpeakers(Shell& shell, const NoSpeakersValues& values) {
    auto open = shell.openLibrary();
    SpeakerIntake::declareNone(open.meeting(values.meeting).id, open.root(), open.jobs(),
                               existingSpeakers(values.replace));
    shell.err().line("Das Meeting bleibt ohne unterschiedene Sprecher.");
    return done;
}

int speakers(Shell& shell, const MeetingValues& values) {
    if (values.meeting.empty()) throw UsageError("Es fehlt: MEETING");
    auto folder = shell.folder();
    const auto document = folder.transcript(folder.meeting(values.meeting).id);
    std::vector<SpeakerRow> rows;
    for (const auto& segment : document.segments) {
        auto label = document.speakerLabel(segment);
        auto row = std::ranges::find_if(rows, [&](const SpeakerRow& known) {
            return known.id == segment.speakerID && known.source == segment.source;
        });
        if (row == rows.end())
            row = rows.insert(row, {segment.speakerID, std::move(label), segment.source, 0, 0});
        ++row->segments;
        row->seconds += segment.endSeconds - segment.startSeconds;
    }
    if (values.json) {
        shell.writeJSON(rows);
        return done;
    }
    if (rows.empty()) {
        shell.err().line(MeetingExport::noTranscriptText);
        return done;
    }
    Table table({"Kennung", "Tonspur", "Segmente", "Redezeit", "Name"});
    for (const auto& row : rows) {
        table.add({row.id.value_or("–"), std::string(trackName(row.source)), std::to_string(row.segments),
                   lengthOf(row.seconds), row.label});
    }
    table.write(shell.out());
    return done;
}

}  // namespace

void addSpeakerCommands(CLI::App& app, Shell& shell) {
    const auto [heard, shown] =
        addMeetingCommand(app, shell, "speakers", "Zeigt die Sprecher eines Meetings", speakers);
    heard.get_option("MEETING")->required(false);  // its subcommands stand in its place
    addJSON(heard, shown.json);

    const auto [turns, taken] =
        addMeetingCommand(heard, shell, "import", "Übernimmt, wer wann spricht", importSpeakers);
    turns.add_option("DATEI", taken.file, "RTTM, oder ein Transkript mit Sprechern")->required();
    oneOf(turns.add_option("--source", taken.source, "Die Tonspur, sonst die einzige oder die des Meetings"),
          {"microphone", "meeting"});
    notBlank(turns.add_option("--recording", taken.recording, "Die Aufnahme in der RTTM-Datei"))
        ->type_name("NAME");
    turns.add_flag("--replace", taken.replace, "Ersetzt die Sprecher der Tonspur mit ihren Namen");

    const auto [none, declared] = addMeetingCommand(
        heard, shell, "none", "Erklärt, dass die Sprecher nicht unterschieden werden", withoutSpeakers);
    none.add_flag("--replace", declared.replace, "Ersetzt alle Sprecher mit ihren Namen");

    const auto [named, naming] =
        addMeetingCommand(app, shell, "speaker", "Gibt einem Sprecher einen Namen", nameSpeaker);
    notBlank(named.add_option("SPRECHER", naming.speaker, "Kennung oder bisherige Bezeichnung"))->required();
    named.add_option("NAME", naming.name, "Der Name; leer nimmt ihn zurück")->required();
}

}  // namespace quillmoot
}  // namespace meetingcore
