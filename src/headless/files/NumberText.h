// Numbers in user-visible text, always in the C locale: the application sets the user's
// locale for Qt, and printf's "%.1f" would then write "48,0 kHz" on a German system.
//
// Thread class: pure functions; any thread.
#pragma once

#include <string>

namespace corvane::detail {

// printf's "%.<decimals>f".
std::string formatFixed(double value, int decimals);

// printf's "%g" (six significant digits, no trailing zeros).
std::string formatGeneral(double value);

}  // namespace corvane::detail
