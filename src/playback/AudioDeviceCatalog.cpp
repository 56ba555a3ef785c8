#include "playback/AudioDeviceCatalog.h"

#include <alsa/asoundlib.h>
#include <jack/jack.h>
#include "playback/RtAudioBackend.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace corvane {

namespace {

void ignoreAlsaMessage(const char*, int, const char*, int, const char*, ...) {}

// ALSA reports every probe of a missing card on standard error ("cannot find card '0'"),
// which a re-scan every 2 seconds would turn into a steady stream of noise.
void silenceAlsaLibraryMessages() {
  static std::once_flag once;
  std::call_once(once, [] { snd_lib_error_set_handler(&ignoreAlsaMessage); });
}

void ignoreJackMessage(const char*) {}

// The JACK server's clients as devices, read in one client session from one port list: a
// client's input ports are what it can play (its output channels), its output ports what it
// can record. Ports of different clients interleave in the server's port order (a leaving
// client's slots go to the next one), so they are grouped by client name, each client listed
// where its first port stands. The default is the client with the physical ports (the
// hardware), else the first listed. No server: no JACK devices.
void scanJackDevices(AudioDeviceScan& scan, const std::set<std::string>& ignoredJackClients) {
  // libjack reports a missing server on standard error at every attempt; the re-scan would
  // repeat it every 2 seconds.
  jack_set_error_function(&ignoreJackMessage);
  jack_status_t status;
  jack_client_t* client = jack_client_open("CorvaneDeviceScan", JackNoStartServer, &status);
  if (!client) return;
  const unsigned rate = jack_get_sample_rate(client);
  struct Counts {
    int inputs = 0, outputs = 0;
    bool physicalInput = false, physicalOutput = false;
  };
  std::vector<std::string> order;
  std::map<std::string, Counts> clients;
  if (const char** ports = jack_get_ports(client, nullptr, JACK_DEFAULT_AUDIO_TYPE, 0)) {
    for (const char** name = ports; *name; ++name) {
      const std::string full(*name);
      const std::size_t colon = full.find(':');
      if (colon == std::string::npos) continue;
      const std::string owner = full.substr(0, colon);
      if (ignoredJackClients.count(owner)) continue;
      jack_port_t* port = jack_port_by_name(client, *name);
      if (!port) continue;  // gone since the list was made
      const int flags = jack_port_flags(port);
      auto [it, added] = clients.try_emplace(owner);
      if (added) order.push_back(owner);
      if (flags & JackPortIsInput) {
        ++it->second.inputs;
        it->second.physicalInput |= (flags & JackPortIsPhysical) != 0;
      } else if (flags & JackPortIsOutput) {
        ++it->second.outputs;
        it->second.physicalOutput |= (flags & JackPortIsPhysical) != 0;
      }
    }
    jack_free(ports);
  }
  jack_client_close(client);
  for (const std::string& name : order) {
    const Counts& counts = clients[name];
    const std::string id = audioDeviceId(AudioBackend::jack, name);
    if (counts.inputs > 0) {
      scan.outputs.push_back({id, AudioBackend::jack, name, counts.inputs, rate, {rate}});
      if (counts.physicalInput && scan.defaultOutputId.empty()) scan.defaultOutputId = id;
    }
    if (counts.outputs > 0) {
      scan.inputs.push_back({id, AudioBackend::jack, name, counts.outputs, rate, {rate}});
      if (counts.physicalOutput && scan.defaultInputId.empty()) scan.defaultInputId = id;
    }
  }
}

bool backendCompiled(AudioBackend backend) {
  std::vector<RtAudio::Api> apis;
  RtAudio::getCompiledApi(apis);
  return std::find(apis.begin(), apis.end(), rtAudioApiOf(backend)) != apis.end();
}

}  // namespace

std::string_view audioBackendName(AudioBackend backend) {
  switch (backend) {
    case AudioBackend::jack: return "JACK";
    case AudioBackend::pulse: return "PulseAudio";
    case AudioBackend::alsa: return "ALSA";
  }
  return "";
}

std::string audioDeviceId(AudioBackend backend, std::string_view name) {
  std::string id;
  switch (backend) {
    case AudioBackend::jack: id = "jack:"; break;
    case AudioBackend::pulse: id = "pulse:"; break;
    case AudioBackend::alsa: id = "alsa:"; break;
  }
  id.append(name);
  return id;
}

AudioDeviceScan scanAudioDevices(const std::vector<AudioBackend>& backends,
                                 const std::set<std::string>& ignoredJackClients) {
  silenceAlsaLibraryMessages();
  AudioDeviceScan scan;
  for (AudioBackend backend : backends) {
    if (backend == AudioBackend::jack) {
      scanJackDevices(scan, ignoredJackClients);
      continue;
    }
    if (!backendCompiled(backend)) continue;
    try {
      RtAudio rt(rtAudioApiOf(backend));
      rt.showWarnings(false);
      const unsigned count = rt.getDeviceCount();
      for (unsigned i = 0; i < count; ++i) {
        RtAudio::DeviceInfo info;
        try {
          info = rt.getDeviceInfo(i);
        } catch (const RtAudioError&) {
          continue;
        }
        // A device whose name can't be read isn't a device we can offer.
        if (!info.probed || info.name.empty()) continue;
        const std::string id = audioDeviceId(backend, info.name);
        if (info.outputChannels > 0) {
          scan.outputs.push_back({id, backend, info.name, static_cast<int>(info.outputChannels),
                                  info.preferredSampleRate, info.sampleRates});
          if (info.isDefaultOutput && scan.defaultOutputId.empty()) scan.defaultOutputId = id;
        }
        if (info.inputChannels > 0) {
          scan.inputs.push_back({id, backend, info.name, static_cast<int>(info.inputChannels),
                                 info.preferredSampleRate, info.sampleRates});
          if (info.isDefaultInput && scan.defaultInputId.empty()) scan.defaultInputId = id;
        }
      }
    } catch (const RtAudioError&) {
      // A backend that can't be opened has no devices to offer this time.
    }
  }
  return scan;
}

AudioDeviceCatalog::AudioDeviceCatalog(std::vector<AudioBackend> backends,
                                       std::set<std::string> ignoredJackClients)
    : _backends(std::move(backends)), _ignoredJackClients(std::move(ignoredJackClients)) {
  if (_backends.empty()) _backends = {AudioBackend::jack, AudioBackend::pulse, AudioBackend::alsa};
  refresh();
}

bool AudioDeviceCatalog::refresh() { return applyScan(scanAudioDevices(_backends, _ignoredJackClients)); }

bool AudioDeviceCatalog::applyScan(AudioDeviceScan scan) {
  const auto before = std::make_tuple(_outputs, _selected, _inputs);
  if (!_deviceInUse.empty()) {
    const auto listed = [&](const AudioOutputDevice& d) { return d.id == _deviceInUse; };
    const auto previous = std::find_if(_outputs.begin(), _outputs.end(), listed);
    if (previous != _outputs.end() && previous->backend == AudioBackend::alsa &&
        std::none_of(scan.outputs.begin(), scan.outputs.end(), listed)) {
      const auto at = std::min<std::ptrdiff_t>(previous - _outputs.begin(),
                                               static_cast<std::ptrdiff_t>(scan.outputs.size()));
      scan.outputs.insert(scan.outputs.begin() + at, *previous);
    }
  }
  _outputs = std::move(scan.outputs);
  _inputs = std::move(scan.inputs);
  _defaultOutputId = std::move(scan.defaultOutputId);
  _defaultInputId = std::move(scan.defaultInputId);
  const bool selectedStillListed =
      _selected && std::any_of(_outputs.begin(), _outputs.end(),
                               [this](const AudioOutputDevice& d) { return d.id == _selected->id; });
  if (!selectedStillListed) _selected = defaultOutputDevice(&_outputs);
  return before != std::make_tuple(_outputs, _selected, _inputs);
}

std::optional<AudioOutputDevice> AudioDeviceCatalog::defaultOutputDevice(
    const std::vector<AudioOutputDevice>* list) const {
  const auto& devices = list ? *list : _outputs;
  if (devices.empty()) return std::nullopt;
  for (const auto& d : devices) {
    if (d.id == _defaultOutputId) return d;
  }
  return devices.front();
}

std::optional<AudioInputDevice> AudioDeviceCatalog::defaultInputDevice(
    const std::vector<AudioInputDevice>* list) const {
  const auto& devices = list ? *list : _inputs;
  if (devices.empty()) return std::nullopt;
  for (const auto& d : devices) {
    if (d.id == _defaultInputId) return d;
  }
  return devices.front();
}

std::string AudioDeviceCatalog::pickerLabel(const AudioOutputDevice& device) {
  return device.name + " (" + std::to_string(device.outputChannelCount) + " ch)";
}

}  // namespace corvane
