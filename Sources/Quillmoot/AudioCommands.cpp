#include <algorithm>
#include <charconv>
#include <ctime>

#include <sys/stat.h>

#include "AudioFile.h"
#include "CommandDescription.h"
#include "GermanWords.h"
#include "MeetingCore/Library/AudioRemoval.h"
#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Library/Trash.h"
#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "Names.h"
#include "Program.h"

namespace meetingcore {

namespace quillmoot {
namespace {

struct TrackRow {
    AudioSource source = AudioSource::microphone;
    std::string path;
};

struct MeetingTitleRow {
    std::string id;
    std::string title;
};

}  // namespace
}  // namespace quillmoot

template <>
inline constexpr auto json::fields<quillmoot::TrackRow> = json::record(
    json::field("source", &quillmoot::TrackRow::source), json::field("path", &quillmoot::TrackRow::path));

template <>
inline constexpr auto json::fields<quillmoot::MeetingTitleRow> =
    json::record(json::field("id", &quillmoot::MeetingTitleRow::id),
                 json::field("title", &quillmoot::MeetingTitleRow::title));

namespace quillmoot {
namespace {

namespace fs = std::filesystem;

struct ImportValues {
    std::string title{defaultMeetingTitle};
    std::string microphone;
    std::string application;
    std::optional<std::string> start;
    std::string project;
    bool json = false;
};

struct RemovalValues {
    std::string meeting;
    bool yes = false;
};

struct RetentionValues {
    std::optional<std::string> days;
    bool apply = false;
    bool json = false;
};

/// Reads "2026-03-14 09:30[:05]", with a "T" between for the same, or "14.03.2026 09:30[:05]", in the local
/// zone or, with "Z" or "+01:00" behind it, in that one.
Date parseTime(const std::string& text) {
    constexpr auto example = " (etwa 2026-03-14 09:30)";
    std::tm read{};
    const char* rest = nullptr;
    for (const char* const format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M",
                                     "%Y-%m-%d %H:%M", "%d.%m.%Y %H:%M:%S", "%d.%m.%Y %H:%M"}) {
        read = {};
        rest = ::strptime(text.c_str(), format, &read);
        if (rest != nullptr) break;
    }
    if (rest == nullptr) throw UsageError("Ungültige Zeit: " + text + example);
    const LocalTime time{read.tm_year + 1900, read.tm_mon + 1, read.tm_mday,
                         read.tm_hour,        read.tm_min,     read.tm_sec};
    const auto inUTC = TimeZone("UTC").instant(time);
    if (!inUTC || time.year < 1900) throw UsageError("Ungültige Zeit: " + text);
    if (*rest == '\0') {
        const auto local = TimeZone::current().instant(time);
        if (!local) throw UsageError("Diese Uhrzeit gibt es hier nicht (Zeitumstellung): " + text);
        return *local;
    }
    std::tm zone{};
    const char* const end = ::strptime(rest, "%z", &zone);
    if (end == nullptr || *end != '\0') throw UsageError("Ungültige Zeit: " + text + example);
    return inUTC->advanced(-static_cast<double>(zone.tm_gmtoff));
}

Date lastChange(const fs::path& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) return Date::now();
    return Date::since1970(static_cast<double>(status.st_mtime));
}

struct Input {
    AudioSource source = AudioSource::microphone;
    std::unique_ptr<AudioFile> file;
};

std::vector<Input> inputsOf(const ImportValues& values) {
    std::vector<Input> inputs;
    const auto add = [&](AudioSource source, const std::string& path) {
        if (path.empty()) return;
        inputs.push_back({source, std::make_unique<AudioFile>(path)});
        if (inputs.back().file->seconds() > audio::maximumTrackSeconds)
            throw MeetingError::invalidData(quotedName(path) + " ist länger als 24 Stunden.");
    };
    add(AudioSource::microphone, values.microphone);
    add(AudioSource::meeting, values.application);
    if (inputs.empty()) throw UsageError("Es fehlt: --microphone oder --meeting");
    return inputs;
}

/// All of the recording but the project, which the library has to know.
RecordingImport::Recording recordingOf(const ImportValues& values, const std::vector<Input>& inputs) {
    RecordingImport::Recording recording;
    if (text::trimmed(values.title).empty()) throw UsageError("Der Titel darf nicht leer sein.");
    recording.title = checkedName(values.title, "Der Titel");
    recording.createdAt = lastChange(values.microphone.empty() ? values.application : values.microphone);
    if (values.start) {
        recording.createdAt = parseTime(*values.start);
        const auto zone = TimeZone::currentIdentifier();
        if (!TimeZone::isKnown(zone))
            throw UsageError("Unbekannte Zeitzone in TZ: " + zone + " (etwa Europe/Berlin)");
        recording.clock = RecordingClock{recording.createdAt, zone};
    }
    std::string description;
    for (const auto& input : inputs) {
        recording.tracks.push_back({input.source, input.file.get()});
        description += std::string(json::nameOf(input.source)) + " " + input.file->description() + "\n";
    }
    recording.session = RecordingImport::sessionFor(description);
    return recording;
}

UUID projectNamed(const std::string& name, const LibrarySnapshot& library) {
    return named(library.projects, name, "Ein Projekt")->id;
}

RecordingImport::Outcome runImport(const RecordingImport::Recording& recording, OpenLibrary& open,
                                   const std::vector<Input>& inputs, Shell& shell) {
    double total = 0;
    for (const auto& input : inputs) total += input.file->seconds();
    const auto& stop = stopOnInterrupt();
    auto bar = shell.progress();
    double before = 0;
    auto current = inputs.front().source;
    const auto outcome = RecordingImport::run(
        recording, open.root(), open.library(), open.jobs(), [&](AudioSource track, double seconds) {
            if (track != current) before = inputs.front().file->seconds();
            current = track;
            bar.show(total > 0 ? (before + seconds) / total : 0,
                     std::string(trackName(track)) + " " + lengthOf(seconds));
            return !stop.requested();
        });
    bar.clear();
    return outcome;
}

int importAudio(Shell& shell, const ImportValues& values) {
    const auto inputs = inputsOf(values);
    auto recording = recordingOf(values, inputs);
    auto open = shell.openLibrary(Shell::Creation::ofAny);
    if (!values.project.empty()) recording.project = projectNamed(values.project, open.library().snapshot());
    if (runImport(recording, open, inputs, shell) == RecordingImport::Outcome::stopped) {
        shell.err().line("Unterbrochen. Derselbe Aufruf setzt den Import fort.", Ink::yellow);
        return failed;
    }
    int status = done;
    for (const auto& input : inputs) {
        if (!input.file->isCutOff()) continue;
        status = failed;
        shell.err().line(std::string(trackName(input.source)) +
                             ": Die Tondatei ist beschädigt oder bricht ab; nur was lesbar war, wurde "
                             "aufgenommen.",
                         Ink::yellow);
    }
    const auto& entry = open.meeting(recording.session.string());
    if ((recording.title != defaultMeetingTitle && entry.title != recording.title) ||
        (recording.project && entry.projectID != recording.project)) {
        shell.err().line("Titel und Projekt bleiben, wie sie seit dem ersten Aufruf geändert wurden.",
                         Ink::yellow);
    }
    if (values.json) {
        shell.writeJSON(MeetingTitleRow{entry.id.string(), entry.title});
    } else {
        shell.out().line(entry.id.string());
    }
    return status;
}

/// Says what is still or missing in a meeting's audio; true where chunks are lost, as pauses are not.
bool tellMissing(std::int64_t missing, const RecoveryReport& report, Shell& shell) {
    const auto warn = [&](const std::string& text) { shell.err().line(text, Ink::yellow); };
    for (const auto& problem : report.problems) warn(problem);
    for (const auto& gap : AudioArchive::gaps(report.chunks)) {
        warn(std::string(trackName(gap.source)) + ": Von " + lengthOf(gap.startSeconds) + " bis " +
             lengthOf(gap.endSeconds) + " gibt es keine Aufnahme; dort ist Stille.");
    }
    if (missing > 0) {
        warn(countOf(static_cast<std::size_t>(missing), "Audioabschnitt fehlt", "Audioabschnitte fehlen") +
             ". Bei einem importierten Meeting stellt derselbe Import sie wieder her.");
    }
    return missing > 0;
}

/// How many chunks of the meeting the queue knows; none where it cannot be read, as audio is saved without it.
std::int64_t registeredChunks(const UUID& meeting, OpenLibrary& open) {
    try {
        return SQLiteJobStore::forReading(open.root() / layout::queue)->registeredChunksBySession()[meeting];
    } catch (const MeetingError&) {
        return 0;
    }
}

int archive(Shell& shell, const MeetingValues& values) {
    auto open = shell.openLibrary();
    const auto& entry = open.meeting(values.meeting);
    const auto meeting = entry.id;
    std::vector<TrackRow> rows;
    const auto report = DurableChunkStore(open.root() / layout::meetings).recover(meeting);
    const auto& chunks = report.chunks;
    for (const auto source : {AudioSource::microphone, AudioSource::meeting}) {
        const auto ofTrack = [&](const AudioChunk& chunk) { return chunk.source == source; };
        if (std::ranges::none_of(chunks, ofTrack)) continue;
        rows.push_back({source, AudioArchive::build(meeting, source, open.root()).string()});
    }
    if (rows.empty()) throw MeetingError::invalidData("Das Meeting hat kein Audio.");
    if (values.json) {
        shell.writeJSON(rows);
    } else {
        for (const auto& row : rows) shell.out().line(row.path);
    }
    const auto missing = entry.missingChunks(registeredChunks(meeting, open), chunks.size());
    return tellMissing(missing, report, shell) ? failed : done;
}

/// Returns the name that the audio has in the trash.
std::string moveToTrash(const UUID& meeting, OpenLibrary& open) {
    std::string name;
    AudioRemoval::moveToTrash(meeting, open.root(), open.jobs(), open.library(), [&](const fs::path& folder) {
        name = folder.filename().string();
        moveToSystemTrash(folder);
    });
    return name;
}

int removeAudio(Shell& shell, const RemovalValues& values) {
    auto open = shell.openLibrary();
    const auto id = open.meeting(values.meeting).id;
    if (AudioArchive::removed(id, open.root()))
        throw MeetingError::invalidData("Das Audio dieses Meetings wurde schon entfernt.");
    const auto chunks = DurableChunkStore(open.root() / layout::meetings).recover(id).chunks;
    if (!values.yes && !AudioRetentionPolicy::fullyProcessed(id, open.root(), open.jobs(), chunks)) {
        throw MeetingError::invalidData(
            "Das Meeting ist noch nicht vollständig transkribiert. Mit --yes wird sein Audio trotzdem "
            "entfernt.");
    }
    const auto registered = open.jobs().registeredChunksBySession()[id];
    if (!values.yes && open.meeting(values.meeting).missingChunks(registered, chunks.size()) > 0) {
        throw MeetingError::invalidData(
            "Vom Audio fehlt etwas, oder es ist beschädigt; „quillmoot doctor“ sagt mehr. Mit --yes wird es "
            "trotzdem entfernt.");
    }
    const auto name = moveToTrash(id, open);
    shell.err().line("Das Audio liegt im Papierkorb, im versteckten Ordner „" + name +
                     "“. Transkript und Zusammenfassung bleiben.");
    return done;
}

/// Moves the audio of every meeting to the trash that was kept long enough.
int applyRetention(OpenLibrary& open, Shell& shell, bool asJSON) {
    const auto policy = AudioRetentionPolicy::load(open.root());
    const auto chunks = DurableChunkStore(open.root() / layout::meetings).recover().chunks;
    const auto meetings = open.library().snapshot().meetings;
    auto registered = open.jobs().registeredChunksBySession();
    std::vector<MeetingTitleRow> removed;
    int status = done;
    for (const auto& meeting : meetings) {
        try {
            const auto ended = meeting.createdAt.advanced(meeting.duration);
            if (!policy.isDue(meeting, ended, Date::now()) ||
                !AudioRetentionPolicy::fullyProcessed(meeting.id, open.root(), open.jobs(), chunks)) {
                continue;
            }
            const auto found = std::ranges::count(chunks, meeting.id, &AudioChunk::sessionID);
            if (meeting.missingChunks(registered[meeting.id], static_cast<std::size_t>(found)) > 0) {
                throw MeetingError::invalidData(
                    "Vom Audio fehlt etwas, oder es ist beschädigt; es bleibt, bis „quillmoot remove-audio "
                    "--yes“ es entfernt. „quillmoot doctor“ sagt mehr.");
            }
            moveToTrash(meeting.id, open);
            removed.push_back({meeting.id.string(), meeting.title});
            if (!asJSON) shell.out().line("Audio entfernt: " + shortID(meeting.id) + "  " + meeting.title);
        } catch (const MeetingError& error) {  // one meeting's trouble does not keep the others' audio
            shell.err().line(meeting.title + ": " + error.message(), Ink::red);
            status = failed;
        }
    }
    if (asJSON) shell.writeJSON(removed);
    return status;
}

AudioRetentionPolicy policyOf(const std::string& days) {
    AudioRetentionPolicy policy;
    if (text::folded(days) == "nie") return policy;
    std::int64_t count = 0;
    const auto* const end = days.data() + days.size();
    if (const auto [rest, error] = std::from_chars(days.data(), end, count);
        error != std::errc{} || rest != end) {
        throw UsageError("Erwartet wird eine Zahl von Tagen oder „nie“: " + days);
    }
    policy.days = count;
    try {
        return policy.validated();
    } catch (const MeetingError& error) {
        throw UsageError(error.message());
    }
}

int retention(Shell& shell, const RetentionValues& values) {
    std::optional<AudioRetentionPolicy> wanted;
    if (values.days) wanted = policyOf(*values.days);
    if (wanted || values.apply) {
        auto open = shell.openLibrary();
        if (wanted) wanted->save(open.root());
        if (values.apply) return applyRetention(open, shell, values.json);
        if (!values.json) return done;
    }
    const auto policy = AudioRetentionPolicy::load(shell.folder().root());
    if (values.json) {
        shell.writeJSON(policy);
    } else {
        shell.out().line(policy.days
                             ? "Audio ist " + countOf(static_cast<std::size_t>(*policy.days), "Tag", "Tage") +
                                   " nach dem Ende des Meetings fällig; „quillmoot retention --apply“ "
                                   "entfernt es."
                             : "Audio wird nie entfernt.");
    }
    return done;
}

}  // namespace

void addAudioCommands(CLI::App& app, Shell& shell) {
    const auto [imported, recording] =
        addCommand(app, shell, "import", "Nimmt Tondateien als Meeting auf", importAudio);
    imported.add_option("--title", recording.title, "Der Titel; ohne ihn bekommt das Meeting später einen")
        ->type_name("TITEL");
    imported.add_option("--microphone", recording.microphone, "Die Spur des eigenen Mikrofons")
        ->type_name("DATEI");
    imported.add_option("--meeting", recording.application, "Die Spur mit dem Ton der anderen")
        ->type_name("DATEI");
    imported.add_option("--start", recording.start, "Wann die Aufnahme begann, etwa „2026-03-14 09:30“")
        ->type_name("ZEIT");
    notBlank(imported.add_option("--project", recording.project, "Das Projekt, dem das Meeting gehört"))
        ->type_name("NAME");
    addJSON(imported, recording.json);
    imported.footer(
        "Wer importiert, bestätigt, dass alle Beteiligten der Aufnahme zugestimmt haben.\n"
        "Unterbrochen oder abgestürzt: Derselbe Aufruf setzt den Import fort.");

    const auto [archived, track] =
        addMeetingCommand(app, shell, "audio", "Schreibt eine vollständige WAV-Datei je Tonspur", archive);
    addJSON(archived, track.json);

    const auto [removed, removal] = addMeetingCommand(
        app, shell, "remove-audio", "Legt das Audio eines Meetings in den Papierkorb", removeAudio);
    removed.add_flag("--yes", removal.yes, "Auch, wenn noch nicht alles transkribiert ist");

    const auto [kept, policy] =
        addCommand(app, shell, "retention", "Zeigt oder setzt, wie lange Audio aufgehoben wird", retention);
    kept.add_option("TAGE", policy.days, "Tage nach dem Ende des Meetings, oder „nie“");
    kept.add_flag(
        "--apply", policy.apply,
        "Legt jetzt in den Papierkorb, was lange genug aufgehoben wurde; mit TAGE erst nach dem Merken");
    addJSON(kept, policy.json);
}

}  // namespace quillmoot
}  // namespace meetingcore
