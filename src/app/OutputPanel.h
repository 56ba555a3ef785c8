// OutputPanel: the output panel window: the device picker, the routing (matrix or list, with
// the preset bar) and "Render to File…" of the routed output.
//
// Devices are listed as "<name> (<n> ch)" with a check mark at the selected one, or "No output
// devices"; choosing one hands it to the transport (its default routing, a new graph, playback
// resumed). Without a file the routing section says "Load an audio file to configure routing."
// The matrix is the default form ("corvane.routing.useMatrixView"); the switch remembers the
// choice. The panel's frame is kept in the settings as "CorvaneOutputPanel"; it is at least
// 380 × 360.
//
// Every edit (matrix, list, preset) goes to Transport::setRoutings; the views show what the
// transport then holds.
//
// Thread class: main thread (a widget).
#pragma once

#include <QWidget>
#include <filesystem>
#include <memory>
#include <optional>

class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace corvane {

class AudioEngine;
class PresetBar;
class RoutingListView;
class RoutingMatrixView;
class SegmentedControl;
class UserPresetStore;
class UserPresetUI;

class OutputPanel : public QWidget {
  Q_OBJECT

 public:
  static constexpr const char* kFrameName = "CorvaneOutputPanel";

  OutputPanel(AudioEngine& engine, UserPresetStore& presets, std::shared_ptr<UserPresetUI> ui, QWidget* parent = nullptr);
  ~OutputPanel() override;

  QListWidget* deviceList() const { return _devices; }
  QLabel* routingSummary() const { return _summary; }
  QLabel* noFileLabel() const { return _noFile; }
  SegmentedControl* viewSwitch() const { return _viewSwitch; }
  RoutingMatrixView* matrix() const { return _matrix; }
  RoutingListView* list() const { return _list; }
  PresetBar* presetBar() const { return _presetBar; }
  QPushButton* renderButton() const { return _renderButton; }
  // "Render to File…": the loaded file through the current routing into a new file named in
  // the save panel. The path written, or nothing when it ended early.
  std::optional<std::filesystem::path> renderToFile();
  bool showsMatrix() const;
  void setShowsMatrix(bool matrix);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  void refreshDevices();
  void refreshFile();
  void refreshRouting();
  void chooseDevice(int row);
  void saveFrame();

  AudioEngine& _engine;
  QListWidget* _devices;
  QLabel* _summary;
  QLabel* _noFile;
  QWidget* _routingBox;
  SegmentedControl* _viewSwitch;
  PresetBar* _presetBar;
  QStackedWidget* _stack;
  RoutingMatrixView* _matrix;
  RoutingListView* _list;
  QPushButton* _renderButton;
};

}  // namespace corvane
