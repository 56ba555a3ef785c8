// RenderChain: everything the device callback runs, in the order of the live path:
//
//   source (PlaybackRenderer: routing, phase, gain, limiter, callback filter, analysis feed)
//   → time-pitch (bypassed at 1.0×) → EQ (two-channel graph only) → output tap
//   → channel map onto the device's channels → rate conversion to the device (when it differs)
//
// The chain works in the graph's format (the file's rate, graphChannels() channels) and
// delivers the device's (deviceRate, deviceChannels). It also turns the source's "reached the
// end" into the end-of-file flag, once the end has come out of the time-pitch and rate stages.
//
// The same render() serves the RtAudio stream, offline rendering and the tests, so what is
// measured offline is what plays.
//
// Thread class: construction, setPlaybackRate and destruction on the main thread; render() on
// one render thread at a time: no allocation, no lock, no wait, noexcept.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "playback/OutputTap.h"
#include "playback/PlaybackRenderer.h"
#include "playback/RenderMirrors.h"
#include "playback/StreamResampler.h"
#include "playback/TimePitchStage.h"

namespace corvane {

struct RenderChainSetup {
  int graphChannels = 2;
  int fileChannels = 1;
  double fileRate = 48000.0;
  int deviceChannels = 2;
  double deviceRate = 48000.0;
  // The two-channel graph's EQ (reads RenderMirrors::_atomicEqSpec).
  bool hasEq = false;
  // One entry per device channel: the graph channel it plays, -1 for silence. Empty: device
  // channel i plays graph channel i while both exist.
  std::vector<std::int32_t> channelMap;
  double playbackRate = 1.0;
  bool preservePitch = true;
  LoudnessProcessor* loudness = nullptr;
  TruePeakLimiterDSP* limiter = nullptr;
  SpeechHistoryHandover* speechHandover = nullptr;
};

class RenderChain {
 public:
  // Called at the start (entering true) and end of every render() on the render thread; for
  // instrumentation (allocation counters, timing). Must itself be real-time safe.
  using Probe = void (*)(void* context, bool entering) noexcept;

  // Throws std::runtime_error if a time-pitch or rate stage cannot be made.
  RenderChain(RenderMirrors& mirrors, const RenderChainSetup& setup);
  ~RenderChain();
  RenderChain(const RenderChain&) = delete;
  RenderChain& operator=(const RenderChain&) = delete;

  int graphChannels() const { return _graphChannels; }
  int deviceChannels() const { return _deviceChannels; }
  double deviceRate() const { return _deviceRate; }
  double fileRate() const { return _fileRate; }
  bool resamplesToDevice() const { return static_cast<bool>(_deviceResampler); }

  // Main thread: a new time-pitch stage for this speed, in force from the next buffer.
  // Throws std::runtime_error if it cannot be made (the old one stays).
  void setPlaybackRate(double rate, bool preservePitch);
  // Main thread: the form of the time-pitch stage in force.
  TimePitchStage::Mode timePitchMode() const;

  // Main thread, while nothing renders: installs or removes the probe.
  void setProbe(Probe probe, void* context);

  // Render thread. `deviceOut`: deviceChannels() planar arrays of `frames` floats.
  void render(float* const* deviceOut, int frames) noexcept;

  PlaybackRenderer& renderer() { return *_renderer; }
  const PlaybackRenderer& renderer() const { return *_renderer; }
  const OutputTap& outputTap() const { return *_tap; }

 private:
  static void pullSource(void* self, float* const* out, int frames) noexcept;
  static void pullGraph(void* self, float* const* out, int frames) noexcept;
  void renderGraph(float* const* out, int frames) noexcept;
  int tailDeviceFrames(const TimePitchStage* stage) const noexcept;

  RenderMirrors& _mirrors;
  int _graphChannels;
  int _deviceChannels;
  double _fileRate;
  double _deviceRate;
  bool _hasEq;
  std::vector<std::int32_t> _channelMap;
  std::unique_ptr<PlaybackRenderer> _renderer;
  std::unique_ptr<OutputTap> _tap;
  std::unique_ptr<StreamResampler> _deviceResampler;
  SnapshotSlot<TimePitchStage> _timePitch;
  std::atomic<Probe> _probe{nullptr};
  std::atomic<void*> _probeContext{nullptr};

  // Render-thread state.
  std::vector<float> _graphStorage;     // graphChannels × kMaxRenderBlockFrames
  std::vector<float*> _graphBuffers;
  std::vector<float*> _deviceOffsets;   // deviceChannels
  std::uint64_t _endGeneration = 0;     // pass whose source reached the end, 0: none
  std::int64_t _drainedFrames = 0;
};

}  // namespace corvane
