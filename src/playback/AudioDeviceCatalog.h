// AudioDeviceCatalog: the machine's audio devices and the choice of one output: PulseAudio/
// PipeWire and ALSA devices as RtAudio lists them, JACK clients read from the server itself
// (one port list per read, grouped by client: RtAudio's own JACK listing opens a client per
// device and splits a client whose ports interleave with another's in the server's order).
//
// A device's id is stable: its backend and its name ("jack:system", "alsa:hw:1,0"), never an
// enumeration index, which changes whenever anything is plugged in or a JACK client comes
// or goes. Playback reads the selected device when it builds its graph; recording takes the
// input list from here.
//
// The platform gives no change notices that cover every backend, so the owner re-reads the
// list every 2 seconds and after a device error (refresh() reports whether anything changed).
// A selected device that disappears is replaced by the default; one that is still listed
// stays as it was chosen. Nothing here rebuilds a graph: a new selection takes effect at the
// next graph build.
//
// Thread class: main thread only. refresh() may take a few milliseconds per backend (it
// opens a short-lived JACK client and probes ALSA cards).
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

enum class AudioBackend { jack, pulse, alsa };

// "JACK", "PulseAudio", "ALSA".
std::string_view audioBackendName(AudioBackend backend);

struct AudioOutputDevice {
  std::string id;  // stable: backend + ":" + name
  AudioBackend backend = AudioBackend::jack;
  std::string name;
  int outputChannelCount = 0;
  // The rate the device prefers (JACK: the server's rate, the only one it runs at), Hz.
  unsigned preferredSampleRate = 0;
  std::vector<unsigned> sampleRates;

  friend bool operator==(const AudioOutputDevice&, const AudioOutputDevice&) = default;
};

struct AudioInputDevice {
  std::string id;
  AudioBackend backend = AudioBackend::jack;
  std::string name;
  int inputChannelCount = 0;
  unsigned preferredSampleRate = 0;
  std::vector<unsigned> sampleRates;

  friend bool operator==(const AudioInputDevice&, const AudioInputDevice&) = default;
};

// The stable id of a device: "jack:system".
std::string audioDeviceId(AudioBackend backend, std::string_view name);

// One read of every backend.
struct AudioDeviceScan {
  std::vector<AudioOutputDevice> outputs;  // devices with at least one output channel
  std::vector<AudioInputDevice> inputs;    // devices with at least one input channel
  std::string defaultOutputId;             // empty when no backend names one
  std::string defaultInputId;
};

// Reads the devices of the given backends, in that order (the default order prefers a
// running JACK server, then PulseAudio/PipeWire, then ALSA). JACK clients whose names are in
// `ignoredJackClients` (this program's own streams) are left out.
AudioDeviceScan scanAudioDevices(const std::vector<AudioBackend>& backends,
                                 const std::set<std::string>& ignoredJackClients);

class AudioDeviceCatalog {
 public:
  // Texts of the output panel and the selector bar.
  static constexpr std::string_view kNoOutputDevicesText = "No output devices";
  static constexpr std::string_view kNoDeviceText = "No device";
  static constexpr std::string_view kNoOutputDeviceText = "No output device";
  // Seconds between two periodic re-reads.
  static constexpr double kRescanIntervalSec = 2.0;

  // The backends to read, in default-preference order; empty: every backend this RtAudio
  // was built with, JACK first. Reads the devices once.
  explicit AudioDeviceCatalog(std::vector<AudioBackend> backends = {},
                              std::set<std::string> ignoredJackClients = {});

  // Re-reads the backends. Outputs and inputs are published as read; a selected device whose
  // id is still listed stays as it was, otherwise the default (or nothing) is selected.
  // Returns whether the lists or the selection changed.
  bool refresh();
  // As refresh(), from a scan made elsewhere (tests, or a scan run off the main thread).
  bool applyScan(AudioDeviceScan scan);

  const std::vector<AudioOutputDevice>& outputDevices() const { return _outputs; }
  const std::optional<AudioOutputDevice>& selectedDevice() const { return _selected; }
  const std::vector<AudioInputDevice>& inputDevices() const { return _inputs; }

  // The user's choice (setOutputDevice). Any device record is taken as given.
  void selectDevice(std::optional<AudioOutputDevice> device) { _selected = std::move(device); }

  // The platform default found in `list` (the current lists when null); the first entry when
  // the default is not listed; nothing for an empty list.
  std::optional<AudioOutputDevice> defaultOutputDevice(
      const std::vector<AudioOutputDevice>* list = nullptr) const;
  std::optional<AudioInputDevice> defaultInputDevice(
      const std::vector<AudioInputDevice>* list = nullptr) const;

  // The picker's text of a device: "<name> (<outputChannelCount> ch)".
  static std::string pickerLabel(const AudioOutputDevice& device);

  // A JACK client name of this program's own streams, left out of the lists.
  void ignoreJackClient(std::string name) { _ignoredJackClients.insert(std::move(name)); }

  // The id of the device this program's output stream holds open (empty: none). An ALSA
  // device in use cannot be probed again while it is open; it stays listed as it was.
  void setDeviceInUse(std::string id) { _deviceInUse = std::move(id); }

 private:
  std::vector<AudioBackend> _backends;
  std::set<std::string> _ignoredJackClients;
  std::vector<AudioOutputDevice> _outputs;
  std::optional<AudioOutputDevice> _selected;
  std::vector<AudioInputDevice> _inputs;
  std::string _defaultOutputId;
  std::string _defaultInputId;
  std::string _deviceInUse;
};

}  // namespace corvane
