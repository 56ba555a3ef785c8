#include "headless/speech/SileroVADAnalyser.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "headless/speech/SileroVADNetwork.h"
#include "headless/speech/SpeechSegments.h"

namespace corvane {
namespace {

constexpr int kNetworkRate = 16000;
constexpr std::int64_t kMixChunkFrames = 1 << 16;

// Pulls the mix through libsoxr to the network's rate, in pieces, so that an hour of audio is
// never held twice. Gives exactly round(frames × outRate / inRate) samples: the resampler's
// flush supplies the tail, and zeros complete it should the resampler give a sample less.
class Resampler {
 public:
  Resampler(const std::function<std::int64_t(float*, std::int64_t)>& readMix, FrameCount frames, double inRate,
            double outRate)
      : _readMix(readMix),
        _expected(std::llround(static_cast<double>(frames) * outRate / inRate)),
        _input(static_cast<std::size_t>(kMixChunkFrames)),
        _output(static_cast<std::size_t>(std::ceil(kMixChunkFrames * outRate / inRate)) + 4096) {
    soxr_error_t error = nullptr;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    // One thread: the detection pipeline already spreads its work over the cores.
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    _soxr = soxr_create(inRate, outRate, 1, &error, &io, &quality, &runtime);
    if (error || !_soxr) throw std::runtime_error(std::string("Speech detection failed: cannot resample (") + (error ? error : "?") + ").");
  }
  ~Resampler() { soxr_delete(_soxr); }
  Resampler(const Resampler&) = delete;
  Resampler& operator=(const Resampler&) = delete;

  std::int64_t expectedSamples() const { return _expected; }

  std::int64_t read(float* out, std::int64_t count) {
    std::int64_t written = 0;
    while (written < count && _produced < _expected) {
      if (_outPosition < _outLength) {
        const std::int64_t n = std::min({count - written, static_cast<std::int64_t>(_outLength - _outPosition), _expected - _produced});
        std::copy_n(_output.data() + _outPosition, n, out + written);
        _outPosition += static_cast<std::size_t>(n);
        written += n;
        _produced += n;
        continue;
      }
      refill();
    }
    return written;
  }

 private:
  void refill() {
    _outPosition = 0;
    _outLength = 0;
    if (_inPosition == _inLength && !_inputEnded) {
      _inLength = static_cast<std::size_t>(std::max<std::int64_t>(0, _readMix(_input.data(), kMixChunkFrames)));
      _inPosition = 0;
      if (_inLength < static_cast<std::size_t>(kMixChunkFrames)) _inputEnded = true;
    }
    soxr_error_t error = nullptr;
    if (_inPosition < _inLength) {
      std::size_t used = 0;
      error = soxr_process(_soxr, _input.data() + _inPosition, _inLength - _inPosition, &used, _output.data(),
                           _output.size(), &_outLength);
      _inPosition += used;
    } else if (!_flushed) {
      error = soxr_process(_soxr, nullptr, 0, nullptr, _output.data(), _output.size(), &_outLength);
      if (_outLength == 0) _flushed = true;
    } else {
      // The resampler has given all it has; complete the promised length with silence.
      _outLength = static_cast<std::size_t>(std::min<std::int64_t>(_expected - _produced, static_cast<std::int64_t>(_output.size())));
      std::fill_n(_output.begin(), _outLength, 0.0f);
    }
    if (error) throw std::runtime_error(std::string("Speech detection failed: resampling failed (") + error + ").");
  }

  std::function<std::int64_t(float*, std::int64_t)> _readMix;
  std::int64_t _expected;
  std::int64_t _produced = 0;
  std::vector<float> _input;
  std::vector<float> _output;
  std::size_t _inPosition = 0, _inLength = 0, _outPosition = 0, _outLength = 0;
  bool _inputEnded = false, _flushed = false;
  soxr_t _soxr = nullptr;
};

}  // namespace

SileroVADAnalyser& SileroVADAnalyser::shared() {
  // Never destroyed: detections on background threads may outlive static destruction.
  static SileroVADAnalyser* instance = [] {
    std::shared_ptr<const SileroVADModel> model;
    std::string error;
    try {
      model = SileroVADModel::loadInstalled();
    } catch (const SpeechModelError& e) {
      error = e.what();
    }
    auto* analyser = new SileroVADAnalyser(std::move(model));
    if (!error.empty()) analyser->_errorText = error;
    return analyser;
  }();
  return *instance;
}

SileroVADAnalyser::SileroVADAnalyser(std::shared_ptr<const SileroVADModel> model) : _model(std::move(model)) {
  if (!_model) {
    _errorText = "Speech detection is unavailable: no model was loaded.";
    return;
  }
  _network16k = std::make_unique<SileroVADNetwork>(_model->branch16k());
  _network8k = std::make_unique<SileroVADNetwork>(_model->branch8k());
}

SileroVADAnalyser::SileroVADAnalyser(const std::filesystem::path& path) {
  try {
    _model = SileroVADModel::load(path);
    _network16k = std::make_unique<SileroVADNetwork>(_model->branch16k());
    _network8k = std::make_unique<SileroVADNetwork>(_model->branch8k());
  } catch (const SpeechModelError& e) {
    _model.reset();
    _errorText = e.what();
  }
}

SileroVADAnalyser::~SileroVADAnalyser() = default;

SileroVADAnalyser::Probabilities SileroVADAnalyser::run(const MixReader& readMix, FrameCount frames,
                                                        double sampleRate) const {
  if (!_model) throw SpeechModelError(_errorText);
  if (!(sampleRate > 0) || !std::isfinite(sampleRate)) {
    throw std::invalid_argument("Speech detection needs a positive sample rate.");
  }
  Probabilities result;
  const bool eightKilohertzBranch = sampleRate == 8000 && _useEightKilohertzBranch;
  if (eightKilohertzBranch || sampleRate == kNetworkRate) {
    const SileroVADNetwork& network = eightKilohertzBranch ? *_network8k : *_network16k;
    result.detectorRate = network.sampleRate();
    result.windowSamples = network.windowSamples();
    result.detectorSamples = frames;
    result.values = network.probabilities(readMix, _threadCount);
  } else {
    Resampler resampler(readMix, frames, sampleRate, kNetworkRate);
    result.detectorRate = kNetworkRate;
    result.windowSamples = _network16k->windowSamples();
    result.detectorSamples = resampler.expectedSamples();
    result.values = _network16k->probabilities(
        [&](float* out, std::int64_t count) { return resampler.read(out, count); }, _threadCount);
  }
  return result;
}

SpeechHistory SileroVADAnalyser::history(const MixReader& readMix, FrameCount frames, double sampleRate,
                                             const SileroVADTuning& tuning) const {
  const Probabilities p = run(readMix, frames, sampleRate);
  const auto segments = detectSpeechSegments(p.values, p.windowSamples, p.detectorRate, p.detectorSamples, tuning);
  return speechHistoryFromSegments(segments, p.detectorRate, frames, sampleRate);
}

namespace {

std::function<std::int64_t(float*, std::int64_t)> spanReader(std::span<const float> mix, std::size_t& position) {
  return [mix, &position](float* out, std::int64_t count) {
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(count), mix.size() - position);
    std::copy_n(mix.data() + position, n, out);
    position += n;
    return static_cast<std::int64_t>(n);
  };
}

// Mixes piece by piece: each channel × 1 / channel count, summed in channel order.
std::function<std::int64_t(float*, std::int64_t)> channelMixReader(std::span<const float* const> channels,
                                                                   FrameCount frames, FrameCount& position) {
  return [channels, frames, &position](float* out, std::int64_t count) {
    const FrameCount n = std::min<FrameCount>(count, frames - position);
    const float scale = 1.0f / static_cast<float>(std::max<std::size_t>(channels.size(), 1));
    std::fill_n(out, n, 0.0f);
    for (const float* channel : channels) {
      const float* in = channel + position;
      for (FrameCount i = 0; i < n; ++i) out[i] += in[i] * scale;
    }
    position += n;
    return static_cast<std::int64_t>(n);
  };
}

std::span<const float* const> channelsOf(const AudioBuffer& buffer) {
  return {buffer.channels(), static_cast<std::size_t>(buffer.channelCount())};
}

}  // namespace

SpeechHistory SileroVADAnalyser::detectSpeech(std::span<const float> monoMix, double sampleRate,
                                                  const SileroVADTuning& tuning) const {
  std::size_t position = 0;
  return history(spanReader(monoMix, position), static_cast<FrameCount>(monoMix.size()), sampleRate, tuning);
}

SpeechHistory SileroVADAnalyser::detectSpeech(const AudioBuffer& buffer, const SileroVADTuning& tuning) const {
  return detectSpeech(channelsOf(buffer), buffer.frameLength(), buffer.sampleRate(), tuning);
}

SpeechHistory SileroVADAnalyser::detectSpeech(std::span<const float* const> channels, FrameCount frames,
                                              double sampleRate, const SileroVADTuning& tuning) const {
  FrameCount position = 0;
  return history(channelMixReader(channels, frames, position), frames, sampleRate, tuning);
}

SileroVADAnalyser::Probabilities SileroVADAnalyser::probabilities(std::span<const float> monoMix,
                                                                  double sampleRate) const {
  std::size_t position = 0;
  return run(spanReader(monoMix, position), static_cast<FrameCount>(monoMix.size()), sampleRate);
}

std::optional<SpeechHistory> SileroVADAnalyser::speechHistory(std::span<const float> monoMix, double sampleRate,
                                                                  const SileroVADTuning& tuning) const {
  try {
    return detectSpeech(monoMix, sampleRate, tuning);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<SpeechHistory> SileroVADAnalyser::speechHistory(const AudioBuffer& buffer,
                                                                  const SileroVADTuning& tuning) const {
  return speechHistory(channelsOf(buffer), buffer.frameLength(), buffer.sampleRate(), tuning);
}

std::optional<SpeechHistory> SileroVADAnalyser::speechHistory(std::span<const float* const> channels,
                                                              FrameCount frames, double sampleRate,
                                                              const SileroVADTuning& tuning) const {
  try {
    return detectSpeech(channels, frames, sampleRate, tuning);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace corvane
