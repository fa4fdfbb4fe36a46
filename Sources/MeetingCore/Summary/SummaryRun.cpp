#include "MeetingCore/Summary/SummaryRun.h"

#include "MeetingCore/Recording/AudioArchive.h"
#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

/// The absolute path without symbolic links as far as it exists, without `.` and `..` and without a slash at
/// its end.
fs::path resolved(const fs::path& path) {
    std::error_code error;
    auto absolute = fs::absolute(path.empty() ? fs::path(".") : path, error);
    if (error) absolute = path;
    auto result = fs::weakly_canonical(absolute, error);
    if (error) result = absolute.lexically_normal();
    return result.has_filename() ? result : result.parent_path();
}

/// A link that leads nowhere yet may lead out of the library by the time the summary is written.
bool isDangling(const fs::path& path) {
    std::error_code error;
    return fs::is_symlink(fs::symlink_status(path, error)) && !fs::exists(path, error);
}

fs::path folderWithin(const fs::path& root, const UUID& session) {
    const auto named = layout::meetingFolder(root, session);
    auto folder = resolved(named);
    if (isDangling(named.parent_path()) || isDangling(named) ||
        !folder.native().starts_with((root / layout::meetings).native() + "/")) {
        throw MeetingError::invalidData("Ungültiger Meetingpfad.");
    }
    return folder;
}

/// A database that is missing is lost, and an empty one in its place would cover that up.
fs::path existing(const fs::path& database) {
    if (!SQLiteJobStore::exists(database)) {
        throw MeetingError::invalidData("Noch kein Transkript zum Zusammenfassen.",
                                        MeetingError::Cause::transcriptIncomplete);
    }
    return database;
}

std::int64_t countUnfinished(SQLiteJobStore& database, const UUID& session) {
    auto counts = database.jobStats(session);
    return counts["pending"] + counts["running"] + counts["failed"];
}

}  // namespace

SummaryRun::SummaryRun(const UUID& session, const fs::path& root, FileManager& files)
    : session_(session),
      files_(files),
      root_(resolved(root)),
      folder_(folderWithin(root_, session)),
      lock_(root_, WorkerLock::Purpose::inference),
      database_(existing(root_ / layout::queue)),
      unfinishedJobs_(countUnfinished(database_, session)) {
    const bool audioRemoved = AudioArchive::removed(session, root_);
    if (!audioRemoved && unfinishedJobs_ > 0) {
        throw MeetingError::invalidData("Sprachverarbeitung muss zuerst vollständig abgeschlossen sein.",
                                        MeetingError::Cause::transcriptIncomplete);
    }
    document_ = TranscriptStorage::load(session, root_, database_, files_);
    if (document_.segments.empty()) {
        throw MeetingError::invalidData("Noch kein Transkript zum Zusammenfassen.",
                                        MeetingError::Cause::transcriptIncomplete);
    }
    if (!audioRemoved && document_.diarizationPending()) {
        throw MeetingError::invalidData("Die Sprecherzuordnung muss zuerst abgeschlossen sein.",
                                        MeetingError::Cause::speakersPending);
    }
    fingerprint_ = SummaryArtifact::fingerprint(document_);
}

void SummaryRun::requireCompleteForTitle() const {
    if (unfinishedJobs_ != 0 || document_.diarizationPending()) {
        throw MeetingError::invalidData(
            "Der Meeting-Titel wartet auf die vollständige Transkription und Sprecherzuordnung.");
    }
}

bool SummaryRun::transcriptChanged() const {
    const auto current = TranscriptStorage::load(session_, root_, database_, files_);
    return SummaryArtifact::fingerprint(current) != fingerprint_;
}

void SummaryRun::writeSummary(EvidenceSummary summary, std::optional<SummaryInstructions> instructions) const {
    if (transcriptChanged()) {
        throw MeetingError::invalidData(
            "Transkript wurde während der Zusammenfassung geändert. Bitte erneut starten.");
    }
    SummaryArtifact artifact;
    artifact.transcriptFingerprint = fingerprint_;
    artifact.createdAt = Date::now();
    artifact.summary = std::move(summary);
    artifact.instructions = std::move(instructions);
    TranscriptStorage::save(artifact, folder_ / layout::summary, files_);
}

void SummaryRun::writeTitle(std::string_view title) const {
    const auto artifact = MeetingTitleArtifact::make(fingerprint_, title);
    if (transcriptChanged()) {
        throw MeetingError::invalidData("Transkript wurde während der Titelerstellung geändert.");
    }
    TranscriptStorage::save(artifact, folder_ / layout::automaticTitle, files_);
}

}  // namespace meetingcore
