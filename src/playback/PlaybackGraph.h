// PlaybackGraph: the live audio graph of one loaded file on one output, built anew for every
// file, device change and change of shape (edit mode on a wide device, the effect chain).
//
//   setupEngine()  builds the render chain and opens the device stream (not started).
//   start()/stop() run and halt the stream; pause is the transport's business (the stream
//                  keeps running and the callback renders silence).
//   stopEngine()   closes the stream and drops the chain.
//
// Shapes. The graph is two channels wide (the "stereo graph", with the EQ after time-pitch)
// when the device has at most two outputs, or in edit mode for a file of one or two channels;
// in edit mode on a device of three or more outputs the fixed identity routing feeds the two
// graph channels and a channel map (editModeChannelMap) places them on the device. Otherwise
// the graph is as wide as the device (the "multichannel graph"), with the band filter inside
// the callback. Device channels: 2, or the selected device's output count if larger.
//
// Output. A device of the catalog through RtAudio, or a manual output that the caller drives
// with renderManual() (offline rendering, tests, benchmarks) through exactly the same chain.
//
// Thread class: main thread, except renderManual() (one driving thread at a time).
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/LoudnessProcessor.h"
#include "core/TruePeakLimiterDSP.h"
#include "playback/AudioOutputStream.h"
#include "playback/ChannelRouting.h"
#include "playback/RenderChain.h"
#include "playback/RenderMirrors.h"

namespace corvane {

// An output driven by the caller instead of a device.
struct ManualOutput {
  double sampleRate = 48000.0;
  int channels = 2;
};

struct PlaybackGraphSetup {
  SharedAudioBuffer buffer;  // the loaded file's samples; no graph without one
  bool editMode = false;
  // The selected output; none: the default of the backends (JACK, PulseAudio, ALSA).
  std::optional<AudioOutputDevice> device;
  // Instead of a device.
  std::optional<ManualOutput> manualOutput;
  // The user's routing, for the edit-mode channel map.
  ChannelRoutings routings;
  double playbackRate = 1.0;
  bool preservePitch = true;
  // BS.1770 weights of the file's channels (ChannelOrder::bs1770Weights) for the live meter.
  std::vector<double> loudnessWeights;
  SharedSpeechHistory speechHistory;
  std::optional<FreqRange> freqSelection;
  FreqFilterMode filterMode = FreqFilterMode::bandPass;
  // RtAudio/JACK client name of the stream.
  std::string clientName = "Corvane";
};

class PlaybackGraph {
 public:
  // The ceiling, look-ahead and release of the live target-match limiter.
  static constexpr float kLimiterCeilingDB = -1.0f;
  static constexpr float kLimiterLookaheadMs = 5.0f;
  static constexpr float kLimiterReleaseMs = 100.0f;

  explicit PlaybackGraph(RenderMirrors& mirrors);
  ~PlaybackGraph();
  PlaybackGraph(const PlaybackGraph&) = delete;
  PlaybackGraph& operator=(const PlaybackGraph&) = delete;

  // Builds the graph as the header describes and publishes the source, identity routing,
  // filter and cleared target-match mirrors. Returns false, with no graph and the reason in
  // lastError() (for the log; nothing is shown to the user), if there is no buffer, no output
  // device, or the device or a stage could not be opened.
  bool setupEngine(const PlaybackGraphSetup& setup);
  // Closes the stream and drops the chain; `_isPlayingAtomic` false.
  void stopEngine();
  bool exists() const { return static_cast<bool>(_chain); }
  const std::string& lastError() const { return _lastError; }

  bool start();
  void stop();
  bool isRunning() const;

  // Speed of the time-pitch stage (a new stage, from the next buffer).
  void updatePlaybackRate(double rate, bool preservePitch);
  // The band filter of a frequency selection, or none: the EQ in the two-channel graph, the
  // callback filter in the multichannel one. Filter state starts from zero.
  void applyFreqFilter(std::optional<FreqRange> selection, FreqFilterMode mode);
  // Hands a speech history to the live loudness processor: directly while the stream is
  // stopped, else through the render thread.
  void applySpeechHistory(SharedSpeechHistory history);

  bool isStereoGraph() const { return _stereoGraph; }
  int liveGraphChannels() const { return _chain ? _chain->graphChannels() : 0; }
  // Channels the graph addresses on the device: 2, or the device's output count if larger.
  int deviceChannels() const { return _deviceChannels; }
  // Channels of the open stream (or of the manual output): what renderManual() fills.
  int outputChannels() const { return _outputChannels; }
  bool usesIdentityRouting() const { return _identityRouting; }
  double deviceSampleRate() const { return _chain ? _chain->deviceRate() : 0.0; }
  const std::vector<std::int32_t>& channelMap() const { return _channelMap; }
  const std::optional<AudioOutputDevice>& device() const { return _device; }

  LoudnessProcessor* loudnessProcessor() { return _loudness.get(); }
  TruePeakLimiterDSP* targetMatchLimiter() { return _limiter.get(); }
  RenderChain* chain() { return _chain.get(); }
  const RenderChain* chain() const { return _chain.get(); }

  // Manual output only: renders `frames` frames into `out` (deviceChannels() planar arrays)
  // while started, silence otherwise. One driving thread at a time; real-time safe.
  void renderManual(float* const* out, int frames) noexcept;

  // Main-thread timer: frees what the render thread no longer holds, and reports whether the
  // device dropped the stream since the last call (the owner then re-scans the devices).
  bool poll();

 private:
  static void renderFromStream(void* self, float* const* out, int channels, int frames) noexcept;

  RenderMirrors& _mirrors;
  std::unique_ptr<LoudnessProcessor> _loudness;
  std::unique_ptr<TruePeakLimiterDSP> _limiter;
  std::unique_ptr<SpeechHistoryHandover> _speechHandover;
  std::unique_ptr<RenderChain> _chain;
  std::unique_ptr<AudioOutputStream> _stream;
  std::optional<AudioOutputDevice> _device;
  bool _manual = false;
  std::atomic<bool> _manualRunning{false};
  std::atomic<bool> _manualInside{false};
  bool _stereoGraph = true;
  bool _identityRouting = false;
  int _deviceChannels = 2;
  int _outputChannels = 2;
  double _fileRate = 48000.0;
  std::vector<std::int32_t> _channelMap;
  std::string _lastError;
  bool _reportedLoss = false;
};

}  // namespace corvane
