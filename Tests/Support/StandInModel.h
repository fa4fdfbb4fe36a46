#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace meetingcore::testing {

/// What a stand-in model says. A script is a list of pieces, one token each; the token of a piece leads to the
/// next piece's token whatever came before, so no piece may occur twice, in one script or in both.
struct StandInScript {
    /// What the model would rather say than its script, before every piece. Only the grammar holds it back, so
    /// these exercise the choice among the whole vocabulary.
    enum class Distraction { none, controlByte, endToken };

    std::vector<std::string> summaryPieces;
    std::vector<std::string> titlePieces;
    bool neverEnds =
        false;  ///< the last piece of each script leads to itself instead of to the end of the answer
    Distraction distraction = Distraction::none;

    /// The script that answers with these JSON objects, less the white space between their tokens, cut before
    /// blanks into pieces that occur once. Throws `std::invalid_argument` for what no script can say.
    static StandInScript answering(const std::string& summary, const std::string& title);
};

/// Writes a small GGUF file (architecture `llama`, one block, some hundred kilobytes) that llama.cpp loads like
/// any model and that says `script`: one-hot embeddings pass unchanged through a block of zero weights into an
/// output matrix that maps every token to its successor. Both scripts follow the line feed that ends every
/// prompt, the summary with the larger weight; which one comes is decided by the grammar alone, so the first
/// pieces must tell the scripts apart.
///
/// The vocabulary has all bytes, the chat markers as control tokens, letters and frequent German letter pairs
/// (so that token counts stay near those of a real model) and the pieces. The same script gives the same bytes
/// on every machine.
///
/// Overwrites `path`. Throws `std::invalid_argument` for a script that cannot be said, `std::runtime_error`
/// when the file cannot be written.
void writeStandInModel(const std::filesystem::path& path, const StandInScript& script);

/// Writes a catalog, in the form that SummaryWorkerFixture reads, whose only entry "summary" is this model file
/// as it is now. Overwrites `catalog`. Throws `std::runtime_error` when a file cannot be read or written.
void writeCatalog(const std::filesystem::path& catalog, const std::filesystem::path& model);

/// Writes a model of the same vocabulary with pseudo-random weights: it talks nonsense that depends on all that
/// was said before, so the grammar refuses its first choice again and again. `seed` decides the weights.
void writeBabblingModel(const std::filesystem::path& path, unsigned seed);

}  // namespace meetingcore::testing
