#include <algorithm>
#include <cmath>
#include <utility>

#include "MeetingCore/Platform/JSONReader.h"
#include "MeetingCore/Platform/Text.h"
#include "MeetingCore/Transcript/CaptionFormats.h"
#include "MeetingCore/Transcript/CaptionText.h"
#include "MeetingCore/Transcript/FileProblems.h"
#include "MeetingCore/Transcript/ImportedFile.h"

namespace meetingcore {

namespace {

/// whisper.cpp: milliseconds.
struct Offsets {
    double from = 0;
    double to = 0;
};

struct Token {
    std::optional<std::string> text;
    std::optional<Offsets> offsets;
};

struct Recognised {
    std::optional<Offsets> offsets;
    std::optional<std::string> text;
    std::optional<std::string> speaker;
    std::optional<std::vector<Token>> tokens;
};

/// WhisperX: seconds, left out where a word could not be aligned.
struct AlignedWord {
    std::optional<std::string> word;
    std::optional<double> start;
    std::optional<double> end;
};

struct Aligned {
    std::optional<double> start;
    std::optional<double> end;
    std::optional<std::string> text;
    std::optional<std::string> speaker;
    std::optional<std::vector<AlignedWord>> words;
};

struct CaptionDocument {
    std::optional<std::vector<Recognised>> transcription;
    std::optional<std::vector<Aligned>> segments;
};

}  // namespace

template <>
inline constexpr auto json::fields<Offsets> = json::record(json::field("from", &Offsets::from),
                                                           json::field("to", &Offsets::to));
template <>
inline constexpr auto json::fields<Token> = json::record(json::field("text", &Token::text),
                                                         json::field("offsets", &Token::offsets));
template <>
inline constexpr auto json::fields<Recognised> = json::record(json::field("offsets", &Recognised::offsets),
                                                              json::field("text", &Recognised::text),
                                                              json::field("speaker", &Recognised::speaker),
                                                              json::field("tokens", &Recognised::tokens));
template <>
inline constexpr auto json::fields<AlignedWord> = json::record(json::field("word", &AlignedWord::word),
                                                               json::field("start", &AlignedWord::start),
                                                               json::field("end", &AlignedWord::end));
template <>
inline constexpr auto json::fields<Aligned> = json::record(json::field("start", &Aligned::start),
                                                           json::field("end", &Aligned::end),
                                                           json::field("text", &Aligned::text),
                                                           json::field("speaker", &Aligned::speaker),
                                                           json::field("words", &Aligned::words));
template <>
inline constexpr auto json::fields<CaptionDocument> =
    json::record(json::field("transcription", &CaptionDocument::transcription),
                 json::field("segments", &CaptionDocument::segments));

namespace {

std::optional<double> seconds(const std::optional<Offsets>& offsets, double Offsets::*edge) {
    return offsets ? std::optional(*offsets.*edge / 1000) : std::nullopt;
}

/// Tokens are pieces of words; one that begins with a blank begins a word. Marks such as "[_BEG_]" are none.
std::vector<CaptionWord> wordsOf(const std::vector<Token>& tokens) {
    std::vector<CaptionWord> words;
    for (const auto& token : tokens) {
        if (!token.text || token.text->empty() || token.text->starts_with("[_")) continue;
        if (words.empty() || token.text->front() == ' ') {
            words.push_back({{}, seconds(token.offsets, &Offsets::from), {}});
        }
        words.back().text += *token.text;
        words.back().endSeconds = seconds(token.offsets, &Offsets::to);
    }
    return words;
}

std::vector<CaptionWord> wordsOf(const std::vector<AlignedWord>& aligned) {
    std::vector<CaptionWord> words;
    for (const auto& word : aligned) {
        if (word.word) words.push_back({*word.word, word.start, word.end});
    }
    return words;
}

/// Words as captions carry them: on one line, with both times or none.
std::vector<CaptionWord> tidied(std::vector<CaptionWord> words) {
    for (auto& word : words) {
        word.text = CaptionText::singleLine(word.text);
        const bool timed = word.startSeconds && word.endSeconds && *word.startSeconds >= 0 &&
                           std::isfinite(*word.endSeconds) && *word.startSeconds <= *word.endSeconds;
        if (!timed) word.startSeconds = word.endSeconds = std::nullopt;
    }
    std::erase_if(words, [](const CaptionWord& word) { return word.text.empty(); });
    return words;
}

/// "?" is what whisper.cpp writes where it cannot tell.
std::optional<std::string> speakerNamed(const std::optional<std::string>& name) {
    auto line = CaptionText::singleLine(name.value_or(""));
    return line.empty() || line == "?" ? std::nullopt : std::optional(std::move(line));
}

class Segments {
public:
    /// `isRepaired` where bytes that are no UTF-8 were replaced.
    Segments(std::string name, bool isRepaired)
        : file_{name, "Segment", {}}, problems_(std::move(name), "Segment"), isRepaired_(isRepaired) {}

    void add(std::optional<double> start, std::optional<double> end, const std::optional<std::string>& text,
             const std::optional<std::string>& speaker, std::vector<CaptionWord> words) {
        ++place_;
        if (!start || !end) return problems_.add(place_, "Zeitangabe fehlt.");
        if (!text) return problems_.add(place_, "Text fehlt.");
        if (isBroken(*text) || isBroken(speaker.value_or("")))
            return problems_.add(place_, ImportedFile::notUTF8);
        if (std::ranges::any_of(words, [&](const CaptionWord& word) { return isBroken(word.text); }))
            words.clear();  // the text itself is whole
        auto line = CaptionText::singleLine(*text);
        if (const auto problem = CaptionFormats::problem(*start, *end, line))
            return problems_.add(place_, *problem);
        if (line.empty()) return;
        file_.captions.push_back(
            {*start, *end, std::move(line), speakerNamed(speaker), tidied(std::move(words)), place_});
    }

    CaptionFile take() {
        problems_.throwIfAny();
        return std::move(file_);
    }

private:
    bool isBroken(std::string_view text) const {
        constexpr std::string_view replacementCharacter = "\uFFFD";
        return isRepaired_ && text.find(replacementCharacter) != std::string_view::npos;
    }

    CaptionFile file_;
    FileProblems problems_;
    bool isRepaired_;
    std::size_t place_ = 0;
};

}  // namespace

CaptionFile CaptionFormats::fromJSON(std::string_view text, std::string name) {
    // Recognisers whose tokens are bytes split characters between two of them.
    const auto repaired = text::repaired(text);
    const auto document = json::decode<CaptionDocument>(repaired, name);
    if (!document.transcription && !document.segments) {
        throw MeetingError::invalidData(name +
                                        " enthält keine Transkription („transcription“ oder „segments“).");
    }
    Segments segments(std::move(name), repaired != text);
    if (document.transcription) {
        for (const auto& part : *document.transcription) {
            segments.add(seconds(part.offsets, &Offsets::from), seconds(part.offsets, &Offsets::to), part.text,
                         part.speaker, part.tokens ? wordsOf(*part.tokens) : std::vector<CaptionWord>());
        }
    } else {
        for (const auto& part : *document.segments) {
            segments.add(part.start, part.end, part.text, part.speaker,
                         part.words ? wordsOf(*part.words) : std::vector<CaptionWord>());
        }
    }
    return segments.take();
}

}  // namespace meetingcore
