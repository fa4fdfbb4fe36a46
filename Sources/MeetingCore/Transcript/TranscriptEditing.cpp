#include "MeetingCore/Transcript/TranscriptEditing.h"

#include <algorithm>
#include <charconv>

#include "MeetingCore/Platform/Folding.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Platform/TypedReference.h"
#include "MeetingCore/Recording/FolderLayout.h"

namespace meetingcore::TranscriptEditing {

namespace {

constexpr std::size_t shortestBeginning = 8;

std::optional<std::size_t> number(std::string_view text) {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

void save(const TranscriptEdits& edits, const UUID& session, const std::filesystem::path& root,
          FileManager& files) {
    TranscriptStorage::save(edits, layout::meetingFolder(root, session) / layout::edits, files);
}

std::optional<std::string> textProblem(std::string_view text, std::size_t limit, const char* what) {
    if (!text::exceeds(text, limit) && text::repaired(text) == text) return std::nullopt;
    return std::string(what) + " darf höchstens " + std::to_string(limit) +
           " Zeichen haben und muss gültiges UTF-8 sein.";
}

void refuse(const std::optional<std::string>& problem) {
    if (problem) throw MeetingError::invalidData(*problem);
}

/// The diarization's id for what a person calls the speaker.
std::string findSpeaker(const TranscriptDocument& document, std::string_view reference) {
    const auto wanted = text::folded(text::trimmed(reference));
    std::vector<std::string> found;
    for (const auto& segment : document.segments) {
        if (!segment.speakerID) continue;
        if (*segment.speakerID == text::trimmed(reference)) return *segment.speakerID;
        if (text::folded(document.speakerLabel(segment)) == wanted &&
            std::ranges::find(found, *segment.speakerID) == found.end()) {
            found.push_back(*segment.speakerID);
        }
    }
    if (found.empty()) {
        throw MeetingError::invalidData("Kein Sprecher des Meetings passt zu " + inQuotes(reference) + ".");
    }
    if (found.size() > 1) {
        throw MeetingError::invalidData("Mehrere Sprecher heißen " + inQuotes(reference) +
                                        ". Bitte die Kennung angeben.");
    }
    return found.front();
}

}  // namespace

const TranscriptSegment& findSegment(const TranscriptDocument& document, std::string_view reference) {
    const auto wanted = text::trimmed(reference);
    if (const auto position = number(wanted);
        position && *position >= 1 && *position <= document.segments.size()) {
        return document.segments[*position - 1];
    }
    const TranscriptSegment* found = nullptr;
    for (const auto& segment : document.segments) {
        if (wanted.size() < shortestBeginning || !beginsWith(segment.id, wanted)) continue;
        if (found != nullptr) {
            throw MeetingError::invalidData("Mehrere Segmente passen zu " + inQuotes(wanted) + ".");
        }
        found = &segment;
    }
    if (found == nullptr) {
        throw MeetingError::invalidData("Kein Segment des Transkripts passt zu " + inQuotes(wanted) + ".");
    }
    return *found;
}

void correct(const UUID& session, std::string_view segment, std::string_view text,
             const std::filesystem::path& root, SQLiteJobStore& database, FileManager& files) {
    const auto document = TranscriptStorage::load(session, root, database, files);
    const auto& id = findSegment(document, segment).id;
    auto edits = document.edits;
    const std::string corrected(text::trimmed(text));
    refuse(textProblem(corrected, maximumTextCharacters, "Ein korrigierter Text"));
    const auto& raw = *std::ranges::find(document.rawSegments, id, &TranscriptSegment::id);
    if (corrected.empty() || corrected == raw.text) {
        edits.correctedText.erase(id.string());
    } else {
        edits.correctedText[id.string()] = corrected;
    }
    save(edits, session, root, files);
}

std::optional<std::string> nameProblem(std::string_view name) {
    if (auto problem = textProblem(name, maximumNameCharacters, "Ein Sprechername")) return problem;
    if (!text::containsControl(name)) return std::nullopt;
    return "Ein Sprechername darf keine Steuerzeichen enthalten.";
}

void nameSpeaker(const UUID& session, std::string_view speaker, std::string_view name,
                 const std::filesystem::path& root, SQLiteJobStore& database, FileManager& files) {
    const auto document = TranscriptStorage::load(session, root, database, files);
    const auto id = findSpeaker(document, speaker);
    const std::string wanted(text::trimmed(name));
    refuse(nameProblem(wanted));
    auto edits = document.edits;
    // A speaker's id comes from a diarization, so there is one.
    const auto& generation = document.diarization->generation;
    if (edits.speakerGeneration != generation) edits.speakerNames.clear();
    edits.speakerGeneration = generation;
    if (wanted.empty()) {
        edits.speakerNames.erase(id);
    } else {
        edits.speakerNames[id] = wanted;
    }
    save(edits, session, root, files);
}

}  // namespace meetingcore::TranscriptEditing
