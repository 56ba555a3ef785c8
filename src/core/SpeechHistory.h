// SpeechHistory: which 0.1 s blocks of a file hold speech.
//
// Entry i covers the audio from i × 0.1 s to (i + 1) × 0.1 s of the file (or of the selection
// it was sliced for); true marks speech. Speech detection produces it, the loudness processor
// reads it to gate its speech measurements, and speech ranges and dialogue regions are built
// from it. It is immutable once made and shared read-only between threads, so the render
// thread can hold it while the main thread keeps its own reference.
#pragma once

#include <memory>
#include <vector>

namespace corvane {

using SpeechHistory = std::vector<bool>;
using SharedSpeechHistory = std::shared_ptr<const SpeechHistory>;

// Duration of one speech-history block (and of every loudness block), seconds.
inline constexpr double kLoudnessBlockSeconds = 0.1;

}  // namespace corvane
