#include "MeetingCore/Library/LibraryCheck.h"

#include <algorithm>
#include <unordered_map>

#include <sys/stat.h>
#include <unistd.h>

#include "MeetingCore/Library/AudioRetentionPolicy.h"
#include "MeetingCore/Library/MeetingLibrary.h"
#include "MeetingCore/Library/RecordingImport.h"
#include "MeetingCore/Library/SpeechConfiguration.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Summary/SummaryArtifact.h"
#include "MeetingCore/Summary/WorkerLock.h"
#include "MeetingCore/Transcript/CommandTranscriber.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore::LibraryCheck {

namespace fs = std::filesystem;

namespace {

constexpr mode_t otherPeople = S_IRWXG | S_IRWXO;

std::string countOf(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// The audio that a recogniser was given.
bool isRecognition(const fs::directory_entry& entry) {
    return CommandTranscriber::isWorkFolder(entry.path().filename().string()) &&
           fs::is_directory(entry.symlink_status());
}

class Check {
public:
    Check(const fs::path& root, const ModelCatalog& catalog, const Options& options, Date now)
        : root_(root), catalog_(catalog), options_(options), now_(now) {}

    std::vector<Finding> run() {
        if (!checkFolder()) return std::move(findings_);
        guarded("Bibliothek", [&] { checkLibrary(); });
        guarded("Datenbank", [&] { checkDatabase(); });
        guarded("Entferntes Audio", [&] { checkRemovals(); });
        guarded("Aufträge", [&] { checkJobs(); });
        guarded("Aufnahmen", [&] { checkRecordings(); });
        guarded("Meetings", [&] { checkMeetings(); });
        guarded("Reste", [&] { checkLeftovers(); });
        if (options_.models) checkModels(*options_.models);
        return std::move(findings_);
    }

private:
    void add(Severity severity, std::string topic, std::string text,
             std::optional<std::string> repair = std::nullopt) {
        findings_.push_back({severity, std::move(topic), std::move(text), std::move(repair)});
    }

    template <class Body>
    void guarded(const char* topic, const Body& body) {
        try {
            body();
        } catch (const std::exception& error) {
            add(Severity::error, topic, error.what());
        }
    }

    bool checkFolder() {
        constexpr auto topic = "Datenordner";
        struct stat status {};
        if (::stat(root_.c_str(), &status) != 0) {
            add(Severity::error, topic, root_.string() + ": " + systemErrorText(errno));
            return false;
        }
        if (!S_ISDIR(status.st_mode)) {
            add(Severity::error, topic, root_.string() + " ist kein Ordner.");
            return false;
        }
        if (::access(root_.c_str(), R_OK | W_OK | X_OK) != 0) {
            add(Severity::error, topic, root_.string() + ": " + systemErrorText(errno));
            return ::access(root_.c_str(), R_OK | X_OK) == 0;
        }
        add(Severity::fine, topic, root_.string() + " ist lesbar und beschreibbar.");
        if ((status.st_mode & otherPeople) != 0) {
            add(Severity::warning, topic, "Andere Benutzer dieses Computers haben Zugriff auf den Ordner.");
        }
        return true;
    }

    void checkLibrary() {
        const auto file = root_ / layout::library;
        if (!pathExists(file)) {
            add(Severity::note, "Bibliothek", "Es gibt noch keine Bibliothek.");
            return;
        }
        isLibraryBroken_ = true;
        library_ = MeetingLibrary::read(file);
        try {
            MeetingLibrary::validate(library_);
            isLibraryBroken_ = false;
        } catch (const MeetingError& error) {
            add(Severity::error, "Bibliothek",
                "„library.json“ lässt sich lesen, aber nicht ändern: " + error.message());
        }
        AudioRetentionPolicy::load(root_);
        add(Severity::fine, "Bibliothek",
            countOf(library_.meetings.size(), "Meeting", "Meetings") + ", " +
                countOf(library_.projects.size(), "Projekt", "Projekte") + ".");
    }

    void checkDatabase() {
        constexpr auto topic = "Datenbank";
        const auto file = root_ / layout::queue;
        if (!SQLiteJobStore::exists(file)) {
            const auto lost = library_.meetings.size();
            if (lost == 0) {
                add(Severity::note, topic, "Es gibt noch keine Aufträge.");
                return;
            }
            const auto what = "„quillmoot.sqlite“ fehlt und damit die Transkripte von " +
                              countOf(lost, "Meeting", "Meetings");
            if (!options_.repair) {
                add(Severity::error, topic, what + ". Bitte die Datei zurückholen.", "legt eine neue an");
                return;
            }
            // A new database would take what belongs to the lost one for its own, and throw it away.
            const auto rest = fs::path(file) += "-wal";
            if (pathExists(rest))
                FileManager::system().move(rest, fs::path(rest) += "." + UUID::random().string() + ".bak");
            add(Severity::error, topic, what + ". Die Datei ist neu angelegt.");
        }
        // What SQLite itself says is in English, and helps whoever is asked for help.
        const auto addDamage = [&](const std::string& problem) {
            add(Severity::error, topic,
                "„quillmoot.sqlite“ ist beschädigt; es hilft nur eine Sicherung. (" + problem + ")");
        };
        try {
            database_ =
                options_.repair ? std::make_unique<SQLiteJobStore>(file) : SQLiteJobStore::forReading(file);
            const auto problems = database_->integrityProblems();
            for (const auto& problem : problems) addDamage(problem);
            if (!problems.empty()) database_.reset();  // nothing is changed in it, and nothing believed
            if (problems.empty()) add(Severity::fine, topic, "Die Datenbank ist unversehrt.");
        } catch (const MeetingError& error) {
            if (error.kind() != MeetingError::Kind::database) throw;
            if (error.cause() == MeetingError::Cause::databaseDamaged) return addDamage(error.message());
            add(Severity::error, topic,
                "„quillmoot.sqlite“ kann nicht geprüft werden. Vielleicht arbeitet ein anderes Programm damit, "
                "oder die Rechte oder der Platz auf dem Datenträger reichen nicht. (" +
                    error.message() + ")");
        }
    }

    /// After the removals, which end jobs.
    void checkJobs() {
        if (database_ == nullptr) return;
        auto counts = database_->jobStats();
        const auto open = counts["pending"] + counts["running"];
        add(open + counts["failed"] == 0 ? Severity::fine : Severity::note, "Aufträge",
            std::to_string(counts["completed"]) + " abgeschlossen, " + std::to_string(counts["pending"]) +
                " offen, " + std::to_string(counts["running"]) + " in Arbeit, " +
                std::to_string(counts["failed"]) + " fehlgeschlagen.");
        if (const auto stray = database_->strayLeases(now_); stray > 0 && options_.repair) {
            const auto count = static_cast<std::size_t>(database_->recoverStray(now_));
            add(Severity::repaired, "Aufträge",
                countOf(count, "abgelaufener Auftrag ist", "abgelaufene Aufträge sind") + " wieder offen.");
        } else if (stray > 0) {
            add(Severity::warning, "Aufträge",
                countOf(static_cast<std::size_t>(stray), "Auftrag gehört", "Aufträge gehören") +
                    " einem Programm, das sich nicht mehr meldet.",
                "gibt sie frei");
        }
    }

    void checkRemovals() {
        if (!options_.repair || database_ == nullptr) {
            for (const auto& id : AudioRemoval::interrupted(root_)) {
                add(Severity::warning, "Entferntes Audio", "Unterbrochenes Entfernen: " + titleOf(id) + ".",
                    "bringt es zu Ende");
            }
            for (const auto& meeting : library_.meetings) {
                if (meeting.chunkCount == 0 || !AudioArchive::removed(meeting.id, root_)) continue;
                add(Severity::warning, "Entferntes Audio",
                    "„" + meeting.title + "“ hat kein Audio mehr, wovon die Bibliothek nichts weiß.",
                    "trägt es ein");
            }
            return;
        }
        const auto recovered = recoverRemovals();
        for (const auto& id : recovered.undone) {
            add(Severity::repaired, "Entferntes Audio",
                "Unterbrochenes Entfernen zurückgenommen: " + titleOf(id));
        }
        for (const auto& id : recovered.finished) {
            add(Severity::repaired, "Entferntes Audio", "Unterbrochenes Entfernen beendet: " + titleOf(id));
        }
        for (const auto& problem : recovered.problems) add(Severity::error, "Entferntes Audio", problem);
    }

    AudioRemoval::Recovered recoverRemovals() {
        if (isLibraryBroken_) return AudioRemoval::recover(root_, *database_, *options_.repair);
        MeetingLibrary library(root_);
        auto recovered = AudioRemoval::recover(root_, *database_, library, *options_.repair);
        library_ = library.snapshot();
        return recovered;
    }

    void checkRecordings() {
        constexpr auto topic = "Aufnahmen";
        const auto meetings = root_ / layout::meetings;
        if (!pathExists(meetings)) return;
        const auto report = DurableChunkStore(meetings).recover();
        add(Severity::fine, topic,
            countOf(report.chunks.size(), "Audioabschnitt ist", "Audioabschnitte sind") + " vollständig.");
        for (const auto& folder : report.incompleteDirectories) {
            if (isRecognition(fs::directory_entry(folder))) continue;
            add(Severity::note, topic,
                "Unvollständiger Audioabschnitt, von einem Absturz übrig: " +
                    folder.lexically_relative(meetings).string());
        }
        for (const auto& problem : report.problems) add(Severity::warning, topic, problem);
        checkComplete(report.chunks);  // before the library forgets how many chunks there were
        guarded(topic, [&] {
            if (!isLibraryBroken_ &&
                (options_.repair || !WorkerLock::isTaken(root_, WorkerLock::Purpose::application)))
                bringInLine(meetings, report.chunks);
        });
        checkScheduled(report.chunks);
    }

    /// Recordings that the library does not know, and those that it takes for running though nobody records.
    void bringInLine(const fs::path& meetings, std::span<const AudioChunk> chunks) {
        std::size_t unknown = 0;
        for (const auto& name : FileManager::system().list(meetings)) {
            const auto id = UUID::parse(name);
            if (id && std::ranges::find(library_.meetings, *id, &MeetingEntry::id) == library_.meetings.end())
                ++unknown;
        }
        const auto running =
            static_cast<std::size_t>(std::ranges::count_if(library_.meetings, &MeetingEntry::isBeingRecorded));
        if (unknown + running == 0) return;
        auto what =
            unknown == 0 ? "" : countOf(unknown, "Meeting fehlt", "Meetings fehlen") + " in der Bibliothek";
        if (unknown > 0 && running > 0) what += ", ";
        if (running > 0) what += countOf(running, "Aufnahme wurde", "Aufnahmen wurden") + " unterbrochen";
        if (!options_.repair) {
            if (running > 0) what += " (ein Import geht weiter, wo er aufhörte, wenn er wiederholt wird)";
            add(Severity::warning, "Aufnahmen", what + ".", "gleicht die Bibliothek ab");
            return;
        }
        MeetingLibrary library(root_);
        library.reconcile(meetings, chunks);
        library_ = library.snapshot();
        add(Severity::repaired, "Aufnahmen", what + "; die Bibliothek ist abgeglichen.");
    }

    void checkComplete(std::span<const AudioChunk> chunks) {
        std::unordered_map<UUID, std::size_t> found;
        for (const auto& chunk : chunks) ++found[chunk.sessionID];
        std::unordered_map<UUID, std::int64_t> registered;
        if (database_ != nullptr) registered = database_->registeredChunksBySession();
        for (const auto& meeting : library_.meetings) {
            if (AudioArchive::removed(meeting.id, root_)) continue;
            if (meeting.state == "interrupted") {
                add(Severity::note, "Aufnahmen",
                    "„" + meeting.title +
                        "“ wurde unterbrochen (ein Import geht weiter, wo er aufhörte, wenn er wiederholt "
                        "wird).");
            }
            const auto missing = meeting.missingChunks(registered[meeting.id], found[meeting.id]);
            // Without its manifest none of a meeting's audio is recognised, which is told of with the meeting.
            const auto folder = layout::meetingFolder(root_, meeting.id);
            if (missing == 0 || !pathExists(folder / layout::manifest)) continue;
            add(Severity::error, "Aufnahmen",
                "„" + meeting.title + "“: " +
                    countOf(static_cast<std::size_t>(missing), "Audioabschnitt fehlt",
                            "Audioabschnitte fehlen") +
                    " (was importiert wurde, stellt derselbe Import wieder her).");
        }
    }

    /// A meeting with a job is one whose windows were planned; the rest of a track may wait for more audio.
    void checkScheduled(std::span<const AudioChunk> chunks) {
        if (database_ == nullptr) return;
        const auto jobs = database_->jobStatsBySession();
        for (const auto& meeting : library_.meetings) {
            const auto has = [&](const AudioChunk& chunk) { return chunk.sessionID == meeting.id; };
            if (meeting.state != "completed" || jobs.contains(meeting.id)) continue;
            if (AudioArchive::removed(meeting.id, root_)) {
                add(Severity::error, "Aufträge",
                    "„" + meeting.title + "“ hat weder Audio noch Aufträge: Sein Transkript ist verloren.");
                continue;
            }
            if (std::ranges::none_of(chunks, has)) continue;
            const auto what = "„" + meeting.title + "“ hat Audio, aber keine Aufträge";
            if (!options_.repair) {
                add(Severity::error, "Aufträge", what + ".", "reiht sie neu ein");
                continue;
            }
            std::vector<AudioChunk> own;
            std::ranges::copy_if(chunks, std::back_inserter(own), has);
            guarded("Aufträge", [&] {
                for (const auto& chunk : own) database_->registerChunk(chunk);
                WorkScheduler::enqueue(own, *database_, true);
                add(Severity::repaired, "Aufträge", what + "; sie sind neu eingereiht.");
            });
        }
    }

    void checkMeetings() {
        std::size_t sound = 0;
        std::unordered_map<UUID, std::vector<std::string>> jobs;
        if (database_ != nullptr) jobs = database_->jobsWithResults();
        for (const auto& meeting : library_.meetings) {
            const auto folder = layout::meetingFolder(root_, meeting.id);
            if (!pathExists(folder)) {
                add(Severity::warning, "Meetings", "Der Ordner von „" + meeting.title + "“ fehlt.");
                continue;
            }
            try {
                if (database_ != nullptr)
                    TranscriptStorage::load(meeting.id, root_, jobs[meeting.id], *database_);
                if (!TranscriptStorage::readOptional<MeetingSession>(folder / layout::manifest)) {
                    throw MeetingError::storage("Das Sitzungsmanifest fehlt.");
                }
                RecordingImport::storedClock(meeting.id, root_);
                SpeechConfiguration::forSession(meeting.id, root_);
                TranscriptStorage::readOptional<std::vector<SessionEvent>>(folder / layout::events);
                TranscriptStorage::readOptional<SummaryInstructions>(folder / layout::summaryInstructions);
                TranscriptStorage::readOptional<SummaryArtifact>(folder / layout::summary);
                TranscriptStorage::readOptional<MeetingTitleArtifact>(folder / layout::automaticTitle);
                ++sound;
            } catch (const MeetingError& error) {
                add(Severity::error, "Meetings", "„" + meeting.title + "“: " + error.message());
            }
        }
        if (!library_.meetings.empty()) {
            add(Severity::fine, "Meetings", countOf(sound, "Meeting ist", "Meetings sind") + " lesbar.");
        }
    }

    /// What writes and recognitions that were cut off left behind.
    std::vector<fs::path> leftovers() {
        std::vector<fs::path> found;
        std::vector<std::pair<UUID, fs::path>> recognitions;
        const auto collect = [&](const fs::path& folder, const UUID& meeting) {
            for (const auto& name : FileManager::system().list(folder)) {
                const fs::directory_entry entry(folder / name);
                if (isInterruptedWrite(name) && fs::is_regular_file(entry.symlink_status()))
                    found.push_back(entry.path());
                if (isRecognition(entry)) recognitions.emplace_back(meeting, entry.path());
            }
        };
        guarded("Reste", [&] { collect(root_, {}); });
        for (const auto& meeting : library_.meetings) {
            const auto folder = layout::meetingFolder(root_, meeting.id);
            for (const auto& inner : {folder, folder / layout::summaryParts, folder / layout::audio}) {
                std::error_code unknown;
                if (fs::is_directory(fs::symlink_status(inner, unknown)))
                    guarded("Reste", [&] { collect(inner, meeting.id); });
            }
        }
        if (recognitions.empty() || database_ == nullptr) return found;
        // Recognition goes on without a lock, but under a lease, which it has before its folder. So it is asked
        // for after the folders were seen.
        auto jobs = database_->jobStatsBySession();
        for (auto& [meeting, path] : recognitions) {
            if (jobs[meeting]["running"] == 0) found.push_back(std::move(path));
        }
        return found;
    }

    void checkLeftovers() {
        const auto found = leftovers();
        if (found.empty()) return;
        const auto what = countOf(found.size(), "Rest eines unterbrochenen Schreibvorgangs",
                                  "Reste unterbrochener Schreibvorgänge");
        if (!options_.repair) {
            add(Severity::note, "Reste", what + ".", "räumt sie weg");
            return;
        }
        bool complete = true;
        for (const auto& path : found) {
            std::error_code failed;
            fs::remove_all(path, failed);
            if (!failed) continue;
            complete = false;
            add(Severity::error, "Reste", quotedName(path) + ": " + systemErrorText(failed.value()));
        }
        if (complete) add(Severity::repaired, "Reste", what + " entfernt.");
    }

    void checkModels(const fs::path& folder) {
        for (const auto& model : catalog_.models()) {
            try {
                catalog_.verify(model.id, folder);
                add(Severity::fine, "Modelle", model.filename + " ist unversehrt.");
            } catch (const MeetingError& error) {
                const bool missing = error.kind() == MeetingError::Kind::notConfigured;
                add(missing ? Severity::note : Severity::error, "Modelle", error.message());
            }
        }
    }

    std::string titleOf(const UUID& id) const {
        const auto found = std::ranges::find(library_.meetings, id, &MeetingEntry::id);
        return found == library_.meetings.end() ? id.string() : "„" + found->title + "“";
    }

    const fs::path& root_;
    const ModelCatalog& catalog_;
    const Options& options_;
    Date now_;
    std::vector<Finding> findings_;
    LibrarySnapshot library_;
    bool isLibraryBroken_ = false;
    std::unique_ptr<SQLiteJobStore> database_;
};

}  // namespace

std::vector<Finding> run(const fs::path& root, const ModelCatalog& catalog, const Options& options, Date now) {
    return Check(root, catalog, options, now).run();
}

}  // namespace meetingcore::LibraryCheck
