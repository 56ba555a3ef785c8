#include "app/OutputSelectorBar.h"

#include "app/NotificationBus.h"
#include "playback/AudioDeviceManager.h"

namespace corvane {

OutputSelectorBar::OutputSelectorBar(AudioDeviceManager& devices, NotificationBus& bus, QWidget* parent)
    : QToolButton(parent), _devices(devices) {
  setObjectName(QStringLiteral("outputSelector"));
  setToolButtonStyle(Qt::ToolButtonTextOnly);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setToolTip(QStringLiteral("Output device and routing (Ctrl+Alt+O)"));
  connect(this, &QToolButton::clicked, this, [&bus] { bus.post(notification::showOutputPanel); });
  connect(&_devices, &AudioDeviceManager::selectedDeviceChanged, this, &OutputSelectorBar::refresh);
  refresh();
}

void OutputSelectorBar::refresh() {
  const auto& device = _devices.selectedDevice();
  setText(QStringLiteral("\u25B8 ") + (device ? QString::fromStdString(device->name)
                                              : QString::fromUtf8(AudioDeviceCatalog::kNoOutputDeviceText.data())));
}

}  // namespace corvane
