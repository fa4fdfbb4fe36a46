#include <fstream>
#include <map>

#include "CommandDescription.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Presentation/HTMLExport.h"
#include "MeetingCore/Presentation/JSONExport.h"
#include "MeetingCore/Presentation/SubtitleExport.h"
#include "Program.h"

namespace meetingcore::quillmoot {

namespace {

namespace fs = std::filesystem;

struct ExportValues {
    std::string meeting;
    std::string format;
    std::string content = "all";
    std::string output;
    bool clock = false;
};

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

}  // namespace

void addExportCommands(CLI::App& app, Shell& shell) {
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

}  // namespace meetingcore::quillmoot
