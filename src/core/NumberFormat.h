// Numbers in text the user reads, always in the C locale's form.
//
// The application runs under the user's locale (Qt sets it at start-up), so printf's "%.1f"
// would write "-23,0" on a German system; std::to_chars never looks at the locale. Every
// user-visible level goes through these.
//
// Thread class: pure functions, any thread. Non-finite values give "-inf", "inf" or "nan".
#pragma once

#include <string>

namespace corvane {

// `value` with exactly `decimals` decimals, rounded to nearest ("%.1f"). A value that rounds
// to zero prints without a minus sign: "-0.0" reads as a level below zero that isn't there.
std::string formatFixed(double value, int decimals);

// As formatFixed, with a "+" before positive values and zero ("%+.1f").
std::string formatSigned(double value, int decimals);

// At most one decimal, a trailing ".0" dropped: -16 → "-16", -20.5 → "-20.5", 0.45 → "0.5".
std::string formatCompact(double value);

}  // namespace corvane
