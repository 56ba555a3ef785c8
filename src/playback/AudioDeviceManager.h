// AudioDeviceManager: the machine's audio devices and the chosen output, as observable
// properties over AudioDeviceCatalog.
//
// The list is read when the manager is made and again every 2 s while the re-scan runs (no
// backend here gives change notices that cover every device), and on demand (refresh(), after
// a device error). A selected device that disappears gives way to the default; a new selection
// takes effect at the next graph build, never by itself. Every re-read, whether it changed
// anything or not, ends with rescanned(), which the transport uses for its housekeeping.
//
// This program's own JACK client ("Corvane", the playback stream) is left out of the list.
//
// Thread class: main thread. A re-read takes a few milliseconds per backend.
#pragma once

#include <QObject>
#include <QTimer>
#include <optional>
#include <vector>

#include "playback/AudioDeviceCatalog.h"

namespace corvane {

using AudioOutputDevices = std::vector<AudioOutputDevice>;
using AudioInputDevices = std::vector<AudioInputDevice>;

class AudioDeviceManager : public QObject {
  Q_OBJECT
  Q_PROPERTY(corvane::AudioOutputDevices outputDevices READ outputDevices NOTIFY outputDevicesChanged)
  Q_PROPERTY(std::optional<corvane::AudioOutputDevice> selectedDevice READ selectedDevice NOTIFY selectedDeviceChanged)
  Q_PROPERTY(corvane::AudioInputDevices inputDevices READ inputDevices NOTIFY inputDevicesChanged)

 public:
  // Milliseconds between two periodic re-reads.
  static constexpr int kRescanIntervalMs = static_cast<int>(AudioDeviceCatalog::kRescanIntervalSec * 1000);
  // The client name of this program's playback stream on JACK.
  static constexpr const char* kStreamClientName = "Corvane";

  // Reads the devices of `backends` (empty: every backend, JACK first). With `rescan`, the 2 s
  // re-read runs from the start.
  explicit AudioDeviceManager(std::vector<AudioBackend> backends = {}, bool rescan = true, QObject* parent = nullptr);

  const AudioOutputDevices& outputDevices() const { return _catalog.outputDevices(); }
  const std::optional<AudioOutputDevice>& selectedDevice() const { return _catalog.selectedDevice(); }
  const AudioInputDevices& inputDevices() const { return _catalog.inputDevices(); }
  std::optional<AudioOutputDevice> defaultOutputDevice() const { return _catalog.defaultOutputDevice(); }
  std::optional<AudioInputDevice> defaultInputDevice() const { return _catalog.defaultInputDevice(); }
  // Output channels a graph addresses on the selected device: its count, at least 2.
  int deviceChannels() const;

  // Re-reads the devices now.
  void refresh();
  // The user's choice, as the catalog takes it (the graph follows at its next build).
  void selectDevice(std::optional<AudioOutputDevice> device);
  // Publishes a change the catalog went through behind the manager's back (the playback
  // controller selects on it directly).
  void publishChanges();

  void setRescanEnabled(bool enabled);
  bool isRescanning() const { return _rescanTimer.isActive(); }

  // For the playback controller, which selects and reads through it.
  AudioDeviceCatalog& catalog() { return _catalog; }

 signals:
  void outputDevicesChanged();
  void selectedDeviceChanged();
  void inputDevicesChanged();
  // After every re-read.
  void rescanned();

 private:
  AudioDeviceCatalog _catalog;
  AudioOutputDevices _publishedOutputs;
  std::optional<AudioOutputDevice> _publishedSelection;
  AudioInputDevices _publishedInputs;
  QTimer _rescanTimer;
};

}  // namespace corvane
