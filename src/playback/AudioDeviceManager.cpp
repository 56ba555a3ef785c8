#include "playback/AudioDeviceManager.h"

#include <algorithm>

namespace corvane {

AudioDeviceManager::AudioDeviceManager(std::vector<AudioBackend> backends, bool rescan, QObject* parent)
    : QObject(parent), _catalog(std::move(backends), {kStreamClientName}) {
  _publishedOutputs = _catalog.outputDevices();
  _publishedSelection = _catalog.selectedDevice();
  _publishedInputs = _catalog.inputDevices();
  _rescanTimer.setInterval(kRescanIntervalMs);
  _rescanTimer.setTimerType(Qt::CoarseTimer);
  connect(&_rescanTimer, &QTimer::timeout, this, &AudioDeviceManager::refresh);
  setRescanEnabled(rescan);
}

int AudioDeviceManager::deviceChannels() const {
  return std::max(2, _catalog.selectedDevice() ? _catalog.selectedDevice()->outputChannelCount : 2);
}

void AudioDeviceManager::refresh() {
  _catalog.refresh();
  publishChanges();
  emit rescanned();
}

void AudioDeviceManager::selectDevice(std::optional<AudioOutputDevice> device) {
  _catalog.selectDevice(std::move(device));
  publishChanges();
}

void AudioDeviceManager::publishChanges() {
  if (_catalog.outputDevices() != _publishedOutputs) {
    _publishedOutputs = _catalog.outputDevices();
    emit outputDevicesChanged();
  }
  if (_catalog.selectedDevice() != _publishedSelection) {
    _publishedSelection = _catalog.selectedDevice();
    emit selectedDeviceChanged();
  }
  if (_catalog.inputDevices() != _publishedInputs) {
    _publishedInputs = _catalog.inputDevices();
    emit inputDevicesChanged();
  }
}

void AudioDeviceManager::setRescanEnabled(bool enabled) {
  if (enabled) {
    _rescanTimer.start();
  } else {
    _rescanTimer.stop();
  }
}

}  // namespace corvane
