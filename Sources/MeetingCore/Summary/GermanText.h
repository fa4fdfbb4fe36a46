#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "MeetingCore/Transcript/WorkerContracts.h"

struct sb_stemmer;

namespace meetingcore {

/// One spelling as it is compared: lower-cased, frequent spoken forms as their written ones ("ned" is "nicht").
/// Only the polite "Sie" and "Ihnen" keep their capital where it tells them from "sie" and "ihnen".
struct GermanWord {
    static constexpr std::uint32_t noStem = UINT32_MAX;

    std::string text;
    std::uint32_t stem = noStem;  ///< number of its stem (Snowball, German); none for words without content
    bool noun = false;            ///< written with a capital inside some sentence
};

/// One word of a sentence. Offsets are bytes in the segment's text.
struct GermanToken {
    std::uint32_t word = 0;  ///< place in GermanText::words
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    bool startsClause = false;  ///< first of the sentence or behind a comma, dash or colon
};

/// A sentence of at most 60 words; speech without a full stop is cut there.
struct GermanSentence {
    std::uint32_t segment = 0;
    std::uint32_t begin = 0;  ///< bytes in the segment's text, without white space around
    std::uint32_t end = 0;
    std::uint32_t firstToken = 0;
    std::uint32_t endToken = 0;
    bool question = false;  ///< ends in a question mark
};

/// The segments' texts as sentences and words. Refers to nothing once built. Accepts any bytes.
class GermanText {
public:
    explicit GermanText(std::span<const TranscriptSegment> segments);
    ~GermanText();
    GermanText(const GermanText&) = delete;
    GermanText& operator=(const GermanText&) = delete;

    /// Every sentence with at least one word, in order.
    const std::vector<GermanSentence>& sentences() const { return sentences_; }
    const std::vector<GermanWord>& words() const { return words_; }
    std::size_t stemCount() const { return stems_.size(); }

    std::span<const GermanToken> tokens(const GermanSentence& sentence) const {
        return std::span(tokens_).subspan(sentence.firstToken, sentence.endToken - sentence.firstToken);
    }
    /// How many of the sentence's words say what it is about.
    std::size_t contentWords(const GermanSentence& sentence) const;
    const std::string& text(const GermanToken& token) const { return words_[token.word].text; }

private:
    class Reader;

    std::uint32_t wordOf(std::string_view spelling, bool startsSentence);
    std::uint32_t stemOf(const std::string& word);

    std::unique_ptr<sb_stemmer, void (*)(sb_stemmer*)> stemmer_;
    std::unordered_map<std::string, std::uint32_t> spellings_;
    std::unordered_map<std::string, std::uint32_t> byText_;
    std::unordered_map<std::string, std::uint32_t> stems_;
    std::vector<GermanWord> words_;
    std::vector<GermanToken> tokens_;
    std::vector<GermanSentence> sentences_;
};

}  // namespace meetingcore
