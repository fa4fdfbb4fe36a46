#pragma once

#include <cstdint>
#include <filesystem>

namespace meetingcore::benchmarks {

/// The dimensions of a `qwen3` model. The defaults are those of the model that the worker is made for: 2.5 GB.
struct ModelShape {
    std::uint32_t blocks = 36;
    std::uint32_t width = 2560;
    std::uint32_t feedForward = 9728;
    std::uint32_t heads = 32;
    std::uint32_t keyValueHeads = 8;
    std::uint32_t headSize = 128;
};

/// A GGUF file of this shape with the real vocabulary of 151,936 tokens and pseudo-random weights, quantised as
/// the usual Q4_K_M mix has them (Q4_K, the embedding and part of the value and down projections Q6_K). It
/// talks nonsense at the real model's cost.
///
/// Made once: kept in the user's cache folder under a name that tells its shape, and written to disk as it is
/// made, without holding it in memory. `vocabulary` is a GGUF file whose metadata is copied. Throws
/// `std::runtime_error`.
std::filesystem::path cachedModel(const ModelShape& shape, const std::filesystem::path& vocabulary);

}  // namespace meetingcore::benchmarks
