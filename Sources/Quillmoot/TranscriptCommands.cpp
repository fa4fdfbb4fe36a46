#include <algorithm>

#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Library/TranscriptIntake.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/MeetingExport.h"
#include "MeetingCore/Presentation/TranscriptLayout.h"
#include "MeetingCore/Presentation/Wording.h"
#include "MeetingCore/Transcript/TranscriptEditing.h"
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

}  // namespace
}  // namespace quillmoot

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

struct CorrectionValues {
    std::string meeting;
    std::string segment;
    std::string text;
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

    const auto [corrected, correction] =
        addMeetingCommand(app, shell, "correct", "Berichtigt den Text eines Segments", correct);
    notBlank(
        corrected.add_option("SEGMENT", correction.segment, "Nummer aus „transcript --numbers“ oder Kennung"))
        ->required();
    corrected.add_option("TEXT", correction.text, "Der richtige Text; leer nimmt die Korrektur zurück")
        ->required();
}

}  // namespace quillmoot
}  // namespace meetingcore
