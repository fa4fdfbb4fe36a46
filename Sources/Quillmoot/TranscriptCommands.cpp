#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Library/SpeakerIntake.h"
#include "MeetingCore/Library/TranscriptIntake.h"
#include "MeetingCore/Library/TranscriptionRun.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/HTMLExport.h"
#include "MeetingCore/Presentation/JSONExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "MeetingCore/Presentation/TranscriptLayout.h"
#include "MeetingCore/Presentation/Wording.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/CommandTranscriber.h"
#include "MeetingCore/Transcript/TranscriptEditing.h"
#include "Names.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

/// One segment as `transcript --json` gives it.
struct SegmentRow {
    std::int64_t number = 0;  ///< from 1
    std::string id;
    double startSeconds = 0;
    double endSeconds = 0;
    AudioSource source = AudioSource::microphone;
    std::string speaker;
    std::optional<std::string> speakerID;
    std::string text;
    bool corrected = false;
};

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

template <>
inline constexpr auto json::fields<quillmoot::SegmentRow> = json::record(
    json::field("number", &quillmoot::SegmentRow::number), json::field("id", &quillmoot::SegmentRow::id),
    json::field("startSeconds", &quillmoot::SegmentRow::startSeconds),
    json::field("endSeconds", &quillmoot::SegmentRow::endSeconds),
    json::field("source", &quillmoot::SegmentRow::source),
    json::field("speaker", &quillmoot::SegmentRow::speaker),
    json::field("speakerID", &quillmoot::SegmentRow::speakerID),
    json::field("text", &quillmoot::SegmentRow::text),
    json::field("corrected", &quillmoot::SegmentRow::corrected));

namespace quillmoot {
namespace {

namespace fs = std::filesystem;

struct TranscriptValues : MeetingValues {
    bool original = false;
    bool clock = false;
    bool numbers = false;
};

struct TranscriptImportValues {
    std::string meeting;
    std::string file;
    std::string source;
    bool replace = false;
};

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

struct TranscribeValues {
    std::string meeting;
    std::string engine;
    int jobs = 1;
    int timeout = 600;
};

struct CorrectionValues {
    std::string meeting;
    std::string segment;
    std::string text;
};

struct SpeakerNameValues {
    std::string meeting;
    std::string speaker;
    std::string name;
};

struct ExportValues {
    std::string meeting;
    std::string format;
    std::string content = "all";
    std::string output;
    bool clock = false;
};

int writeTranscriptJSON(Shell& shell, const TranscriptDocument& document, bool original) {
    const Wording wording(document, original);
    const Wording recognised(document, true);
    std::vector<SegmentRow> rows;
    for (const auto& segment : document.segments) {
        rows.push_back({.number = static_cast<std::int64_t>(rows.size() + 1),
                        .id = segment.id.string(),
                        .startSeconds = segment.startSeconds,
                        .endSeconds = segment.endSeconds,
                        .source = segment.source,
                        .speaker = document.speakerLabel(segment),
                        .speakerID = segment.speakerID,
                        .text = std::string(wording.of(segment)),
                        .corrected = recognised.of(segment) != segment.text});
    }
    shell.writeJSON(rows);
    return done;
}

/// The paragraphs of a block: ranges of its segments.
template <class Use>
void forEachParagraph(const TranscriptBlock& block, const Use& use) {
    for (std::size_t p = 0; p < block.paragraphs.size(); ++p) {
        const auto end = p + 1 < block.paragraphs.size() ? block.paragraphs[p + 1] : block.segments.size();
        use(std::span(block.segments).subspan(block.paragraphs[p], end - block.paragraphs[p]));
    }
}

int transcript(Shell& shell, const TranscriptValues& values) {
    if (values.meeting.empty()) throw UsageError("Es fehlt: MEETING");
    auto folder = shell.folder();
    const auto& meeting = folder.meeting(values.meeting);
    const auto document = folder.transcript(meeting.id);
    if (values.json) return writeTranscriptJSON(shell, document, values.original);
    if (document.segments.empty()) {
        shell.err().line(MeetingExport::noTranscriptText);
        return done;
    }
    const auto blocks = TranscriptLayout::blocks(document, values.original);
    const auto colours = SpeakerColors::assignments(blocks, SpeakerColorPreset::ocean);
    const auto mode = values.clock ? TranscriptTimestampMode::clock : TranscriptTimestampMode::elapsed;
    const auto clock = RecordingImport::storedClock(meeting.id, folder.root());
    if (values.clock && !clock) shell.err().line("Wann die Aufnahme begann, ist nicht bekannt.", Ink::yellow);
    const TimestampFormatter times(mode, clock);
    const Wording wording(document, values.original);
    std::unordered_map<UUID, std::size_t> numbers;
    for (const auto& segment : document.segments) numbers.emplace(segment.id, numbers.size() + 1);
    auto& out = shell.out();
    for (const auto& block : blocks) {
        if (&block != &blocks.front()) out.line();
        out.raw(out.speaker(document.speakerLabel(block.firstSegment()), colours.at(block.speaker)) + "  " +
                out.inked(times.format(block.firstSegment().startSeconds), Ink::dim) + "\n");
        forEachParagraph(block, [&](std::span<const TranscriptSegment> paragraph) {
            std::string text;
            for (const auto& segment : paragraph) {
                const auto words = text::trimmed(wording.of(segment));
                if (values.numbers) {
                    out.wrapped("  " + std::to_string(numbers.at(segment.id)) + " ", words);
                    continue;
                }
                text += text.empty() ? "" : " ";
                text += words;
            }
            if (!values.numbers) out.wrapped("  ", text);
        });
    }
    return done;
}

/// Says what was replaced: while others work on the transcript, a number may mean another segment than the user
/// has before him.
int correct(Shell& shell, const CorrectionValues& values) {
    auto open = shell.openLibrary();
    const auto meeting = open.meeting(values.meeting).id;
    const auto document = TranscriptStorage::load(meeting, open.root(), open.jobs());
    const auto& segment = TranscriptEditing::findSegment(document, values.segment);
    TranscriptEditing::correct(meeting, segment.id.string(), values.text, open.root(), open.jobs());
    shell.err().wrapped("Bisher [" + lengthOf(segment.startSeconds) + "] ",
                        document.speakerLabel(segment) + ": " + segment.text, Ink::dim, Ink::dim);
    return done;
}

/// How many segments have a corrected text; nothing where that cannot be told, as of a transcript that is to be
/// replaced because it is broken.
std::optional<std::size_t> correctionsOf(const UUID& meeting, OpenLibrary& open) {
    try {
        const auto document = TranscriptStorage::load(meeting, open.root(), open.jobs());
        return static_cast<std::size_t>(std::ranges::count_if(document.rawSegments, [&](const auto& segment) {
            return document.edits.correctedText.contains(segment.id.string());
        }));
    } catch (const MeetingError&) {
        return std::nullopt;
    }
}

int nameSpeaker(Shell& shell, const SpeakerNameValues& values) {
    auto open = shell.openLibrary();
    TranscriptEditing::nameSpeaker(open.meeting(values.meeting).id, values.speaker, values.name, open.root(),
                                   open.jobs());
    return done;
}

AudioSource trackOf(const std::string& name) {
    return name == "microphone" ? AudioSource::microphone : AudioSource::meeting;
}

int importTranscript(Shell& shell, const TranscriptImportValues& values) {
    auto open = shell.openLibrary();
    const auto meeting = open.meeting(values.meeting).id;
    const auto file = CaptionFile::read(values.file);
    const auto existing =
        values.replace ? TranscriptIntake::Existing::replace : TranscriptIntake::Existing::refuse;
    const auto before = values.replace ? correctionsOf(meeting, open).value_or(0) : 0;
    TranscriptIntake::Report report;
    try {
        report =
            TranscriptIntake::take(meeting, trackOf(values.source), file, open.root(), open.jobs(), existing);
    } catch (const MeetingError& error) {
        rethrowWithLease(error, open.jobs(), meeting);
    }
    shell.err().line(countOf(report.segments, "Segment", "Segmente") + " in " +
                     countOf(report.windows, "Abschnitt", "Abschnitten") + " übernommen.");
    if (const auto after = before > 0 ? correctionsOf(meeting, open).value_or(before) : 0; after < before) {
        shell.err().line(countOf(before - after, "Korrektur gilt", "Korrekturen gelten") +
                             " nicht mehr: Ihr Segment gibt es im neuen Transkript nicht.",
                         Ink::yellow);
    }
    if (report.segments == 0) {
        shell.err().line(
            quotedName(values.file) + " enthält keinen Text: Die Tonspur gilt jetzt als ohne Sprache.",
            Ink::yellow);
    }
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

/// Makes the jobs that are missing: an import that was cut off has chunks, but no jobs yet.
void planWindows(const UUID& meeting, DataFolder& folder) {
    const auto chunks = DurableChunkStore(folder.root() / layout::meetings).recover(meeting).chunks;
    const auto coverage = WorkScheduler::coverage(meeting, chunks, folder.jobs());
    if (chunks.empty() && coverage.windows.empty())
        throw MeetingError::invalidData("Das Meeting hat kein Audio.");
    WorkScheduler::enqueue(coverage.unplanned, folder.queue(), true);
}

int transcribe(Shell& shell, const TranscribeValues& values) {
    auto folder = shell.folder();
    const auto& entry = folder.meeting(values.meeting);
    if (entry.isBeingRecorded()) {
        throw MeetingError::invalidData("Das Meeting wird gerade aufgenommen oder importiert.");
    }
    const auto meeting = entry.id;
    planWindows(meeting, folder);
    const auto& stop = stopOnInterrupt();
    CommandTranscriber engine(values.engine, folder.root(), std::chrono::seconds(values.timeout));
    auto bar = shell.progress();
    TranscriptionRun::Options options;
    options.jobs = values.jobs;
    const auto report = TranscriptionRun::run(
        meeting, folder.root(), folder.queue(), engine, options, stop,
        [&](const TranscriptionRun::Progress& progress) {
            const auto share = progress.total == 0 ? 1.0
                                                   : static_cast<double>(progress.done + progress.failed) /
                                                         static_cast<double>(progress.total);
            bar.show(share,
                     std::to_string(progress.done) + " von " + std::to_string(progress.total) + " Abschnitten");
        });
    bar.clear();
    shell.err().line(std::to_string(report.transcribed) + " transkribiert, " +
                     std::to_string(report.progress.done) + " von " + std::to_string(report.progress.total) +
                     " Abschnitten fertig.");
    for (const auto& window : report.setAside) {
        shell.err().line(std::string(trackName(window.source)) + " " + lengthOf(window.startSeconds) + "–" +
                             lengthOf(window.endSeconds) + " zurückgestellt: " + window.message,
                         Ink::red);
    }
    if (stop.requested()) {
        shell.err().line("Abgebrochen. Derselbe Aufruf macht weiter.", Ink::yellow);
        return failed;
    }
    if (report.progress.failed > 0) {
        shell.err().line("Mit „quillmoot jobs " + shortID(meeting) +
                         " retry“ wird Fehlgeschlagenes wieder offen.");
    }
    if (report.elsewhere > 0) {
        shell.err().line(
            countOf(static_cast<std::size_t>(report.elsewhere), "Abschnitt ist", "Abschnitte sind") +
            " bei einem anderen Programm in Arbeit.");
    }
    const bool complete = report.progress.failed == 0 && report.pending == 0 && report.elsewhere == 0;
    if (complete && folder.transcript(meeting).diarizationPending()) {
        shell.err().line(
            "Es fehlen noch die Sprecher: „quillmoot speakers import“ oder „quillmoot speakers none“.");
    }
    return complete ? done : failed;
}

std::string rendered(const ExportValues& values, const ExportedMeeting& meeting) {
    const std::map<std::string, MeetingExport::Content> contents{
        {"all", MeetingExport::Content::all},
        {"transcript", MeetingExport::Content::transcript},
        {"summary", MeetingExport::Content::summary}};
    const auto& format = values.format;
    if (values.clock && format != "html") throw UsageError("--clock gibt es nur für html.");
    if (format == "text" || format == "markdown") {
        return MeetingExport::render(meeting, format == "text", contents.at(values.content));
    }
    if (values.content != "all") throw UsageError("--content gibt es nur für text und markdown.");
    if (format == "json") return JSONExport::render(meeting) + "\n";
    if (format == "html") {
        HTMLExport::Appearance appearance;
        if (values.clock) appearance.times = TranscriptTimestampMode::clock;
        return HTMLExport::render(meeting, appearance);
    }
    if (meeting.transcript == nullptr)
        throw MeetingError::invalidData(std::string(MeetingExport::noTranscriptText));
    return format == "vtt" ? SubtitleExport::webVTT(*meeting.transcript)
                           : SubtitleExport::subRip(*meeting.transcript);
}

/// Where a chain of symbolic links leads, also to a file that does not exist yet.
fs::path followed(fs::path target) {
    constexpr int mostLinks = 40;
    for (int i = 0; i < mostLinks && fs::is_symlink(fs::symlink_status(target)); ++i)
        target = target.parent_path() / fs::read_symlink(target);  // an absolute one replaces the folder
    return target;
}

/// Replaces a file as a whole. What is no file, a device or a pipe, is written to and never replaced.
void writeTo(const fs::path& named, const std::string& text) {
    const auto target = followed(named);
    std::error_code unknown;
    const auto kind = fs::status(target, unknown).type();
    const auto before = fs::status(target, unknown).permissions();
    if (kind == fs::file_type::directory) throw MeetingError::storage(quotedName(target) + " ist ein Ordner.");
    if (kind != fs::file_type::not_found && kind != fs::file_type::regular) {
        std::ofstream stream(target, std::ios::binary);
        if (!(stream << text << std::flush)) {
            throw MeetingError::storage(quotedName(target) + " konnte nicht geschrieben werden.");
        }
        return;
    }
    if (!fs::is_directory(target.parent_path(), unknown)) {
        throw MeetingError::storage("Den Ordner " + target.parent_path().string() + " gibt es nicht.");
    }
    writeAtomically(FileManager::system(), text, target);
    if (kind == fs::file_type::regular) fs::permissions(target, before, unknown);
}

int exportMeeting(Shell& shell, const ExportValues& values) {
    auto folder = shell.folder();
    const auto& meeting = folder.meeting(values.meeting);
    const auto document = folder.transcript(meeting.id);
    const auto summary = folder.summary(meeting.id);
    const auto text = rendered(values, {.entry = meeting,
                                        .transcript = document.segments.empty() ? nullptr : &document,
                                        .summary = summary ? &*summary : nullptr,
                                        .recording = RecordingImport::storedClock(meeting.id, folder.root())});
    if (values.output.empty() || values.output == "-") {
        shell.out().content(text.ends_with('\n') ? text : text + "\n");
        return done;
    }
    writeTo(fs::absolute(values.output), text);
    return done;
}

/// Accepts the whole numbers of a range.
std::function<std::string(const std::string&)> inRange(int least, int most) {
    return [=](const std::string& text) {
        int value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool fits =
            error == std::errc{} && end == text.data() + text.size() && value >= least && value <= most;
        return fits ? std::string()
                    : "Erwartet wird eine Zahl von " + std::to_string(least) + " bis " + std::to_string(most) +
                          ": " + text;
    };
}

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
}

}  // namespace

void addTranscriptCommands(CLI::App& app, Shell& shell) {
    const auto [shown, view] =
        addMeetingCommand(app, shell, "transcript", "Zeigt das Transkript eines Meetings", transcript);
    shown.get_option("MEETING")->required(false);  // its subcommands stand in its place
    shown.add_flag("--original", view.original, "Wie erkannt, ohne Korrekturen");
    shown.add_flag("--clock", view.clock, "Uhrzeiten statt der Zeit seit Beginn");
    shown.add_flag("--numbers", view.numbers, "Jedes Segment auf einer Zeile mit seiner Nummer");
    addJSON(shown, view.json);

    const auto [captions, taken] =
        addMeetingCommand(shown, shell, "import", "Übernimmt ein Transkript aus einer Datei", importTranscript);
    captions.add_option("DATEI", taken.file, "WebVTT, SubRip, JSON von whisper.cpp oder WhisperX")->required();
    oneOf(captions.add_option("--source", taken.source, "Die Tonspur"), {"microphone", "meeting"})->required();
    captions.add_flag("--replace", taken.replace, "Ersetzt, was auf der Tonspur schon erkannt ist");

    addSpeakerCommands(app, shell);

    const auto [recognised, recognition] =
        addMeetingCommand(app, shell, "transcribe", "Transkribiert mit einem Programm nach Wahl", transcribe);
    notBlank(recognised.add_option("--engine", recognition.engine, "Der Aufruf; {wav} steht für die Tondatei"))
        ->type_name("BEFEHL")
        ->required();
    recognised.add_option("--jobs", recognition.jobs, "Wie viele Abschnitte zugleich, sonst einer")
        ->type_name("ZAHL")
        ->check(inRange(1, 64));
    recognised
        .add_option("--timeout", recognition.timeout, "Sekunden, die ein Abschnitt dauern darf, sonst 600")
        ->type_name("SEKUNDEN")
        ->check(inRange(1, 86'400));
    recognised.footer(
        "Was das Programm liest und schreibt, steht in Transcription.md (installiert: "
        "/usr/share/doc/quillmoot/Transcription.md).");

    const auto [corrected, correction] =
        addMeetingCommand(app, shell, "correct", "Berichtigt den Text eines Segments", correct);
    notBlank(
        corrected.add_option("SEGMENT", correction.segment, "Nummer aus „transcript --numbers“ oder Kennung"))
        ->required();
    corrected.add_option("TEXT", correction.text, "Der richtige Text; leer nimmt die Korrektur zurück")
        ->required();

    const auto [named, naming] =
        addMeetingCommand(app, shell, "speaker", "Gibt einem Sprecher einen Namen", nameSpeaker);
    notBlank(named.add_option("SPRECHER", naming.speaker, "Kennung oder bisherige Bezeichnung"))->required();
    named.add_option("NAME", naming.name, "Der Name; leer nimmt ihn zurück")->required();

    const auto [exported, wanted] =
        addMeetingCommand(app, shell, "export", "Gibt ein Meeting als Datei aus", exportMeeting);
    oneOf(exported.add_option("--format", wanted.format, "Die Form"),
          {"text", "markdown", "html", "vtt", "srt", "json"})
        ->required();
    oneOf(exported.add_option("--content", wanted.content,
                              "Was ausgegeben wird, sonst alles (für text und markdown)"),
          {"all", "transcript", "summary"});
    exported.add_flag("--clock", wanted.clock, "Uhrzeiten statt der Zeit seit Beginn (für html)");
    notBlank(exported.add_option("-o,--output", wanted.output, "Die Datei; sonst die Standardausgabe"))
        ->type_name("DATEI");
}

}  // namespace quillmoot
}  // namespace meetingcore
