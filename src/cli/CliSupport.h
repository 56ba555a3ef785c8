// Small helpers shared by the `corvane` subcommands: exit codes, error output and JSON
// number formatting.
#pragma once

#include <string>
#include <string_view>

namespace corvane::cli {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitNamedError = 1;
inline constexpr int kExitUsage = 2;

// Writes `message` and a newline to standard error.
void printError(std::string_view message);

// A double in the shortest form that reads back to the same value ("%.17g" trimmed by
// round-trip); non-finite values become "null" as JSON has no infinity.
std::string jsonNumber(double value);

// `text` as a JSON string literal, quotes included.
std::string jsonString(std::string_view text);

}  // namespace corvane::cli
