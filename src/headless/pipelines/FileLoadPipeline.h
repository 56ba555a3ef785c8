// FileLoadPipeline: the stages that take a file from its path to everything the session shows
// of it. The session runs it on a background task and lands each stage's result on the main
// thread; `corvane measure` and `corvane info` run the very same stages on their own thread,
// so a script gets the numbers the window shows.
//
// The stages, in order; a stage that ends the run skips every stage after it:
//   1. decode   AudioFileModel::load (with the raw format if one is given): the model with
//               peaks and clip regions, and the buffer. A failure goes to decodeFailed() and
//               ends the run.
//      pyramid  only when options.buildPyramid: buildWaveformPyramid (the session builds it on
//               a task of its own at low priority instead).
//   2. speech   only for a buffer with at least one channel and one frame; a file of no
//               frames ends here. With options.detectSpeech, the speech detector over the mono
//               mix (each channel × 1 / channels) with the tuning; its history, or none with
//               the reason when the detector is unavailable or fails.
//   3. metrics  computeSlotMetrics with that history (SlotMetrics.h). Only when
//               options.measure; a buffer whose rate gives a 0.1 s block of less than one
//               frame ends the run here.
//   4. spectrogram  only with options.computeSpectrogram and at least spectrogramFftSize
//               frames: computeLoadTimeSpectrogram with the FFT size, overlap factor and
//               channel index of the options.
// Before each stage the listener is asked whether anyone still wants the results (the session
// says no once it is gone); no means the run ends there. After each stage, before its result
// is handed over, options.afterStage (if set) is called on the running thread: a place for
// tests to hold a load back.
//
// Thread class: runFileLoad on any thread, one listener per run; it calls the listener on that
// thread. The stage functions are pure. Nothing throws out of runFileLoad but std::bad_alloc
// from stages 2 to 4.
#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/SpeechHistory.h"
#include "headless/analysis/SpectrogramColumns.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/RawPCMFormat.h"
#include "headless/pipelines/SlotMetrics.h"
#include "headless/speech/SileroVADTuning.h"

namespace corvane {

class SileroVADAnalyser;

enum class FileLoadStage { decode, pyramid, speech, metrics, spectrogram };

// "decode", "pyramid", "speech", "metrics", "spectrogram": for logs and tests.
const char* fileLoadStageName(FileLoadStage stage);

struct FileLoadOptions {
  // Stage 2: run the speech detector (the session always does; `corvane measure` on --speech).
  bool detectSpeech = true;
  SileroVADTuning vadTuning;
  // The detector to run; null: SileroVADAnalyser::shared().
  const SileroVADAnalyser* speechDetector = nullptr;
  // Stage 3.
  bool measure = true;
  // Threads of the measuring stage (computeSlotMetrics).
  int measureThreads = 2;
  // Stage 4 ("autoComputeSpectrogramOnLoad" in the session).
  bool computeSpectrogram = false;
  int spectrogramFftSize = 4096;
  // Of the spectrogram overlap setting: 4, 8, 16, 32 or 64.
  int spectrogramOverlapFactor = 4;
  // None: the columns mix all channels.
  std::optional<int> spectrogramChannelIndex;
  // Build the waveform pyramid in the run, after decoding.
  bool buildPyramid = false;
  // Called on the running thread after each stage, before its result is handed over.
  std::function<void(FileLoadStage)> afterStage;
};

struct FileLoadRequest {
  std::filesystem::path url;
  // Read the file as headerless PCM of this format instead of decoding it.
  std::optional<RawPCMFormat> rawFormat;
  FileLoadOptions options;
};

// The result of stage 2.
struct SpeechStageResult {
  SharedSpeechHistory history;  // null without a detection
  std::string failure;          // why there is none, in the user's words; empty when detection ran
};

// What the stages hand over, on the running thread.
class FileLoadListener {
 public:
  virtual ~FileLoadListener() = default;
  // Asked before each stage after the first: false ends the run.
  virtual bool wantsMore() { return true; }
  // Stage 1 failed; the run ends. `error` holds what load() threw (AudioError, AudioDecodeError,
  // RawPCMReadError, std::bad_alloc ...).
  virtual void decodeFailed(std::exception_ptr error) = 0;
  virtual void decoded(AudioFileModel model, SharedAudioBuffer buffer) = 0;
  virtual void pyramidBuilt(std::vector<WaveformPyramidLevel> /*levels*/) {}
  virtual void speechDetected(SpeechStageResult /*speech*/) {}
  virtual void measured(SlotMetrics /*metrics*/) {}
  virtual void spectrogramComputed(SpectrogramColumns /*columns*/) {}
};

// Runs the stages for `request`, handing each result to `listener`.
void runFileLoad(const FileLoadRequest& request, FileLoadListener& listener);

// ---- The stages one by one (runFileLoad calls these) ------------------------------------

// Whether the buffer gives a mono mix for speech detection: at least one channel and frame.
bool hasSpeechInput(const AudioBuffer& buffer);

// Stage 2 on a buffer with speech input.
SpeechStageResult detectFileSpeech(const AudioBuffer& buffer, const FileLoadOptions& options);

// Whether stage 3 can measure the buffer: a 0.1 s block of at least one frame.
bool canMeasure(const AudioBuffer& buffer);

// Whether stage 4 runs for the buffer under `options`.
bool spectrogramStageRuns(const AudioBuffer& buffer, const FileLoadOptions& options);

// Stage 4: the columns of the whole buffer.
SpectrogramColumns computeFileSpectrogram(const AudioBuffer& buffer, const FileLoadOptions& options);

}  // namespace corvane
