#include "RealShapeModel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <ggml.h>
#include <gguf.h>

#include "Support/BareModel.h"

namespace meetingcore::benchmarks {
namespace {

struct Free {
    void operator()(gguf_context* file) const { gguf_free(file); }
    void operator()(ggml_context* memory) const { ggml_free(memory); }
};
using GGUF = std::unique_ptr<gguf_context, Free>;

std::filesystem::path cacheFolder() {
    const char* cache = std::getenv("XDG_CACHE_HOME");
    const char* home = std::getenv("HOME");
    auto folder = cache && *cache ? std::filesystem::path(cache)
                  : home && *home ? std::filesystem::path(home) / ".cache"
                                  : std::filesystem::temp_directory_path();
    return folder / "meeting-core-benchmarks";
}

GGUF readMetadata(const std::filesystem::path& path) {
    GGUF file(gguf_init_from_file(path.c_str(), {.no_alloc = true, .ctx = nullptr}));
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return file;
}

void describe(gguf_context* file, const ModelShape& shape) {
    gguf_set_val_str(file, "general.architecture", "qwen3");
    gguf_set_val_str(file, "general.name", "Random weights");
    gguf_set_val_u32(file, "qwen3.block_count", shape.blocks);
    gguf_set_val_u32(file, "qwen3.context_length", 40960);
    gguf_set_val_u32(file, "qwen3.embedding_length", shape.width);
    gguf_set_val_u32(file, "qwen3.feed_forward_length", shape.feedForward);
    gguf_set_val_u32(file, "qwen3.attention.head_count", shape.heads);
    gguf_set_val_u32(file, "qwen3.attention.head_count_kv", shape.keyValueHeads);
    gguf_set_val_u32(file, "qwen3.attention.key_length", shape.headSize);
    gguf_set_val_u32(file, "qwen3.attention.value_length", shape.headSize);
    gguf_set_val_f32(file, "qwen3.rope.freq_base", 1e6F);
    gguf_set_val_f32(file, "qwen3.attention.layer_norm_rms_epsilon", 1e-6F);
}

/// The blocks that the Q4_K_M mix gives more bits: the first and last eighth and every third between.
bool hasMoreBits(std::uint32_t block, std::uint32_t blocks) {
    return block < blocks / 8 || block >= 7 * blocks / 8 || (block - blocks / 8) % 3 == 2;
}

/// The tensors' names and shapes, without data.
class Tensors {
public:
    Tensors(gguf_context* file, const ModelShape& shape, std::int64_t vocabularySize)
        : file_(file),
          memory_(ggml_init({.mem_size = ggml_tensor_overhead() * 16 * (shape.blocks + 1),
                             .mem_buffer = nullptr,
                             .no_alloc = true})) {
        add("token_embd.weight", GGML_TYPE_Q6_K, shape.width, vocabularySize);
        add("output.weight", GGML_TYPE_Q6_K, shape.width, vocabularySize);
        add("output_norm.weight", GGML_TYPE_F32, shape.width);
        for (std::uint32_t block = 0; block < shape.blocks; ++block) addBlock(shape, block);
    }

    const std::vector<ggml_tensor*>& list() const { return list_; }

private:
    void addBlock(const ModelShape& shape, std::uint32_t block) {
        const auto name = [&](const char* part) {
            return "blk." + std::to_string(block) + "." + part + ".weight";
        };
        const auto mixed = hasMoreBits(block, shape.blocks) ? GGML_TYPE_Q6_K : GGML_TYPE_Q4_K;
        const auto queries = shape.heads * shape.headSize;
        const auto keys = shape.keyValueHeads * shape.headSize;
        add(name("attn_norm"), GGML_TYPE_F32, shape.width);
        add(name("attn_q"), GGML_TYPE_Q4_K, shape.width, queries);
        add(name("attn_k"), GGML_TYPE_Q4_K, shape.width, keys);
        add(name("attn_v"), mixed, shape.width, keys);
        add(name("attn_output"), GGML_TYPE_Q4_K, queries, shape.width);
        add(name("attn_q_norm"), GGML_TYPE_F32, shape.headSize);
        add(name("attn_k_norm"), GGML_TYPE_F32, shape.headSize);
        add(name("ffn_norm"), GGML_TYPE_F32, shape.width);
        add(name("ffn_gate"), GGML_TYPE_Q4_K, shape.width, shape.feedForward);
        add(name("ffn_up"), GGML_TYPE_Q4_K, shape.width, shape.feedForward);
        add(name("ffn_down"), mixed, shape.feedForward, shape.width);
    }

    void add(const std::string& name, ggml_type type, std::int64_t columns, std::int64_t rows = 1) {
        auto* tensor = rows == 1 ? ggml_new_tensor_1d(memory_.get(), type, columns)
                                 : ggml_new_tensor_2d(memory_.get(), type, columns, rows);
        ggml_set_name(tensor, name.c_str());
        gguf_add_tensor(file_, tensor);
        list_.push_back(tensor);
    }

    gguf_context* file_;
    std::unique_ptr<ggml_context, Free> memory_;
    std::vector<ggml_tensor*> list_;
};

/// Random bytes are valid quantised weights but for the scale of each block, a 16-bit float that could be
/// infinite or not a number. It is set to a value that gives weights of the usual size, about 0.02.
std::vector<std::uint8_t> randomBlocks(ggml_type type, std::size_t bytes) {
    std::vector<std::uint8_t> data(bytes);
    std::mt19937_64 random(type);
    for (std::size_t at = 0; at + sizeof(std::uint64_t) <= bytes; at += sizeof(std::uint64_t)) {
        const auto value = random();
        std::memcpy(&data[at], &value, sizeof value);
    }
    const auto put = [&](std::size_t at, float value) {
        const auto half = ggml_fp32_to_fp16(value);
        std::memcpy(&data[at], &half, sizeof half);
    };
    const auto blockBytes = ggml_type_size(type);
    for (std::size_t at = 0; at + blockBytes <= bytes; at += blockBytes) {
        if (type == GGML_TYPE_Q4_K) {
            put(at, 1e-4F);             // scale of the weights, before them
            put(at + 2, 7.5F * 1e-4F);  // scale of the offsets: centres the weights on zero
        } else {
            put(at + blockBytes - sizeof(ggml_fp16_t), 1.5e-5F);
        }
    }
    return data;
}

bool leavesNoTrace(const std::string& name) {
    return name == "output.weight" || name.find("attn_output") != std::string::npos ||
           name.find("ffn_down") != std::string::npos;
}

class DataWriter {
public:
    explicit DataWriter(const std::filesystem::path& path)
        : file_(path, std::ios::binary | std::ios::in | std::ios::out | std::ios::ate), start_(file_.tellp()) {}

    void append(const ggml_tensor* tensor, std::size_t alignment) {
        const auto bytes = ggml_nbytes(tensor);
        if (tensor->type == GGML_TYPE_F32) {
            const std::vector<float> ones(static_cast<std::size_t>(ggml_nelements(tensor)), 1.0F);
            put(ones.data(), bytes);
        } else {
            const auto& pool = leavesNoTrace(tensor->name) ? zero_ : random(tensor->type);
            for (std::size_t done = 0; done < bytes; done += pool.size()) {
                put(pool.data(), std::min(bytes - done, pool.size()));
            }
        }
        put(zero_.data(), (alignment - bytes % alignment) % alignment);
    }

    /// Makes a row of one Q6_K tensor equal to a row of a random one, both at their offsets in the data.
    void copyRow(std::size_t from, std::size_t row, std::size_t to, std::size_t toRow, std::size_t rowBytes) {
        std::vector<char> bytes(rowBytes);
        file_.seekg(start_ + static_cast<std::streamoff>(from + row * rowBytes));
        file_.read(bytes.data(), static_cast<std::streamsize>(rowBytes));
        file_.seekp(start_ + static_cast<std::streamoff>(to + toRow * rowBytes));
        put(bytes.data(), rowBytes);
    }

    void close() {
        file_.close();
        if (!file_) throw std::runtime_error("cannot write the model's weights");
    }

private:
    const std::vector<std::uint8_t>& random(ggml_type type) const {
        return type == GGML_TYPE_Q4_K ? fourBit_ : sixBit_;
    }

    void put(const void* data, std::size_t bytes) {
        file_.write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
    }

    // Whole blocks of an odd number of rows of any shape, so that neighbouring rows differ.
    static constexpr std::size_t blocks = 99'991;
    std::vector<std::uint8_t> fourBit_ = randomBlocks(GGML_TYPE_Q4_K, blocks* ggml_type_size(GGML_TYPE_Q4_K));
    std::vector<std::uint8_t> sixBit_ = randomBlocks(GGML_TYPE_Q6_K, blocks* ggml_type_size(GGML_TYPE_Q6_K));
    std::vector<std::uint8_t> zero_ = std::vector<std::uint8_t>(blocks * ggml_type_size(GGML_TYPE_Q6_K));
    std::fstream file_;
    std::streamoff start_;
};

/// The line feed, the title's tokens, the end token. None may occur twice, since each leads to one other.
std::vector<llama_token> script(const std::filesystem::path& vocabulary) {
    const testing::BareModel words(vocabulary, /*vocabularyOnly=*/true);
    auto tokens = words.tokenize("\n");
    const auto title = words.tokenize(scriptedTitle);
    tokens.insert(tokens.end(), title.begin(), title.end());
    tokens.push_back(words.tokenize("<|im_end|>").front());
    if (std::set<llama_token>(tokens.begin(), tokens.end()).size() != tokens.size()) {
        throw std::runtime_error("the scripted title has a token twice");
    }
    return tokens;
}

void write(const std::filesystem::path& path, const ModelShape& shape,
           const std::filesystem::path& vocabulary) {
    const auto source = readMetadata(vocabulary);
    const auto vocabularySize =
        gguf_get_arr_n(source.get(), gguf_find_key(source.get(), "tokenizer.ggml.tokens"));
    const GGUF file(gguf_init_empty());
    gguf_set_kv(file.get(), source.get());
    describe(file.get(), shape);
    const Tensors tensors(file.get(), shape, static_cast<std::int64_t>(vocabularySize));
    if (!gguf_write_to_file(file.get(), path.c_str(), /*only_meta=*/true)) {
        throw std::runtime_error("cannot write " + path.string());
    }
    DataWriter data(path);
    for (const auto* tensor : tensors.list()) data.append(tensor, gguf_get_alignment(file.get()));
    const auto offset = [&](const char* name) {
        return gguf_get_tensor_offset(file.get(), gguf_find_tensor(file.get(), name));
    };
    const auto tokens = script(vocabulary);
    for (std::size_t index = 0; index + 1 < tokens.size(); ++index) {
        // A row that equals the embedding of a token gets the largest product with it.
        data.copyRow(offset("token_embd.weight"), static_cast<std::size_t>(tokens[index]),
                     offset("output.weight"), static_cast<std::size_t>(tokens[index + 1]),
                     ggml_row_size(GGML_TYPE_Q6_K, shape.width));
    }
    data.close();
}

}  // namespace

std::filesystem::path cachedModel(const ModelShape& shape, const std::filesystem::path& vocabulary) {
    const auto folder = cacheFolder();
    const auto name = "random-" + std::to_string(shape.blocks) + "x" + std::to_string(shape.width) + "-v2.gguf";
    if (std::filesystem::exists(folder / name)) return folder / name;
    std::cout << "Writing " << (folder / name).string() << " (once; delete it whenever you like)" << std::endl;
    std::filesystem::create_directories(folder);
    const auto partial = folder / ("." + name + ".partial");
    std::filesystem::remove(partial);
    write(partial, shape, vocabulary);
    std::filesystem::rename(partial, folder / name);
    return folder / name;
}

}  // namespace meetingcore::benchmarks
