#include "MeetingCore/Library/AudioRetentionPolicy.h"

#include <algorithm>
#include <vector>

#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

template AudioRetentionPolicy json::decode(std::string_view, const std::string&);

namespace {

constexpr std::int64_t maximumDays = 36'500;
constexpr double secondsPerDay = 86'400;

bool isInRange(std::int64_t days) { return days >= 1 && days <= maximumDays; }

std::filesystem::path fileIn(const std::filesystem::path& root) { return root / layout::audioRetention; }

bool isTranscribed(const UUID& id, SQLiteJobStore& database, std::span<const AudioChunk> chunks) {
    auto jobs = database.jobStats(id);
    if (jobs["completed"] == 0 || jobs["pending"] + jobs["running"] + jobs["failed"] > 0) return false;
    const auto windows = WorkScheduler::windows(chunks, /*flushTail=*/true);
    return std::all_of(windows.begin(), windows.end(), [&](const TranscriptionWindow& window) {
        return database.result(window.id()).has_value();
    });
}

}  // namespace

AudioRetentionPolicy AudioRetentionPolicy::load(const std::filesystem::path& root, FileManager& files) {
    return TranscriptStorage::readOptional<AudioRetentionPolicy>(fileIn(root), files)
        .value_or(AudioRetentionPolicy{})
        .validated();
}

void AudioRetentionPolicy::save(const std::filesystem::path& root, FileManager& files) const {
    TranscriptStorage::save(validated(), fileIn(root), files);
}

AudioRetentionPolicy AudioRetentionPolicy::validated() const {
    if (days && !isInRange(*days)) {
        throw MeetingError::invalidData("Bitte 1 bis 36500 Tage oder „Nie“ wählen.");
    }
    return *this;
}

bool AudioRetentionPolicy::isDue(const MeetingEntry& meeting, const std::optional<Date>& endedAt,
                                 Date now) const {
    if (!days || !isInRange(*days) || meeting.state != "completed" || meeting.chunkCount <= 0) return false;
    if (!endedAt || *endedAt > now) return false;
    const double elapsed = now.secondsSinceReferenceDate() - endedAt->secondsSinceReferenceDate();
    return elapsed >= static_cast<double>(*days) * secondsPerDay;
}

bool AudioRetentionPolicy::fullyProcessed(const UUID& id, const std::filesystem::path& root,
                                          SQLiteJobStore& database, std::span<const AudioChunk> chunks,
                                          FileManager& files) {
    std::vector<AudioChunk> own;
    std::copy_if(chunks.begin(), chunks.end(), std::back_inserter(own),
                 [&](const AudioChunk& chunk) { return chunk.sessionID == id; });
    return !own.empty() && isTranscribed(id, database, own) &&
           !TranscriptStorage::load(id, root, database, files).diarizationPending();
}

}  // namespace meetingcore
