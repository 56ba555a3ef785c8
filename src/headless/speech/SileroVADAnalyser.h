// SileroVADAnalyser: the speech history of a recording, from the native Silero VAD network.
//
// One Boolean per 0.1 s block of the source, speechBlockCount(frames, rate) of them, the same
// count as the loudness processor's blocks, true where someone speaks. The road:
//   mono mix (each channel × 1 / channel count)
//   → 16 kHz through libsoxr (16 kHz sources unchanged)
//   → one speech probability per window (SileroVADNetwork, all cores)
//   → Silero's hysteresis with the tuning, 30 ms padding, no maximum speech length
//   → blocks (detectSpeechSegments, speechHistoryFromSegments; SpeechSegments.h says why).
// 8 kHz sources are upsampled to the 16 kHz branch too, not given to the model's own 8 kHz
// branch: one network for every rate keeps a recording's history the same whatever its rate,
// and on loud pink noise at 8 kHz the 8 kHz branch reached 0.54 where the 16 kHz branch on the
// same audio stayed at 0.32 (below the 0.35 that ends speech). setUseEightKilohertzBranch()
// chooses the 8 kHz branch for 8 kHz sources (telephone recordings, where it was trained).
//
// Without a usable model file the detector is unavailable: every call gives no history, and
// errorText() tells why in words for the user. The rest of the program works on without
// speech-gated figures.
//
// Thread class: detection takes seconds on long files; call it on a background thread. Any
// number of detections may run at once on one analyser. shared() may be called from any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"
#include "headless/speech/SileroVADModel.h"
#include "headless/speech/SileroVADTuning.h"

namespace corvane {

class SileroVADNetwork;

class SileroVADAnalyser {
 public:
  // The process's detector over the installed model (SileroVADModel's search order), loaded
  // on first use. Lives until the process ends.
  static SileroVADAnalyser& shared();

  // A detector over a loaded model.
  explicit SileroVADAnalyser(std::shared_ptr<const SileroVADModel> model);
  // A detector over the model file at `path`; unavailable with the loader's text when it fails.
  explicit SileroVADAnalyser(const std::filesystem::path& path);
  ~SileroVADAnalyser();
  SileroVADAnalyser(const SileroVADAnalyser&) = delete;
  SileroVADAnalyser& operator=(const SileroVADAnalyser&) = delete;

  bool isAvailable() const { return _model != nullptr; }
  // Why the detector is unavailable; empty when it is available.
  const std::string& errorText() const { return _errorText; }

  // The speech history of a mono mix at `sampleRate` Hz; nothing when the detector is
  // unavailable or the detection fails.
  std::optional<SpeechHistory> speechHistory(std::span<const float> monoMix, double sampleRate,
                                                 const SileroVADTuning& tuning) const;
  // The same for a buffer, mixed to mono on the way (without a copy of the whole mix).
  std::optional<SpeechHistory> speechHistory(const AudioBuffer& buffer, const SileroVADTuning& tuning) const;
  // The same for `frames` frames of planar channels (a selection, or copies of one), mixed
  // to mono on the way as for a buffer. The pointers are read during the call only.
  std::optional<SpeechHistory> speechHistory(std::span<const float* const> channels, FrameCount frames,
                                             double sampleRate, const SileroVADTuning& tuning) const;

  // As speechHistory(), but a failure throws: SpeechModelError when the detector is
  // unavailable, std::invalid_argument for a sample rate that is not positive,
  // std::runtime_error when resampling fails, std::bad_alloc.
  SpeechHistory detectSpeech(std::span<const float> monoMix, double sampleRate, const SileroVADTuning& tuning) const;
  SpeechHistory detectSpeech(const AudioBuffer& buffer, const SileroVADTuning& tuning) const;
  SpeechHistory detectSpeech(std::span<const float* const> channels, FrameCount frames, double sampleRate,
                             const SileroVADTuning& tuning) const;

  // What the network saw and said: the rate it ran at, its window, the number of samples at
  // that rate, one probability per window. For tests and diagnostics; throws as detectSpeech().
  struct Probabilities {
    int detectorRate = 0;
    int windowSamples = 0;
    std::int64_t detectorSamples = 0;
    std::vector<float> values;
  };
  Probabilities probabilities(std::span<const float> monoMix, double sampleRate) const;

  // Threads of one detection; 0 (the default) means one per core. Results do not depend on it.
  // Set it before detections start, not while one runs.
  void setThreadCount(int threads) { _threadCount = threads; }
  // Whether 8 kHz sources go to the model's 8 kHz branch (see above); false by default. Set it
  // before detections start.
  void setUseEightKilohertzBranch(bool use) { _useEightKilohertzBranch = use; }

 private:
  using MixReader = std::function<std::int64_t(float* out, std::int64_t count)>;
  Probabilities run(const MixReader& readMix, FrameCount frames, double sampleRate) const;
  SpeechHistory history(const MixReader& readMix, FrameCount frames, double sampleRate,
                            const SileroVADTuning& tuning) const;

  std::shared_ptr<const SileroVADModel> _model;
  std::unique_ptr<SileroVADNetwork> _network16k;
  std::unique_ptr<SileroVADNetwork> _network8k;
  std::string _errorText;
  int _threadCount = 0;
  bool _useEightKilohertzBranch = false;
};

}  // namespace corvane
