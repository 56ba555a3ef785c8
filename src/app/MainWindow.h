// MainWindow: the window "Corvane" (1280 × 820): the menus of the command table over
// ContentView, the file panels, the output panel and channel statistics windows, and the quit
// road.
//
// The title reads "Corvane" without a file and "<file name> — Corvane" with one, so a window
// list tells sessions apart. Closing the window is quitting: the session asks first
// (confirmReplaceSession with the quit action) and the close is refused when it says no.
//
// `alerts` shows the window's own alerts ("Could not open file"); the application passes the
// session's QMessageBox presenter, parented to this window.
//
// Thread class: main thread (a widget).
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <memory>

namespace corvane {

class AudioEngine;
class ChannelStatsView;
class CommandTable;
class ContentView;
class EditCommands;
class AlertPresenter;
class NotificationBus;
class OutputPanel;
class UserPresetStore;

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  static constexpr int kDefaultWidth = 1280;
  static constexpr int kDefaultHeight = 820;

  MainWindow(AudioEngine& engine, NotificationBus& bus, std::shared_ptr<AlertPresenter> alerts, QWidget* parent = nullptr);
  ~MainWindow() override;

  CommandTable& commands() const { return *_commands; }
  ContentView* content() const { return _content; }
  // The output panel window, made on first use.
  OutputPanel* showOutputPanel();
  // The channel statistics window ("Channel Statistics"), made on first use; it follows the
  // session's file, metrics and selection analysis while it exists.
  ChannelStatsView* showChannelStats();

  // "Corvane" or "<file name> — Corvane".
  static QString titleFor(const QString& fileName);

 protected:
  void closeEvent(QCloseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void refreshTitle();
  void refreshChannelStats();
  void showAbout();

  AudioEngine& _engine;
  NotificationBus& _bus;
  std::shared_ptr<AlertPresenter> _alerts;
  CommandTable* _commands;
  ContentView* _content = nullptr;
  std::unique_ptr<EditCommands> _editCommands;
  std::unique_ptr<UserPresetStore> _presets;
  QPointer<OutputPanel> _outputPanel;
  QPointer<ChannelStatsView> _channelStats;
};

}  // namespace corvane
