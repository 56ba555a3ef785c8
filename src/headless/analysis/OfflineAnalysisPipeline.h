// OfflineAnalysisPipeline: one whole-file analysis without a session, for the command-line
// tool, the desktop actions and reports built from a file on disk.
//
// analyzeFile loads the file through the file layer (AudioFileModel::load: decoding, canonical
// channel order, peaks, clip regions, identity) and runs the offline analysis pass over all of
// it: the same pass, with the same figures, as "Analyse" on the whole file in the window. On
// top it gives the stereo width curve of channels 0 and 1 when asked for, as the file metrics
// of a loaded file do.
//
// Thread class: analyzeFile blocks for the whole load and pass (seconds for an hour of
// audio); call it off the main thread in an interactive program. Independent calls may run at
// the same time.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "headless/analysis/SelectionAnalysis.h"
#include "headless/analysis/StereoWidthCurve.h"
#include "headless/files/AudioFileModel.h"

namespace corvane {

class OfflineAnalysisPipeline {
 public:
  struct Options {
    // Run the speech detector (with the default tuning) for speech-gated figures and ranges.
    bool detectSpeech = true;
    // Compute the stereo width curve (files of two or more channels).
    bool stereoCorrelation = true;
    // The display settings the pass would take from the session; defaults are the session's.
    int fftSize = 4096;
    int spectrogramFftSize = 4096;
    int overlapFactor = 4;
    std::optional<int> spectrogramChannelIndex;
    bool fftExactAverage = false;
    // 1 keeps the pass on the calling thread (the speech detector has its own threads).
    int threadCount = 2;
  };

  struct Result {
    // The file as loaded. Its pcmBuffer holds no frames (only the channel positions, for the
    // channel labels), so a result does not keep the decoded audio alive.
    AudioFileModel file;
    // The pass over 0 ... duration.
    SelectionAnalysisResult analysis;
    SpectrogramColumns spectrogramColumns;
    // The history the speech figures come from; null when detection was off or failed.
    SharedSpeechHistory speechHistory;
    // Why there are no speech figures although detection was asked for; empty otherwise.
    std::string speechDetectionError;
    // Correlation of channels 0 and 1 per 0.1 s; empty for mono or when not asked for.
    std::vector<StereoWidthCurvePoint> stereoWidthCurve;
  };

  // Throws what the load throws (AudioError, AudioDecodeError, RawPCMReadError: texts for the
  // user), std::runtime_error "The file holds no audio." for a file without frames,
  // std::invalid_argument for an FFT size that is not even and at least 2.
  static Result analyzeFile(const std::filesystem::path& at, const Options& options);
  // With the default options.
  static Result analyzeFile(const std::filesystem::path& at);
};

}  // namespace corvane
