#include <algorithm>
#include <fstream>
#include <map>

#include "CommandDescription.h"
#include "GermanText.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Presentation/HTMLExport.h"
#include "MeetingCore/Presentation/JSONExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
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

namespace fs = std::filesystem;

struct Values {
    std::string meeting;
    std::string segment;
    std::string text;
    std::string speaker;
    std::string name;
    std::string format;
    std::string content = "all";
    std::string output;
    bool original = false;
    bool clock = false;
    bool numbers = false;
    bool json = false;
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

int transcript(Shell& shell, const Values& values) {
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
    const TimestampFormatter times(mode, RecordingImport::storedClock(meeting.id, folder.root()));
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

int correct(Shell& shell, const Values& values) {
    auto open = shell.openLibrary();
    TranscriptEditing::correct(open.meeting(values.meeting).id, values.segment, values.text, open.root(),
                               open.jobs());
    return done;
}

int nameSpeaker(Shell& shell, const Values& values) {
    auto open = shell.openLibrary();
    TranscriptEditing::nameSpeaker(open.meeting(values.meeting).id, values.speaker, values.name, open.root(),
                                   open.jobs());
    return done;
}

std::string rendered(const Values& values, const ExportedMeeting& meeting) {
    const std::map<std::string, MeetingExport::Content> contents{
        {"all", MeetingExport::Content::all},
        {"transcript", MeetingExport::Content::transcript},
        {"summary", MeetingExport::Content::summary}};
    const auto& format = values.format;
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

int exportMeeting(Shell& shell, const Values& values) {
    auto folder = shell.folder();
    const auto& meeting = folder.meeting(values.meeting);
    const auto document = folder.transcript(meeting.id);
    const auto summary = folder.summary(meeting.id);
    const auto text = rendered(values, {.entry = meeting,
                                        .transcript = document.segments.empty() ? nullptr : &document,
                                        .summary = summary ? &*summary : nullptr,
                                        .recording = RecordingImport::storedClock(meeting.id, folder.root())});
    if (values.output.empty() || values.output == "-") {
        shell.out().raw(text);
        if (!text.ends_with('\n')) shell.out().raw("\n");
        return done;
    }
    writeAtomically(FileManager::system(), text, fs::absolute(values.output));
    return done;
}

}  // namespace

void addTranscriptCommands(CLI::App& app, Shell& shell) {
    const auto values = std::make_shared<Values>();
    const auto add = [&](const char* name, const char* description,
                         int (*body)(Shell&, const Values&)) -> CLI::App& {
        return addCommand(app, shell, name, description,
                          [&shell, values, body] { return body(shell, *values); });
    };
    const auto withMeeting = [&](CLI::App& command) -> CLI::App& {
        command.add_option("MEETING", values->meeting, "Kennung, ihr Anfang, oder der Titel")->required();
        return command;
    };
    auto& shown = withMeeting(add("transcript", "Zeigt das Transkript eines Meetings", transcript));
    shown.add_flag("--original", values->original, "Wie erkannt, ohne Korrekturen");
    shown.add_flag("--clock", values->clock, "Uhrzeiten statt der Zeit seit Beginn");
    shown.add_flag("--numbers", values->numbers, "Jedes Segment auf einer Zeile mit seiner Nummer");
    shown.add_flag("--json", values->json, "Als JSON für Programme");

    auto& corrected = withMeeting(add("correct", "Berichtigt den Text eines Segments", correct));
    corrected.add_option("SEGMENT", values->segment, "Nummer aus „transcript --numbers“ oder Kennung")
        ->required();
    corrected.add_option("TEXT", values->text, "Der richtige Text; leer nimmt die Korrektur zurück")
        ->required();

    auto& named = withMeeting(add("speaker", "Gibt einem Sprecher einen Namen", nameSpeaker));
    named.add_option("SPRECHER", values->speaker, "Kennung oder bisherige Bezeichnung")->required();
    named.add_option("NAME", values->name, "Der Name; leer nimmt ihn zurück")->required();

    auto& exported = withMeeting(add("export", "Gibt ein Meeting als Datei aus", exportMeeting));
    oneOf(exported.add_option("--format", values->format, "Die Form"),
          {"text", "markdown", "html", "vtt", "srt", "json"})
        ->required();
    oneOf(exported.add_option("--content", values->content, "Was ausgegeben wird (für text und markdown)"),
          {"all", "transcript", "summary"});
    exported.add_flag("--clock", values->clock, "Uhrzeiten statt der Zeit seit Beginn (für html)");
    exported.add_option("-o,--output", values->output, "Die Datei; sonst die Standardausgabe")
        ->type_name("DATEI");
}

}  // namespace quillmoot
}  // namespace meetingcore
