#pragma once

#include <cstdint>
#include <filesystem>

namespace meetingcore::benchmarks {

/// The dimensions of a `qwen3` model. The defaults are those of the model that the worker is made for.
struct ModelShape {
    std::uint32_t blocks = 36;
    std::uint32_t width = 2560;
    std::uint32_t feedForward = 9728;
    std::uint32_t heads = 32;
    std::uint32_t keyValueHeads = 8;
    std::uint32_t headSize = 128;
};

/// What every model made here answers to a prompt that ends with a line feed.
inline constexpr const char* scriptedTitle =
    R"({"title":"Budget für das dritte Quartal und Termine der Schulung"})";

/// A GGUF file of this shape with the real vocabulary of 151,936 tokens, quantised as the usual Q4_K_M mix has
/// it (Q4_K; the embedding and part of the value and down projections Q6_K). Every multiplication costs what it
/// costs in the real model, and yet the model writes an answer and ends it: its weights are pseudo-random, but
/// those that end a block are zero, and the output matrix leads from each token of the title to the next. For
/// that the output matrix is one of its own, where the real model uses its embedding a second time: 0.3 GB more
/// on disk, as many bytes read.
///
/// Made once: kept in the user's cache folder under a name that tells its shape, and written to disk as it is
/// made, without holding it in memory. `vocabulary` is a GGUF file whose metadata is copied. Throws
/// `std::runtime_error`.
std::filesystem::path cachedModel(const ModelShape& shape, const std::filesystem::path& vocabulary);

}  // namespace meetingcore::benchmarks
