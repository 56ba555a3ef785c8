// Pieces of the texts the file layer shows the user. Numbers are always in the C locale: the
// application sets the user's locale for Qt, and printf's "%.1f" would then write "48,0 kHz"
// on a German system.
//
// Thread class: pure functions; any thread.
#pragma once

#include <filesystem>
#include <string>

namespace corvane::detail {

// printf's "%.<decimals>f".
std::string formatFixed(double value, int decimals);

// printf's "%g" (six significant digits, no trailing zeros).
std::string formatGeneral(double value);

// A file as error texts name it: its file name, or the whole path when it has none (a folder
// given with a trailing slash).
std::string displayFileName(const std::filesystem::path& url);

}  // namespace corvane::detail
