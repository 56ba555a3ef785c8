// OutputSelectorBar: the button under the info panel that names the output device (or says
// "No output device") and opens the output panel (posts showOutputPanel).
//
// Thread class: main thread (a widget).
#pragma once

#include <QToolButton>

namespace corvane {

class AudioDeviceManager;
class NotificationBus;

class OutputSelectorBar : public QToolButton {
  Q_OBJECT

 public:
  OutputSelectorBar(AudioDeviceManager& devices, NotificationBus& bus, QWidget* parent = nullptr);

 private:
  void refresh();

  AudioDeviceManager& _devices;
};

}  // namespace corvane
