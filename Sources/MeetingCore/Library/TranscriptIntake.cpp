#include "MeetingCore/Library/TranscriptIntake.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <unordered_map>
#include <utility>

#include "MeetingCore/Library/SpeakerIntake.h"
#include "MeetingCore/Library/WorkScheduler.h"
#include "MeetingCore/Recording/DurableChunkStore.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Transcript/FileProblems.h"

namespace meetingcore::TranscriptIntake {

namespace {

/// Longer than a busy database may take, and short enough to wait for after a crash.
constexpr double leaseSeconds = 10;

struct Span {
    double start;
    double end;
};

bool fits(const Span& span, const TranscriptionWindow& window) {
    return span.start >= window.startSeconds() - SpeechResult::secondsBeforeWindow &&
           span.end <= window.endSeconds() + SpeechResult::secondsAfterWindow;
}

struct PlacedWord {
    const CaptionWord* word;
    std::size_t window;
};

class Assignment {
public:
    explicit Assignment(std::span<const TranscriptionWindow> windows)
        : windows_(windows), results_(windows.size()) {
        for (std::size_t i = 0; i < windows.size(); ++i) results_[i].windowID = windows[i].id();
    }

    /// What is wrong with the caption; nothing where it was taken.
    std::optional<std::string_view> add(const Caption& caption) {
        const Span span{caption.startSeconds, caption.endSeconds};
        const auto window = windowOf(span);
        if (!window) return "Die Zeit liegt außerhalb der Aufnahme.";
        if (fits(span, windows_[*window]) || !cut(caption)) place(*window, span, caption.text);
        addWords(caption, *window);
        if (!std::exchange(overfull_, false)) return std::nullopt;
        return "Bis hierher fallen mehr als 20.000 Untertitel oder Wörter in einen Abschnitt der Aufnahme.";
    }

    std::vector<SpeechResult> take() {
        for (std::size_t i = 0; i < windows_.size(); ++i) {
            identify(results_[i], windows_[i].sessionID);
            results_[i].validate(windows_[i]);
        }
        return std::move(results_);
    }

private:
    static constexpr double tolerance = SpeakerIntake::secondsOutsideAudio;

    /// The window that shares most time with the span, or lies nearest to it.
    std::optional<std::size_t> windowOf(const Span& span) const {
        const auto first = std::partition_point(windows_.begin(), windows_.end(), [&](const auto& window) {
            return window.endSeconds() < span.start - tolerance;
        });
        std::optional<std::size_t> best;
        double most = -tolerance;
        for (auto window = first; window != windows_.end(); ++window) {
            if (window->startSeconds() > span.end + tolerance) break;
            const auto shared =
                std::min(span.end, window->endSeconds()) - std::max(span.start, window->startSeconds());
            if (shared < most) continue;
            most = shared;
            best = static_cast<std::size_t>(window - windows_.begin());
        }
        return best;
    }

    void place(std::size_t window, Span span, std::string text) {
        const auto& target = windows_[window];
        const auto earliest = std::max(0.0, target.startSeconds() - SpeechResult::secondsBeforeWindow);
        const auto latest = target.endSeconds() + SpeechResult::secondsAfterWindow;
        results_[window].segments.push_back({{},
                                             std::clamp(span.start, earliest, latest),
                                             std::clamp(span.end, earliest, latest),
                                             target.source,
                                             std::nullopt,
                                             std::move(text)});
        overfull_ = overfull_ || results_[window].segments.size() == SpeechResult::maximumItems + 1;
    }

    /// Cuts a caption where its words change from one window to another. Words without times stay with the word
    /// before.
    bool cut(const Caption& caption) {
        const auto windowOfWord = [&](const CaptionWord& word) {
            return word.startSeconds ? windowOf({*word.startSeconds, *word.endSeconds}) : std::nullopt;
        };
        std::optional<std::size_t> window;
        for (auto word = caption.words.begin(); !window && word != caption.words.end(); ++word) {
            window = windowOfWord(*word);
        }
        if (!window) return false;
        std::vector<PlacedWord> placed;
        for (const auto& word : caption.words) {
            window = windowOfWord(word).value_or(*window);
            placed.push_back({&word, *window});
        }
        for (auto word = placed.begin(); word != placed.end();) {
            const auto next = std::find_if(
                word, placed.end(), [&](const PlacedWord& other) { return other.window != word->window; });
            placePiece({word, next});
            word = next;
        }
        return true;
    }

    /// At least one of the words has times.
    void placePiece(std::span<const PlacedWord> words) {
        Span span{HUGE_VAL, 0};
        std::string text;
        for (const auto& [word, window] : words) {
            if (!text.empty()) text += ' ';
            text += word->text;
            if (!word->startSeconds) continue;
            span = {std::min(span.start, *word->startSeconds), std::max(span.end, *word->endSeconds)};
        }
        place(words.front().window, span, std::move(text));
    }

    void addWords(const Caption& caption, std::size_t window) {
        for (const auto& word : caption.words) {
            if (!word.startSeconds) continue;
            const auto own = windowOf({*word.startSeconds, *word.endSeconds}).value_or(window);
            results_[own].words.push_back({word.text, *word.startSeconds, *word.endSeconds});
            overfull_ = overfull_ || results_[own].words.size() == SpeechResult::maximumItems + 1;
        }
    }

    /// Identifiers follow from the content: corrections stay with a segment that is imported again as it was,
    /// and leave one that changed.
    static void identify(SpeechResult& result, const UUID& session) {
        std::stable_sort(result.segments.begin(), result.segments.end(),
                         [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; });
        std::unordered_map<std::string, std::size_t> repeats;
        for (auto& segment : result.segments) {
            auto name = result.windowID + json::encode(segment);
            const auto repeat = repeats[name]++;
            if (repeat > 0) name += std::to_string(repeat);
            segment.id = UUID::derived(session, name);
        }
    }

    std::span<const TranscriptionWindow> windows_;
    std::vector<SpeechResult> results_;
    bool overfull_ = false;  ///< a result has just become larger than one may be
};

std::vector<AudioChunk> trackChunks(const UUID& session, AudioSource source, const std::filesystem::path& root,
                                    FileManager& files) {
    auto chunks = DurableChunkStore(root / layout::meetings, files).recoverTrack(session, source);
    if (chunks.empty())
        throw MeetingError::invalidData("Das Meeting hat auf dieser Tonspur keine Audioabschnitte.");
    return chunks;
}

[[noreturn]] void refuseBusyJob() {
    throw MeetingError::database("Ein Auftrag ist noch belegt. Bitte nach Ablauf der Sperre erneut versuchen.",
                                 MeetingError::Cause::jobBusy);
}

/// What is to be replaced may be broken.
bool isSame(const SpeechResult& result, const std::string& stored, Existing existing) {
    try {
        return json::decode<SpeechResult>(stored, "Das Ergebnis eines Transkriptionsauftrags") == result;
    } catch (const MeetingError&) {
        if (existing == Existing::refuse) throw;
        return false;
    }
}

/// The results that are not stored yet, with the state of their jobs.
std::vector<std::pair<const SpeechResult*, JobStatus>> unfinished(std::span<const SpeechResult> results,
                                                                  const UUID& session, SQLiteJobStore& database,
                                                                  Existing existing) {
    std::unordered_map<std::string, JobStatus> states;
    for (const auto& job : database.jobs(session)) states.emplace(job.id, job.status);
    std::vector<std::pair<const SpeechResult*, JobStatus>> open;
    for (const auto& result : results) {
        const auto status = states[result.windowID];
        if (status == JobStatus::running) refuseBusyJob();
        if (status == JobStatus::completed) {
            const auto stored = database.result(result.windowID).value_or("");
            if (isSame(result, stored, existing)) continue;
            if (existing == Existing::refuse) {
                throw MeetingError::invalidData("Diese Tonspur ist schon transkribiert.",
                                                MeetingError::Cause::alreadyThere);
            }
        }
        open.emplace_back(&result, status);
    }
    return open;
}

void finish(const SpeechResult& result, JobStatus status, SQLiteJobStore& database,
            const std::function<Date()>& clock) {
    if (status == JobStatus::completed) database.restartCompleted(result.windowID);
    if (status == JobStatus::failed) database.retryFailed(result.windowID);
    const auto lease = database.claim(result.windowID, clock(), leaseSeconds);
    if (!lease) refuseBusyJob();  // someone was faster
    database.finish(*lease, json::encode(result), clock());
}

}  // namespace

std::vector<SpeechResult> assign(const CaptionFile& file, std::span<const TranscriptionWindow> windows) {
    Assignment assignment(windows);
    FileProblems problems(file.name, file.placeName);
    for (const auto& caption : file.captions) {
        if (const auto problem = assignment.add(caption)) problems.add(caption.place, *problem);
    }
    problems.throwIfAny();
    return assignment.take();
}

Report take(const UUID& session, AudioSource source, const CaptionFile& file, const std::filesystem::path& root,
            SQLiteJobStore& database, Existing existing, const std::function<Date()>& clock,
            FileManager& files) {
    auto coverage = WorkScheduler::coverage(session, trackChunks(session, source, root, files), database);
    std::erase_if(coverage.windows, [&](const auto& window) { return window.source != source; });
    std::ranges::move(WorkScheduler::windows(coverage.unplanned, /*flushTail=*/true),
                      std::back_inserter(coverage.windows));
    std::ranges::stable_sort(coverage.windows, {}, &TranscriptionWindow::startSeconds);
    const auto results = assign(file, coverage.windows);
    WorkScheduler::enqueue(coverage.unplanned, database, /*flushTail=*/true);
    database.recoverExpired(clock());
    const auto open = unfinished(results, session, database, existing);
    for (const auto& [result, status] : open) finish(*result, status, database, clock);
    SpeakerIntake::settle(session, root, database, files);
    Report report{results.size(), open.size(), 0};
    for (const auto& result : results) report.segments += result.segments.size();
    return report;
}

}  // namespace meetingcore::TranscriptIntake
