#pragma once

#include <string>

namespace meetingcore {

/// The recorder's decimal forms of numbers: the shortest digits that read back to the same value, positional
/// from 1e-4 up to and including 2^53, else with an exponent of at least two digits.
///
/// These bytes are hashed (fingerprints) and compared (job payloads), so they must match the other program's.
namespace number {

/// As JSON writes it: an integral value has no fraction (`12`, `-0`). `value` must be finite.
void appendJSON(std::string& out, double value);
void appendJSON(std::string& out, float value);

/// As the recorder prints a double: an integral value keeps its `.0` (`60.0`, `1e+16`).
std::string plain(double value);

}  // namespace number
}  // namespace meetingcore
