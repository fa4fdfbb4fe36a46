#include "MeetingCore/Transcript/CommandTranscriber.h"

#include <algorithm>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Subprocess.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Recording/FolderLayout.h"
#include "MeetingCore/Recording/JoinedAudio.h"
#include "MeetingCore/Transcript/CaptionFile.h"
#include "MeetingCore/Transcript/InferenceData.h"

namespace meetingcore {

namespace fs = std::filesystem;

namespace {

/// What tells our own form of a result from the others.
struct ResultForm {
    std::optional<std::string> windowID;
};

}  // namespace

template <>
inline constexpr auto json::fields<ResultForm> = json::record(json::field("windowID", &ResultForm::windowID));

namespace {

constexpr std::string_view wavPlaceholder = "{wav}";
constexpr std::string_view blanks = " \t\r\n";

/// Splits a command by the quoting rules of a shell.
class CommandWords {
public:
    explicit CommandWords(std::string_view rest) : rest_(rest) {}

    std::vector<std::string> all() {
        std::vector<std::string> words;
        while (skipBlanks()) words.push_back(next());
        if (words.empty()) throw MeetingError::invalidData("Der Befehl ist leer.");
        return words;
    }

private:
    bool skipBlanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()));
        return !rest_.empty();
    }

    std::string next() {
        std::string word;
        while (!rest_.empty() && blanks.find(rest_.front()) == std::string_view::npos) {
            switch (const char c = take()) {
                case '\\':
                    word += take();
                    break;
                case '\'':
                    for (char quoted = take(); quoted != c; quoted = take()) word += quoted;
                    break;
                case '"':
                    appendDoublyQuoted(word);
                    break;
                default:
                    word += c;
            }
        }
        return word;
    }

    void appendDoublyQuoted(std::string& word) {
        constexpr std::string_view escapable = "\"\\$`";
        for (char c = take(); c != '"'; c = take()) {
            const bool escapes =
                c == '\\' && !rest_.empty() && escapable.find(rest_.front()) != std::string_view::npos;
            word += escapes ? take() : c;
        }
    }

    char take() {
        if (rest_.empty()) {
            throw MeetingError::invalidData(
                "Im Befehl fehlt am Ende ein Anführungszeichen oder ein Zeichen hinter „\\“.");
        }
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    std::string_view rest_;
};

constexpr std::string_view workFolderStart = ".Transkription.";
constexpr std::string_view workFolderEnd = layout::partialExtension;

/// A folder that goes with everything in it when the object does.
class WorkFolder {
public:
    WorkFolder(const fs::path& parent, FileManager& files)
        : path_(parent /
                (std::string(workFolderStart) + UUID::random().string() + std::string(workFolderEnd))) {
        files.createDirectory(path_);
    }
    ~WorkFolder() {
        std::error_code ignored;  // what stays is found like an incomplete chunk
        fs::remove_all(path_, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

/// Refuses chunks that no planner would have put together.
void requirePlanned(const TranscriptionWindow& window) {
    constexpr double longerThanAnyWindow = 1e9;
    const auto planned = WindowPlanner::plan(window.chunks, longerThanAnyWindow, true);
    if (planned.size() != 1 || planned.front() != window)
        throw MeetingError::invalidData("Ungültiges Verarbeitungsfenster.");
}

std::string inSeconds(std::chrono::milliseconds time) {
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    return whole == time ? std::to_string(whole.count()) + " s" : std::to_string(time.count()) + " ms";
}

const std::string resultName = "Das Ergebnis der Erkennung";

SpeechResult ownForm(const std::string& output) {
    auto result = json::decode<SpeechResult>(output, resultName);
    if (result.version != 1 && result.version != 2)
        throw MeetingError::invalidData("Unbekannte Transkriptversion.");
    // A program that knows one window only cannot know which ids the others use, and ids must be unique.
    for (auto& segment : result.segments) segment.id = UUID::random();
    return result;
}

/// Captions of the window's audio. Recognisers hear silence behind a short file, and often let the last segment
/// last until there.
SpeechResult fromCaptions(const std::string& output, const TranscriptionWindow& window) {
    SpeechResult result{1, window.id(), {}, {}};
    const double origin = window.startSeconds();
    for (auto& caption : CaptionFile::parse(output, resultName).captions) {
        const double start = origin + caption.startSeconds;
        const double end = std::min(origin + caption.endSeconds, std::max(start, window.endSeconds()));
        result.segments.push_back({UUID::random(), start, end, window.source, {}, std::move(caption.text)});
        for (auto& word : caption.words) {
            if (!word.startSeconds || !word.endSeconds) continue;
            result.words.push_back(
                {std::move(word.text), origin + *word.startSeconds, origin + *word.endSeconds});
        }
    }
    return result;
}

SpeechResult readResult(const std::string& output, const TranscriptionWindow& window) {
    const bool own = json::decode<ResultForm>(text::repaired(output), resultName).windowID.has_value();
    auto result = own ? ownForm(output) : fromCaptions(output, window);
    result.validate(window);
    return result;
}

}  // namespace

bool CommandTranscriber::isWorkFolder(std::string_view name) {
    return name.starts_with(workFolderStart) && name.ends_with(workFolderEnd);
}

CommandTranscriber::CommandTranscriber(std::string_view command, const fs::path& root,
                                       std::chrono::milliseconds timeLimit, FileManager& files)
    : words_(CommandWords(command).all()),
      meetings_(root / layout::meetings),
      timeLimit_(timeLimit),
      files_(files) {
    const bool named = std::any_of(words_.begin(), words_.end(), [](const std::string& word) {
        return word.find(wavPlaceholder) != std::string::npos;
    });
    if (!named) words_.emplace_back(wavPlaceholder);
}

std::future<SpeechResult> CommandTranscriber::transcribe(const TranscriptionWindow& window,
                                                         const StopRequest& stop) {
    return std::async(std::launch::async, [&] { return recognize(window, stop); });
}

SpeechResult CommandTranscriber::recognize(const TranscriptionWindow& window, const StopRequest& stop) {
    requirePlanned(window);
    const DurableChunkStore store(meetings_, files_);
    const WorkFolder folder(fs::absolute(store.sessionDirectory(window.sessionID)), files_);
    const auto wav = folder.path() / "audio.wav";
    const auto file = files_.createFile(wav);
    JoinedAudio(window.chunks, window.startSeconds()).write(*file, store, files_);
    file->close();

    auto arguments = words_;
    for (auto& word : arguments) {
        // The path comes last, since a folder may be named like a placeholder.
        word = text::replacing(word, "{start}", json::encode(window.startSeconds()));
        word = text::replacing(word, "{source}", json::nameOf(window.source));
        word = text::replacing(word, "{window}", window.id());
        word = text::replacing(word, wavPlaceholder, wav.string());
    }
    return readResult(run(std::move(arguments), stop), window);
}

/// The program's standard output.
std::string CommandTranscriber::run(std::vector<std::string> arguments, const StopRequest& stop) const {
    const auto name = quotedName(arguments.front());
    auto result = runSubprocess({.arguments = std::move(arguments), .timeLimit = timeLimit_}, stop);
    switch (result.end) {
        case SubprocessResult::End::stopped:
            throw MeetingError::invalidData("Die Erkennung wurde abgebrochen.");
        case SubprocessResult::End::timeLimit:
            throw MeetingError::invalidData(name + " brauchte länger als " + inSeconds(timeLimit_) +
                                            " und wurde beendet.");
        case SubprocessResult::End::outputLimit:
            throw MeetingError::invalidData(name + " schrieb eine zu große Ausgabe und wurde beendet.");
        case SubprocessResult::End::byItself:
            break;
    }
    if (result.status != 0) throw MeetingError::invalidData(name + " endete mit " + result.description());
    if (text::trimmed(result.output).empty())
        throw MeetingError::invalidData(name + " lieferte kein Ergebnis auf der Standardausgabe.");
    return std::move(result.output);
}

}  // namespace meetingcore
