// ContentView: the main window's content: the mode selector and transport bar on top, the stack
// of time panels, and the sidebar with the info panel and the output selector.
//
// It owns the per-window view state (PanelLayout, the shared time zoom, the muted waveform
// channels, the FFT channels, the info panel's switches) and reacts to the session:
//   - a new load (fileLoadEpoch differs from the epoch of the last reset): zoom 1, scroll 0;
//     the muted channels empty and every channel counts for the spectrum; the spectrogram
//     follows channel 0 of a mono file, the mix otherwise. A new picture of the same file
//     (a pyramid landing, an edit) keeps all of that;
//   - muted channels go to the transport (the render side leaves them out of the mix);
//   - loadError shows "Could not open file" with the error's words ("Unknown error" without
//     any) and an OK button, and is cleared when the alert closes;
//   - while isLoading a loading overlay covers the panels;
//   - when it first appears, the panel flags take the session's defaultShow* values.
// The whole view takes file drops: one or more files go to openURLs; an empty drop is refused.
//
// Later panels and mode toolbars slot in with addPanel() and addModeToolbar(); the toggles and
// focus notices of the View menu act on every panel through PanelLayout.
//
// Thread class: main thread (a widget).
#pragma once

#include <QPointer>
#include <QWidget>
#include <array>
#include <functional>
#include <memory>
#include <set>

#include "app/PanelLayout.h"
#include "displays/InfoPanelContent.h"
#include "playback/ChannelRouting.h"

class QLabel;
class QScrollArea;
class QSplitter;
class QVBoxLayout;

namespace corvane {

class AlertPresenter;
class AudioEngine;
class CommandTable;
class InfoPanel;
class ModeSelectorBar;
class NotificationBus;
class OutputSelectorBar;
class TimeZoomState;
class TransportBar;
class WaveformSection;
struct RawImportRequest;

class ContentView : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kSidebarWidth = 234;

  ContentView(AudioEngine& engine, CommandTable& commands, NotificationBus& bus,
              std::shared_ptr<AlertPresenter> alerts, QWidget* parent = nullptr);
  ~ContentView() override;

  // ---- Panels ---------------------------------------------------------------------------
  const PanelLayout& panels() const { return _panels; }
  void setPanels(const PanelLayout& panels);
  void togglePanel(ContentPanel panel);
  void focusPanel(ContentPanel panel);
  // A panel of the stack; a panel that has no widget yet is kept in the flags only.
  void addPanel(ContentPanel panel, QWidget* widget);
  bool hasPanel(ContentPanel panel) const;
  // A mode's toolbar, shown under the transport bar while its mode is on.
  void addModeToolbar(int modeIndex, QWidget* toolbar);

  bool isInfoPanelShown() const;
  void setInfoPanelShown(bool shown);

  // ---- View state -----------------------------------------------------------------------
  TimeZoomState& timeZoom() const { return *_timeZoom; }
  quint64 lastZoomResetEpoch() const { return _lastZoomResetEpoch; }
  const std::set<int>& mutedWaveformChannels() const { return _mutedWaveformChannels; }
  void setMutedWaveformChannels(std::set<int> channels);
  const std::set<int>& enabledFFTChannels() const { return _enabledFFTChannels; }
  void setEnabledFFTChannels(std::set<int> channels);
  MonitorMode monitorMode() const { return _monitorMode; }
  void setMonitorMode(MonitorMode mode);
  LoudnessDisplayMode loudnessDisplayMode() const;
  void setLoudnessDisplayMode(LoudnessDisplayMode mode);
  // The panel's readings as they stand (built from the session on each change).
  InfoPanelReadings currentReadings() const;

  // What a file that can't be decoded leads to: the raw import sheet once that subsystem is
  // there. Until one is installed the user is told the file couldn't be opened.
  void setRawImportPresenter(std::function<void(const RawImportRequest&)> presenter);

  // ---- Parts ------------------------------------------------------------------------------
  WaveformSection* waveformSection() const { return _waveform; }
  InfoPanel* infoPanel() const { return _info; }
  TransportBar* transportBar() const { return _transportBar; }
  ModeSelectorBar* modeSelector() const { return _modeSelector; }
  OutputSelectorBar* outputSelector() const { return _outputSelector; }
  QWidget* loadingOverlay() const { return _overlay; }

  // The whole view's drop rule: true when the files were taken (openURLs).
  bool dropFiles(const QList<QUrl>& urls);

 signals:
  void panelsChanged();

 protected:
  void showEvent(QShowEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void onLoadedFileChanged();
  void onLoadErrorChanged();
  void onPendingRawImportChanged();
  void onSelectionFromTransport();
  void refreshPanels();
  void refreshInfoPanel();
  void scheduleInfoRefresh();
  void refreshSpeechAndRegions();
  void refreshModeToolbars();
  void placeOverlay();

  AudioEngine& _engine;
  CommandTable& _commands;
  NotificationBus& _bus;
  std::shared_ptr<AlertPresenter> _alerts;
  std::unique_ptr<TimeZoomState> _timeZoom;

  PanelLayout _panels;
  bool _seededFromDefaults = false;
  quint64 _lastZoomResetEpoch = 0;
  int _lastChannelCount = -1;
  std::set<int> _mutedWaveformChannels;
  std::set<int> _enabledFFTChannels;
  MonitorMode _monitorMode = MonitorMode::pre;
  std::shared_ptr<const AudioFileModel> _file;
  std::uint64_t _sourceRevision = 0;
  bool _infoRefreshPending = false;
  std::function<void(const RawImportRequest&)> _rawImportPresenter;

  QVBoxLayout* _top;
  QVBoxLayout* _stack;
  QWidget* _stackHost;
  QScrollArea* _stackScroll;
  QSplitter* _split;
  QWidget* _sidebar;
  ModeSelectorBar* _modeSelector;
  TransportBar* _transportBar;
  WaveformSection* _waveform;
  InfoPanel* _info;
  OutputSelectorBar* _outputSelector;
  QWidget* _overlay;
  QLabel* _emptyStack;
  std::array<QPointer<QWidget>, 6> _panelWidgets{};
  std::map<int, QWidget*> _modeToolbars;
};

}  // namespace corvane
