// AudioOutputStream: one RtAudio output stream on a device of the catalog, float32, planar.
//
// On JACK the stream is a client named `clientName` whose "outport N" ports are connected to
// the device's ports (the device is a JACK client, "system" for the hardware); its rate is
// the server's. On PulseAudio and ALSA the file's rate is asked for when the device offers
// it, else the device's preferred rate.
//
// Errors: open() throws AudioStreamError with the text the user sees. A stream that the
// backend drops later (the JACK server stops, a USB device goes) is reported by deviceLost(),
// which the owner polls from a main-thread timer and answers with a device re-scan.
//
// Thread class: every member on the main thread. The render function given to open() runs on
// the backend's audio thread.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "playback/AudioDeviceCatalog.h"

class RtAudio;

namespace corvane {

class AudioStreamError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class AudioOutputStream {
 public:
  // Fills `channels` planar arrays of `frames` floats. Audio thread; real-time safe.
  using RenderFunction = void (*)(void* context, float* const* out, int channels,
                                  int frames) noexcept;

  struct Params {
    AudioOutputDevice device;
    int channels = 2;           // at most device.outputChannelCount is opened
    double preferredRate = 48000.0;
    std::string clientName = "Corvane";
    unsigned bufferFrames = 512;  // a wish; JACK uses its own period
  };

  AudioOutputStream();
  ~AudioOutputStream();
  AudioOutputStream(const AudioOutputStream&) = delete;
  AudioOutputStream& operator=(const AudioOutputStream&) = delete;

  // The rate a stream on `device` will run at for a file of `fileRate`.
  static double streamRateFor(const AudioOutputDevice& device, double fileRate);

  // Opens (not starts) the stream. Throws AudioStreamError.
  void open(const Params& params, RenderFunction render, void* context);
  void close();
  bool isOpen() const;

  // False if the backend refused; the stream stays open.
  bool start();
  void stop();
  bool isRunning() const;

  double sampleRate() const { return _sampleRate; }
  int channels() const { return _channels; }
  unsigned bufferFrames() const { return _bufferFrames; }
  const AudioOutputDevice& device() const { return _device; }

  // The backend dropped the stream or reported an error since open(). Main thread.
  bool deviceLost() const;

 private:
  static int callback(void* output, void* input, unsigned int frames, double streamTime,
                      unsigned int status, void* self);

  std::unique_ptr<RtAudio> _rt;
  AudioOutputDevice _device;
  RenderFunction _render = nullptr;
  void* _context = nullptr;
  double _sampleRate = 0.0;
  int _channels = 0;
  unsigned _bufferFrames = 0;
  bool _opened = false;
  std::unique_ptr<float*[]> _channelPointers;
  unsigned long _errorsAtOpen = 0;
};

}  // namespace corvane
