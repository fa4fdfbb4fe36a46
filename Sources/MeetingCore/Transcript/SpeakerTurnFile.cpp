#include "MeetingCore/Transcript/SpeakerTurnFile.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <unordered_set>
#include <utility>

#include "MeetingCore/Platform/MeetingError.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Transcript/CaptionFile.h"
#include "MeetingCore/Transcript/FileProblems.h"
#include "MeetingCore/Transcript/ImportedFile.h"

namespace meetingcore {

namespace {

/// The fields of a record in Rich Transcription Time Marked files (NIST); the tenth is younger and may be
/// missing.
enum Field : std::size_t {
    type,
    recording,
    channel,
    start,
    duration,
    orthography,
    subtype,
    speaker,
    confidence
};
constexpr std::size_t fewestFields = confidence + 1;

constexpr std::string_view commentMark = ";;";

constexpr std::array<std::string_view, 14> recordTypes{
    "SPEAKER", "SPKR-INFO", "SEGMENT",    "NOSCORE", "NO_RT_METADATA",
    "LEXEME",  "NON-LEX",   "NON-SPEECH", "FILLER",  "EDIT",
    "IP",      "SU",        "CB",         "A/P"};

std::optional<double> number(std::string_view text) {
    double value = 0;
    const auto* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc{} || end != last || !std::isfinite(value) || value < 0) return std::nullopt;
    return value;
}

class TurnReader {
public:
    explicit TurnReader(std::string name) : file_{name, "Zeile", {}}, problems_(std::move(name), "Zeile") {}

    void line(std::string_view line) {
        ++place_;
        const auto fields = text::words(line);
        if (fields.empty() || fields.front().starts_with(commentMark)) return;
        if (std::find(recordTypes.begin(), recordTypes.end(), fields[type]) == recordTypes.end()) {
            return problems_.add(place_, "Die Zeile ist kein RTTM-Eintrag.");
        }
        if (fields[type] != "SPEAKER") return;
        if (fields.size() < fewestFields || fields.size() > fewestFields + 1) {
            return problems_.add(place_, "Die Zeile hat nicht neun oder zehn Felder.");
        }
        if (const auto problem = ImportedFile::lineProblem(line)) return problems_.add(place_, *problem);
        const auto begin = number(fields[start]);
        const auto length = number(fields[duration]);
        if (!begin || !length || !std::isfinite(*begin + *length)) {
            return problems_.add(place_, "Zeitangabe ist ungültig.");
        }
        if (fields[speaker] == "<NA>") return problems_.add(place_, "Der Sprecher fehlt.");
        if (*begin + *length <= *begin) return;
        file_.turns.push_back(
            {*begin, *begin + *length, std::string(fields[speaker]), std::string(fields[recording]), place_});
    }

    SpeakerTurnFile take() {
        problems_.throwIfAny();
        return std::move(file_);
    }

private:
    SpeakerTurnFile file_;
    FileProblems problems_;
    std::size_t place_ = 0;
};

/// Whether the first line that says anything is a record or a comment.
bool isRTTM(std::string_view text) {
    const auto first = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    const auto word = text.substr(first, text.find_first_of(" \t\r\n", first) - first);
    return word.starts_with(commentMark) ||
           std::find(recordTypes.begin(), recordTypes.end(), word) != recordTypes.end();
}

SpeakerTurnFile fromRTTM(std::string_view text, std::string name) {
    TurnReader reader(std::move(name));
    while (!text.empty()) reader.line(ImportedFile::takeLine(text));
    return reader.take();
}

SpeakerTurnFile fromVoices(const CaptionFile& captions) {
    SpeakerTurnFile file{captions.name, captions.placeName, {}};
    for (const auto& caption : captions.captions) {
        if (!caption.speaker || caption.endSeconds <= caption.startSeconds) continue;
        file.turns.push_back({caption.startSeconds, caption.endSeconds, *caption.speaker, {}, caption.place});
    }
    return file;
}

}  // namespace

SpeakerTurnFile SpeakerTurnFile::parse(std::string_view bytes, std::string name) {
    const auto text = ImportedFile::textOf(bytes, name);
    if (isRTTM(text)) return fromRTTM(text, std::move(name));
    return fromVoices(CaptionFile::parse(bytes, std::move(name), "RTTM"));
}

SpeakerTurnFile SpeakerTurnFile::read(const std::filesystem::path& file, FileManager& files) {
    auto imported = ImportedFile::read(file, files);
    return parse(imported.bytes, std::move(imported.name));
}

std::vector<std::string> SpeakerTurnFile::recordings() const {
    std::vector<std::string> names;
    std::unordered_set<std::string_view> known;
    for (const auto& turn : turns) {
        if (known.insert(turn.recording).second) names.push_back(turn.recording);
    }
    return names;
}

std::vector<SpeakerTurnFile::Turn> SpeakerTurnFile::of(const std::optional<std::string>& recording) const {
    if (turns.empty()) throw MeetingError::invalidData(name + " nennt keine Sprecher.");
    const auto names = recordings();
    if (!recording && names.size() > 1) {
        throw MeetingError::invalidData(name + " enthält mehrere Aufnahmen: „" + text::joined(names, "“, „") +
                                        "“. Bitte eine davon angeben.");
    }
    auto chosen = turns;
    if (recording) std::erase_if(chosen, [&](const Turn& turn) { return turn.recording != *recording; });
    if (chosen.empty()) throw MeetingError::invalidData(name + " enthält keine Aufnahme „" + *recording + "“.");
    return chosen;
}

}  // namespace meetingcore
