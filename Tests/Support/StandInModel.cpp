#include "Support/StandInModel.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <ggml.h>
#include <gguf.h>

#include "MeetingCore/Platform/JSON.h"
#include "MeetingCore/Summary/ModelCatalog.h"
#include "Support/FileContent.h"

namespace meetingcore::testing {
namespace {

constexpr std::int64_t headSize = 32;
constexpr std::int64_t feedForwardSize = 32;
constexpr std::size_t longestPiece = 64;

/// The types of tokens as GGUF files number them.
enum TokenType : std::int32_t { normal = 1, unknown = 2, control = 3, userDefined = 4, byte = 6 };

constexpr auto commonText =
    "▁ ä ö ü ß – „ “ en er ch de ei te in nd ie ge st ne be es un re an he au ng se it di ic sc da le ra hr or "
    "al ar "
    "is us tu li me ur ig ag el ss ll on ma ve um Me Ge En An nn mm tt zu ab io ha we so";

class Vocabulary {
public:
    Vocabulary() {
        add("<unk>", unknown);
        add("<|endoftext|>", control);
        add("<|im_start|>", control);
        end_ = add("<|im_end|>", control);
        add("<think>", userDefined);
        add("</think>", userDefined);
        for (unsigned value = 0; value < 256; ++value) {
            std::array<char, 8> text{};
            static_cast<void>(std::snprintf(text.data(), text.size(), "<0x%02X>", value));
            const auto token = add(text.data(), byte);
            if (value == 0) firstByte_ = token;
        }
        // Without these every letter would fall back to its byte, a path on which llama.cpp takes quadratic
        // time.
        for (char letter = '!'; letter <= '~'; ++letter) add(std::string(1, letter), normal);
        std::istringstream common(commonText);
        for (std::string text; common >> text;) add(text, normal);
    }

    std::size_t add(const std::string& text, TokenType type) {
        if (!known_.insert(text).second) throw std::invalid_argument("piece occurs twice: " + text);
        texts_.push_back(text);
        types_.push_back(type);
        return texts_.size() - 1;
    }

    bool knows(const std::string& text) const { return known_.contains(text); }
    std::size_t size() const { return texts_.size(); }
    std::size_t end() const { return end_; }
    std::size_t byteToken(unsigned char value) const { return firstByte_ + value; }

    void writeTo(gguf_context* file) const {
        std::vector<const char*> texts;
        for (const auto& text : texts_) texts.push_back(text.c_str());
        // Letter pairs merge in the order of the list; every other token is never merged from text.
        std::vector<float> scores(texts_.size(), 0.0F);
        for (std::size_t index = 0; index < scores.size(); ++index) scores[index] = -static_cast<float>(index);
        gguf_set_val_str(file, "tokenizer.ggml.model", "llama");
        gguf_set_arr_str(file, "tokenizer.ggml.tokens", texts.data(), texts.size());
        gguf_set_arr_data(file, "tokenizer.ggml.scores", GGUF_TYPE_FLOAT32, scores.data(), scores.size());
        gguf_set_arr_data(file, "tokenizer.ggml.token_type", GGUF_TYPE_INT32, types_.data(), types_.size());
        gguf_set_val_u32(file, "tokenizer.ggml.unknown_token_id", 0);
        gguf_set_val_u32(file, "tokenizer.ggml.bos_token_id", 1);
        gguf_set_val_u32(file, "tokenizer.ggml.eos_token_id", static_cast<std::uint32_t>(end_));
        gguf_set_val_bool(file, "tokenizer.ggml.add_bos_token", false);
        gguf_set_val_bool(file, "tokenizer.ggml.add_eos_token", false);
        gguf_set_val_bool(file, "tokenizer.ggml.add_space_prefix", false);
    }

private:
    std::vector<std::string> texts_;
    std::vector<std::int32_t> types_;
    std::set<std::string> known_;
    std::size_t end_ = 0;
    std::size_t firstByte_ = 0;
};

/// The tensors of a one-block model and the file that describes them.
class ModelFile {
public:
    ModelFile(const Vocabulary& vocabulary, std::int64_t width)
        : width_(width),
          vocabularySize_(static_cast<std::int64_t>(vocabulary.size())),
          file_(gguf_init_empty()),
          memory_(ggml_init(
              {.mem_size = bytesFor(width, vocabularySize_), .mem_buffer = nullptr, .no_alloc = false})),
          embedding_(add("token_embd.weight", width_, vocabularySize_)),
          output_(add("output.weight", width_, vocabularySize_)) {
        writeShape();
        vocabulary.writeTo(file_.get());
        for (const auto* norm : {"output_norm.weight", "blk.0.attn_norm.weight", "blk.0.ffn_norm.weight"}) {
            std::ranges::fill(values(add(norm, width_)), 1.0F);
        }
        const std::tuple<const char*, std::int64_t, std::int64_t> blocks[] = {
            // clang-format off
            {"attn_q", width_, headSize}, {"attn_k", width_, headSize}, {"attn_v", width_, headSize},
            {"attn_output", headSize, width_}, {"ffn_gate", width_, feedForwardSize},
            {"ffn_up", width_, feedForwardSize}, {"ffn_down", feedForwardSize, width_}};
        // clang-format on
        for (const auto& [name, columns, rows] : blocks)
            blocks_.push_back(add((std::string("blk.0.") + name + ".weight").c_str(), columns, rows));
    }

    /// The token's place in the one-hot embedding; tokens without a place embed as zero and lead nowhere.
    void place(std::size_t token, std::int64_t dimension) { cell(embedding_, token, dimension) = 1.0F; }
    void lead(std::int64_t dimension, std::size_t successor, float weight) {
        cell(output_, successor, dimension) = weight;
    }

    void fillAll(const std::function<float()>& next) {
        std::ranges::generate(values(embedding_), next);
        std::ranges::generate(values(output_), next);
        for (auto* block : blocks_) std::ranges::generate(values(block), next);
    }

    void write(const std::filesystem::path& path) const {
        if (!gguf_write_to_file(file_.get(), path.c_str(), /*only_meta=*/false)) {
            throw std::runtime_error("cannot write " + path.string());
        }
    }

private:
    struct Free {
        void operator()(gguf_context* file) const { gguf_free(file); }
        void operator()(ggml_context* memory) const { ggml_free(memory); }
    };

    static std::size_t bytesFor(std::int64_t width, std::int64_t vocabularySize) {
        const auto elements = 2 * width * vocabularySize + width * (4 * headSize + 3 * feedForwardSize + 3);
        return static_cast<std::size_t>(elements) * sizeof(float) + std::size_t{64} * 1024;
    }

    void writeShape() {
        // clang-format off
        const std::pair<const char*, std::int64_t> shape[] = {
            {"block_count", 1}, {"context_length", 8192}, {"embedding_length", width_}, {"vocab_size", vocabularySize_},
            {"feed_forward_length", feedForwardSize}, {"attention.head_count", 1}, {"attention.head_count_kv", 1},
            {"attention.key_length", headSize}, {"attention.value_length", headSize}, {"rope.dimension_count", headSize}};
        // clang-format on
        for (const auto& [name, value] : shape)
            gguf_set_val_u32(file_.get(), (std::string("llama.") + name).c_str(),
                             static_cast<std::uint32_t>(value));
        gguf_set_val_f32(file_.get(), "llama.attention.layer_norm_rms_epsilon", 1e-6F);
        gguf_set_val_str(file_.get(), "general.architecture", "llama");
        gguf_set_val_str(file_.get(), "general.name", "Stand-in");
    }

    ggml_tensor* add(const char* name, std::int64_t columns, std::int64_t rows = 1) {
        auto* tensor = rows == 1 ? ggml_new_tensor_1d(memory_.get(), GGML_TYPE_F32, columns)
                                 : ggml_new_tensor_2d(memory_.get(), GGML_TYPE_F32, columns, rows);
        ggml_set_name(tensor, name);
        std::ranges::fill(values(tensor), 0.0F);
        gguf_add_tensor(file_.get(), tensor);
        return tensor;
    }

    static std::span<float> values(ggml_tensor* tensor) {
        return {static_cast<float*>(tensor->data), static_cast<std::size_t>(ggml_nelements(tensor))};
    }

    float& cell(ggml_tensor* tensor, std::size_t token, std::int64_t dimension) const {
        return values(tensor)[token * static_cast<std::size_t>(width_) + static_cast<std::size_t>(dimension)];
    }

    std::int64_t width_;
    std::int64_t vocabularySize_;
    std::unique_ptr<gguf_context, Free> file_;
    std::unique_ptr<ggml_context, Free> memory_;
    ggml_tensor* embedding_;
    ggml_tensor* output_;
    std::vector<ggml_tensor*> blocks_;
};

/// The JSON text without white space between its tokens.
std::string compacted(const std::string& json) {
    std::string result;
    bool inString = false, escaped = false;
    for (const char character : json) {
        if (!inString && std::string_view(" \t\r\n").find(character) != std::string_view::npos) continue;
        if (character == '"' && !escaped) inString = !inString;
        escaped = character == '\\' && !escaped;
        result += character;
    }
    return result;
}

std::size_t nextCut(const std::string& text, std::size_t from) {
    auto cut = std::min(text.find(' ', from + 1), text.size());
    if (cut - from <= longestPiece) return cut;
    cut = from + longestPiece;
    while ((static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;  // no piece begins inside a character
    return cut;
}

/// Lengthens a piece until nothing else has its text; a rest that cannot be lengthened joins the piece before
/// it.
std::vector<std::string> cutIntoPieces(const std::string& text, std::set<std::string>& used) {
    std::vector<std::string> pieces;
    const Vocabulary vocabulary;
    const auto taken = [&](const std::string& piece) {
        return vocabulary.knows(piece) || used.contains(piece);
    };
    // The first piece names the first key, which tells a summary from a title.
    auto earliestCut = std::min(text.find(':'), text.size());
    for (std::size_t from = 0; from < text.size();) {
        auto end = nextCut(text, from);
        while (end < text.size() && (end < earliestCut || taken(text.substr(from, end - from)))) {
            end = nextCut(text, end);
        }
        auto piece = text.substr(from, end - from);
        while (taken(piece) && !pieces.empty()) {
            used.erase(pieces.back());
            piece.insert(0, pieces.back());
            pieces.pop_back();
        }
        used.insert(piece);
        pieces.push_back(std::move(piece));
        from = end;
        earliestCut = 0;
    }
    return pieces;
}

/// The tokens of a script, in order.
std::vector<std::size_t> addPieces(Vocabulary& vocabulary, const std::vector<std::string>& pieces) {
    if (pieces.empty()) throw std::invalid_argument("a script needs at least one piece");
    std::vector<std::size_t> tokens;
    for (const auto& piece : pieces) {
        // A line feed must stay the byte it is, since it starts the scripts; a zero ends a string in the file.
        if (piece.empty() || piece.find_first_of(std::string("\n\0", 2)) != std::string::npos) {
            throw std::invalid_argument("piece is empty or has a line feed or zero byte");
        }
        tokens.push_back(vocabulary.add(piece, userDefined));
    }
    return tokens;
}

}  // namespace

StandInScript StandInScript::answering(const std::string& summary, const std::string& title) {
    std::set<std::string> used;
    StandInScript script;
    script.summaryPieces = cutIntoPieces(compacted(summary), used);
    script.titlePieces = cutIntoPieces(compacted(title), used);
    return script;
}

void writeStandInModel(const std::filesystem::path& path, const StandInScript& script) {
    constexpr float titleWeight = 1, summaryWeight = 2, distractionWeight = 3;
    Vocabulary vocabulary;
    const auto summary = addPieces(vocabulary, script.summaryPieces);
    const auto title = addPieces(vocabulary, script.titlePieces);
    ModelFile file(vocabulary, static_cast<std::int64_t>(1 + summary.size() + title.size()));

    const auto distract = [&](std::int64_t dimension) {
        if (script.distraction == StandInScript::Distraction::none) return;
        const bool end = script.distraction == StandInScript::Distraction::endToken;
        file.lead(dimension, end ? vocabulary.end() : vocabulary.byteToken(0x01), distractionWeight);
    };
    file.place(vocabulary.byteToken('\n'), 0);
    file.lead(0, summary.front(), summaryWeight);
    file.lead(0, title.front(), titleWeight);
    distract(0);

    std::int64_t dimension = 1;
    for (const auto& tokens : {summary, title}) {
        for (std::size_t index = 0; index < tokens.size(); ++index, ++dimension) {
            const bool last = index + 1 == tokens.size();
            file.place(tokens[index], dimension);
            if (!last) distract(dimension);
            const auto afterLast = script.neverEnds ? tokens[index] : vocabulary.end();
            file.lead(dimension, last ? afterLast : tokens[index + 1], summaryWeight);
        }
    }
    file.write(path);
}

void writeCatalog(const std::filesystem::path& catalog, const std::filesystem::path& model) {
    const auto bytes = contentOf(model);
    const std::vector<LocalModel> models{
        {"summary", model.filename(), std::ssize(bytes), ModelCatalog::fingerprint(bytes)}};
    writeFile(catalog, json::encode(models));
}

void writeBabblingModel(const std::filesystem::path& path, unsigned seed) {
    const Vocabulary vocabulary;
    ModelFile file(vocabulary, 64);
    std::mt19937 random(seed);
    file.fillAll([&] { return static_cast<float>(random() >> 8U) / 0x1p23F - 1.0F; });
    file.write(path);
}

}  // namespace meetingcore::testing
