#include "playback/AudioOutputStream.h"

#include "playback/RtAudioBackend.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

namespace corvane {

namespace {

// RtAudio's error callback carries no context; stream errors are rare, so one process-wide
// count serves every stream: a stream compares it with the count at its own opening.
std::atomic<unsigned long> gStreamErrors{0};

void countStreamError(RtAudioError::Type type, const std::string& text) {
  if (type == RtAudioError::WARNING || type == RtAudioError::DEBUG_WARNING) return;
  gStreamErrors.fetch_add(1, std::memory_order_relaxed);
  std::printf("[Playback] audio device error: %s\n", text.c_str());
  std::fflush(stdout);
}

}  // namespace

AudioOutputStream::AudioOutputStream() = default;

AudioOutputStream::~AudioOutputStream() { close(); }

double AudioOutputStream::streamRateFor(const AudioOutputDevice& device, double fileRate) {
  // JACK runs every client at the server's rate.
  if (device.backend == AudioBackend::jack && device.preferredSampleRate > 0) {
    return device.preferredSampleRate;
  }
  if (std::find(device.sampleRates.begin(), device.sampleRates.end(), fileRate) !=
      device.sampleRates.end()) {
    return fileRate;
  }
  if (device.preferredSampleRate > 0) return device.preferredSampleRate;
  if (!device.sampleRates.empty()) return device.sampleRates.back();
  return fileRate;
}

void AudioOutputStream::open(const Params& params, RenderFunction render, void* context) {
  close();
  _device = params.device;
  auto rt = std::make_unique<RtAudio>(rtAudioApiOf(params.device.backend));
  rt->showWarnings(false);
  // The device's position in the list of the moment: ids are names, indexes are not stable.
  unsigned index = 0;
  bool found = false;
  const unsigned count = rt->getDeviceCount();
  for (unsigned i = 0; i < count && !found; ++i) {
    try {
      const RtAudio::DeviceInfo info = rt->getDeviceInfo(i);
      if (info.probed && info.name == params.device.name) {
        index = i;
        found = true;
      }
    } catch (const RtAudioError&) {
    }
  }
  if (!found) {
    throw AudioStreamError("The audio device \"" + params.device.name + "\" is no longer available.");
  }
  RtAudio::StreamParameters output;
  output.deviceId = index;
  output.nChannels = static_cast<unsigned>(
      std::max(1, std::min(params.channels, std::max(params.device.outputChannelCount, 1))));
  output.firstChannel = 0;
  RtAudio::StreamOptions options;
  options.flags = RTAUDIO_NONINTERLEAVED | RTAUDIO_SCHEDULE_REALTIME;
  options.streamName = params.clientName;
  options.priority = 0;
  unsigned frames = params.bufferFrames;
  const double rate = streamRateFor(params.device, params.preferredRate);
  try {
    rt->openStream(&output, nullptr, RTAUDIO_FLOAT32, static_cast<unsigned>(rate), &frames,
                   &AudioOutputStream::callback, this, &options, &countStreamError);
  } catch (const RtAudioError& error) {
    throw AudioStreamError("Couldn't open the audio device \"" + params.device.name +
                           "\": " + error.getMessage());
  }
  if (!rt->isStreamOpen()) {
    throw AudioStreamError("Couldn't open the audio device \"" + params.device.name + "\".");
  }
  _rt = std::move(rt);
  _render = render;
  _context = context;
  _channels = static_cast<int>(output.nChannels);
  _sampleRate = _rt->getStreamSampleRate();
  _bufferFrames = frames;
  _channelPointers = std::make_unique<float*[]>(static_cast<std::size_t>(_channels));
  _errorsAtOpen = gStreamErrors.load(std::memory_order_relaxed);
  _opened = true;
}

void AudioOutputStream::close() {
  if (!_rt) return;
  try {
    if (_rt->isStreamRunning()) _rt->stopStream();
  } catch (const RtAudioError&) {
  }
  try {
    if (_rt->isStreamOpen()) _rt->closeStream();
  } catch (const RtAudioError&) {
  }
  _rt.reset();
  _opened = false;
}

bool AudioOutputStream::isOpen() const { return _rt && _rt->isStreamOpen(); }

bool AudioOutputStream::start() {
  if (!isOpen()) return false;
  if (_rt->isStreamRunning()) return true;
  try {
    _rt->startStream();
  } catch (const RtAudioError&) {
    return false;
  }
  return _rt->isStreamRunning();
}

void AudioOutputStream::stop() {
  if (!isOpen()) return;
  try {
    if (_rt->isStreamRunning()) _rt->stopStream();
  } catch (const RtAudioError&) {
  }
}

bool AudioOutputStream::isRunning() const { return _rt && _rt->isStreamRunning(); }

bool AudioOutputStream::deviceLost() const {
  if (!_opened) return false;
  return !isOpen() || gStreamErrors.load(std::memory_order_relaxed) != _errorsAtOpen;
}

int AudioOutputStream::callback(void* output, void*, unsigned int frames, double, unsigned int,
                                void* opaque) {
  auto* self = static_cast<AudioOutputStream*>(opaque);
  auto* samples = static_cast<float*>(output);
  for (int c = 0; c < self->_channels; ++c) {
    self->_channelPointers[static_cast<std::size_t>(c)] = samples + static_cast<std::size_t>(c) * frames;
  }
  self->_render(self->_context, self->_channelPointers.get(), self->_channels, static_cast<int>(frames));
  return 0;
}

}  // namespace corvane
