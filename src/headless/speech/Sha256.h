// Sha256: the SHA-256 digest (FIPS 180-4) of a byte string.
//
// The speech detector checks its model file against a pinned digest before it trusts the
// weights: a file that parses but carries one damaged weight would give wrong speech
// histories without a word, and those feed every speech-gated measurement.
//
// Thread class: pure functions, any thread.
#pragma once

#include <span>
#include <string>

namespace corvane {

// The digest as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::span<const unsigned char> bytes);

}  // namespace corvane
