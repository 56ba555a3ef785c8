#include "app/OutputPanel.h"

#include <QCloseEvent>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/PresetBar.h"
#include "app/RoutingCellText.h"
#include "app/RoutingListView.h"
#include "app/RoutingMatrixView.h"
#include "app/SavePanel.h"
#include "core/ChannelOrder.h"
#include "displays/SectionHeading.h"
#include "displays/SegmentedControl.h"
#include "playback/AudioDeviceManager.h"
#include "playback/RoutedOutputExport.h"
#include "playback/RoutingPresets.h"
#include "playback/Transport.h"
#include "session/AudioEngine.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

const QString kFrameKey = QStringLiteral("windowFrame.%1").arg(QLatin1String(OutputPanel::kFrameName));

}  // namespace

OutputPanel::OutputPanel(AudioEngine& engine, UserPresetStore& presets, std::shared_ptr<UserPresetUI> ui, QWidget* parent)
    : QWidget(parent, Qt::Window), _engine(engine) {
  setObjectName(QStringLiteral("outputPanel"));
  setWindowTitle(QStringLiteral("Output"));
  setMinimumSize(380, 360);
  auto* layout = new QVBoxLayout(this);

  layout->addWidget(sectionHeading(QStringLiteral("Output Device"), this));
  _devices = new QListWidget(this);
  _devices->setObjectName(QStringLiteral("output.devices"));
  _devices->setMaximumHeight(120);
  layout->addWidget(_devices);
  _summary = new QLabel(this);
  _summary->setObjectName(QStringLiteral("output.summary"));
  layout->addWidget(_summary);

  layout->addSpacing(6);
  auto* routingHeader = new QHBoxLayout;
  routingHeader->addWidget(sectionHeading(QStringLiteral("Routing"), this));
  routingHeader->addStretch(1);
  _viewSwitch = new SegmentedControl({QStringLiteral("Matrix"), QStringLiteral("List")}, this);
  _viewSwitch->setObjectName(QStringLiteral("output.viewSwitch"));
  routingHeader->addWidget(_viewSwitch);
  layout->addLayout(routingHeader);
  _noFile = new QLabel(QString::fromUtf8(kNoFileRoutingText), this);
  _noFile->setObjectName(QStringLiteral("output.noFile"));
  _noFile->setAlignment(Qt::AlignCenter);
  layout->addWidget(_noFile, 1);

  _routingBox = new QWidget(this);
  auto* routing = new QVBoxLayout(_routingBox);
  routing->setContentsMargins(0, 0, 0, 0);
  _presetBar = new PresetBar(presets, std::move(ui), _routingBox);
  routing->addWidget(_presetBar);
  _stack = new QStackedWidget(_routingBox);
  _matrix = new RoutingMatrixView;
  _list = new RoutingListView;
  for (QWidget* view : {static_cast<QWidget*>(_matrix), static_cast<QWidget*>(_list)}) {
    auto* scroll = new QScrollArea(_stack);
    scroll->setWidgetResizable(true);
    scroll->setWidget(view);
    _stack->addWidget(scroll);
  }
  routing->addWidget(_stack, 1);
  auto* renderRow = new QHBoxLayout;
  renderRow->addStretch(1);
  _renderButton = new QPushButton(QStringLiteral("Render to File\u2026"), _routingBox);
  _renderButton->setObjectName(QStringLiteral("output.renderToFile"));
  _renderButton->setToolTip(QString::fromUtf8(RoutedOutputExport::kTooltip));
  renderRow->addWidget(_renderButton);
  routing->addLayout(renderRow);
  layout->addWidget(_routingBox, 1);

  Transport& transport = _engine.transport();
  const auto setRoutings = [&transport](const ChannelRoutings& routings) { transport.setRoutings(routings); };
  connect(_matrix, &RoutingMatrixView::routingsEdited, this, setRoutings);
  connect(_list, &RoutingListView::routingsEdited, this, setRoutings);
  connect(_presetBar, &PresetBar::routingsEdited, this, setRoutings);
  connect(&transport, &Transport::routingsChanged, this, &OutputPanel::refreshRouting);
  connect(&_engine, &AudioEngine::loadedFileChanged, this, &OutputPanel::refreshFile);
  AudioDeviceManager& devices = _engine.deviceManager();
  connect(&devices, &AudioDeviceManager::outputDevicesChanged, this, &OutputPanel::refreshDevices);
  connect(&devices, &AudioDeviceManager::selectedDeviceChanged, this, &OutputPanel::refreshDevices);
  connect(_devices, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) { chooseDevice(_devices->row(item)); });
  connect(_devices, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) { chooseDevice(_devices->row(item)); });
  connect(_renderButton, &QPushButton::clicked, this, [this] { renderToFile(); });
  connect(_viewSwitch, &SegmentedControl::activated, this, [this](int index) { setShowsMatrix(index == 0); });

  setShowsMatrix(_engine.settings().routingUseMatrixView());
  refreshDevices();
  refreshFile();

  const QString frame = _engine.settings().readString(kFrameKey.toUtf8().constData(), QString());
  if (!frame.isEmpty()) restoreGeometry(QByteArray::fromBase64(frame.toLatin1()));
  if (frame.isEmpty()) resize(460, 520);
}

OutputPanel::~OutputPanel() = default;

bool OutputPanel::showsMatrix() const { return _stack->currentIndex() == 0; }

void OutputPanel::setShowsMatrix(bool matrix) {
  _stack->setCurrentIndex(matrix ? 0 : 1);
  _viewSwitch->setCurrentIndex(matrix ? 0 : 1);
  _viewSwitch->setSegmentToolTip(0, matrixToggleToolTip(matrix, true));
  _viewSwitch->setSegmentToolTip(1, matrixToggleToolTip(matrix, false));
  if (_engine.settings().routingUseMatrixView() != matrix) _engine.settings().setRoutingUseMatrixView(matrix);
}

void OutputPanel::refreshDevices() {
  const AudioDeviceManager& devices = _engine.deviceManager();
  _devices->clear();
  const auto& selected = devices.selectedDevice();
  if (devices.outputDevices().empty()) {
    auto* item = new QListWidgetItem(QString::fromUtf8(AudioDeviceCatalog::kNoOutputDevicesText.data()));
    item->setFlags(Qt::NoItemFlags);
    _devices->addItem(item);
  }
  for (const AudioOutputDevice& device : devices.outputDevices()) {
    const bool isSelected = selected && selected->id == device.id;
    auto* item = new QListWidgetItem((isSelected ? QStringLiteral("\u2713 ") : QStringLiteral("    ")) +
                                     QString::fromStdString(AudioDeviceCatalog::pickerLabel(device)));
    item->setData(Qt::UserRole, QString::fromStdString(device.id));
    _devices->addItem(item);
  }
  refreshRouting();
}

void OutputPanel::chooseDevice(int row) {
  const auto& list = _engine.deviceManager().outputDevices();
  if (row < 0 || row >= static_cast<int>(list.size())) return;
  const AudioOutputDevice device = list[static_cast<std::size_t>(row)];
  const auto& selected = _engine.deviceManager().selectedDevice();
  if (selected && selected->id == device.id) return;
  _engine.transport().setOutputDevice(device);
}

void OutputPanel::refreshFile() {
  const auto& file = _engine.loadedFile();
  _noFile->setVisible(!file);
  _routingBox->setVisible(file.has_value());
  _viewSwitch->setVisible(file.has_value());
  if (file) {
    _matrix->setSources(file->channelLabels(), file->channelLayout().colors());
    _list->setSources(file->channelLabels());
  }
  refreshRouting();
}

void OutputPanel::refreshRouting() {
  const ChannelRoutings& routings = _engine.transport().routings();
  const auto& file = _engine.loadedFile();
  const auto& selected = _engine.deviceManager().selectedDevice();
  if (!selected) {
    _summary->setText(QString::fromUtf8(AudioDeviceCatalog::kNoDeviceText.data()));
  } else {
    int routed = 0;
    for (const auto& entry : routings) {
      if (std::any_of(entry.sources.begin(), entry.sources.end(), [](const ChannelSourceSlot& s) { return s.sourceChannelIndex >= 0; })) {
        ++routed;
      }
    }
    _summary->setText(QStringLiteral("%1 \u00B7 %2 of %3 outputs routed")
                          .arg(QString::fromStdString(selected->name))
                          .arg(routed)
                          .arg(routings.size()));
  }
  _matrix->setRoutings(routings);
  _list->setRoutings(routings);
  const int fileChannels = file ? file->channelCount : 0;
  const bool canonical = file && fileChannels >= 8 && ChannelOrder::is71SMPTEOrdered(file->channelLabels());
  _presetBar->setContext(fileChannels, canonical, routings);
}

std::optional<std::filesystem::path> OutputPanel::renderToFile() {
  RoutedOutputExport command(_engine, [this](const SavePanelRequest& request) {
    return runSaveFilePanel(this, request.title, request.proposedName, request.allowedExtensions.value(0),
                            request.directory);
  });
  return command.exportRoutedOutput();
}

void OutputPanel::saveFrame() {
  _engine.settings().writeString(kFrameKey.toUtf8().constData(), QString::fromLatin1(saveGeometry().toBase64()));
}

void OutputPanel::closeEvent(QCloseEvent* event) {
  saveFrame();
  QWidget::closeEvent(event);
}

void OutputPanel::hideEvent(QHideEvent* event) {
  saveFrame();
  QWidget::hideEvent(event);
}

}  // namespace corvane
