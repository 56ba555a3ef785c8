// Transport: playback as the session and the views see it — the transport's state as
// observable properties, the commands, and the main-thread timers that the render layer needs.
//
// It owns the PlaybackController (the Qt-free transport logic, graph lifecycle and the render
// mirrors) and is its listener; every command forwards to the controller, every change the
// controller makes by itself comes back as a property notification. It adds two things the
// render layer can't have:
//   - the display timer: a precise 30 Hz QTimer that runs only while playing. Each tick runs
//     the controller's displayTick() (playhead, end of file, retired snapshots) and then emits
//     displayTicked(), where the live meters hook their own tick in (not when the end of the
//     file stopped the transport in that tick: the final loudness figures stand then).
//   - the device follow-up: after every device re-read (AudioDeviceManager::rescanned) the
//     controller's housekeeping runs; a lost output stream re-reads the devices and builds the
//     graph anew on what is then selected.
//
// Properties: isPlaying, currentTime (seconds, as the last tick read it), duration (seconds of
// the loaded buffer), playbackRate (0.25 ... 2, 1.0), preservePitch (true), selection (seconds;
// none: the whole file), isLooping, holdsPlayStart, routings (one entry per device output),
// mutedSourceChannels (file channels left out of the mix; from 64 on they can't be muted),
// freqSelection (Hz, shared with the spectrum view; none: no filter) and filterMode (what the
// band filter does with it: pass or reject the band).
//
// Thread class: main thread.
#pragma once

#include <QList>
#include <QObject>
#include <QTimer>
#include <optional>

#include "playback/PlaybackController.h"

namespace corvane {

class AudioDeviceManager;

using OptionalPlaybackSelection = std::optional<PlaybackSelection>;
using OptionalFreqRange = std::optional<FreqRange>;

class Transport : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
  Q_PROPERTY(double currentTime READ currentTime NOTIFY currentTimeChanged)
  Q_PROPERTY(double duration READ duration NOTIFY durationChanged)
  Q_PROPERTY(double playbackRate READ playbackRate WRITE setPlaybackRate NOTIFY playbackRateChanged)
  Q_PROPERTY(bool preservePitch READ preservePitch WRITE setPreservePitch NOTIFY preservePitchChanged)
  Q_PROPERTY(corvane::OptionalPlaybackSelection selection READ selection WRITE setSelection NOTIFY selectionChanged)
  Q_PROPERTY(bool isLooping READ isLooping WRITE setIsLooping NOTIFY isLoopingChanged)
  Q_PROPERTY(bool holdsPlayStart READ holdsPlayStart WRITE setHoldsPlayStart NOTIFY holdsPlayStartChanged)
  Q_PROPERTY(corvane::ChannelRoutings routings READ routings WRITE setRoutings NOTIFY routingsChanged)
  Q_PROPERTY(QList<int> mutedSourceChannels READ mutedSourceChannels WRITE setMutedSourceChannels
                 NOTIFY mutedSourceChannelsChanged)
  Q_PROPERTY(corvane::OptionalFreqRange freqSelection READ freqSelection WRITE setFreqSelection
                 NOTIFY freqSelectionChanged)
  Q_PROPERTY(corvane::FreqFilterMode filterMode READ filterMode WRITE setFilterMode NOTIFY filterModeChanged)

 public:
  // Interval of the display timer: 30 ticks a second.
  static constexpr int kDisplayIntervalMs = 33;

  // `devices` (may be null: the backends' default output, no follow-up) must outlive this.
  explicit Transport(AudioDeviceManager* devices, QObject* parent = nullptr);
  ~Transport() override;

  PlaybackController& controller() { return _controller; }
  RenderMirrors& mirrors() { return _controller.mirrors(); }

  // ---- The file ------------------------------------------------------------------------------
  // A new buffer (or none): playback stops, the graph goes, the playhead returns to 0. The
  // selection, loop, speed and routing stay as they are.
  void loadSource(SharedAudioBuffer buffer, SharedSpeechHistory speechHistory);
  // The default routing of `fileChannels` on `deviceChannels` outputs, labelled after the
  // device's layout.
  void setupRoutings(int fileChannels, int deviceChannels);
  // Builds the graph for the loaded buffer on the selected device (or the manual output),
  // prepared but not started. False when none could be built (the reason is logged).
  bool setupEngine();
  void stopEngine();
  bool hasGraph() { return _controller.graph().exists(); }
  void applySpeechHistory(SharedSpeechHistory history);
  // An edited buffer of the loaded file (edits, undo, redo): the callback plays it from its
  // next buffer and the old one is freed once it has moved on. The duration follows; the
  // playhead, selection and playing state are the caller's.
  void swapSourceBuffer(SharedAudioBuffer buffer);
  void setEditMode(bool editMode);
  // Instead of a device (offline rendering, tests): the caller drives the graph.
  void setManualOutput(std::optional<ManualOutput> output) { _controller.setManualOutput(output); }
  // The user's choice of device: its default routing, a new graph, playback resumed if it ran.
  void setOutputDevice(std::optional<AudioOutputDevice> device);

  // ---- Commands ------------------------------------------------------------------------------
  void play();
  void pause();
  void stop();
  void togglePlayPause();
  // The one seek; every move of the playhead goes through it.
  void seekImpl(double seconds, bool updatesAnchor);
  void placePlayhead(double seconds);
  void skip(double deltaSeconds);
  // The head of a load: playback stops where it is (the flags and the timer), nothing else.
  void haltForLoad();

  // ---- Properties ----------------------------------------------------------------------------
  bool isPlaying() const { return _controller.isPlaying(); }
  double currentTime() const { return _controller.currentTime(); }
  double duration() const { return _duration; }
  double playbackRate() const { return _controller.playbackRate(); }
  void setPlaybackRate(double rate);
  bool preservePitch() const { return _controller.preservePitch(); }
  void setPreservePitch(bool preserve);
  const OptionalPlaybackSelection& selection() const { return _controller.selection(); }
  void setSelection(const OptionalPlaybackSelection& selection);
  bool isLooping() const { return _controller.isLooping(); }
  void setIsLooping(bool looping);
  bool holdsPlayStart() const { return _controller.holdsPlayStart(); }
  void setHoldsPlayStart(bool hold);
  const ChannelRoutings& routings() const { return _controller.routings(); }
  void setRoutings(const ChannelRoutings& routings);
  const QList<int>& mutedSourceChannels() const { return _mutedSourceChannels; }
  void setMutedSourceChannels(const QList<int>& channels);
  // Either change redesigns the filter at once, playing or not (applyFreqFilter).
  const OptionalFreqRange& freqSelection() const { return _controller.freqSelection(); }
  void setFreqSelection(const OptionalFreqRange& selection);
  FreqFilterMode filterMode() const { return _controller.filterMode(); }
  void setFilterMode(FreqFilterMode mode);

  bool isDisplayTimerActive() const { return _displayTimer.isActive(); }
  // The final figures of the last pass that stop() closed; none before.
  const std::optional<FinalLoudnessFigures>& finalLoudness() const { return _controller.finalLoudness(); }

 signals:
  void isPlayingChanged();
  void currentTimeChanged();
  void durationChanged();
  void playbackRateChanged();
  void preservePitchChanged();
  void selectionChanged();
  void isLoopingChanged();
  void holdsPlayStartChanged();
  void routingsChanged();
  void mutedSourceChannelsChanged();
  void freqSelectionChanged();
  void filterModeChanged();
  // Each display tick, after the transport's own part: the live meters' turn.
  void displayTicked();
  // A seek broke the live curves.
  void liveCurvesBroken();
  // A seek left the transport still: the spectrum should show the place under the playhead.
  void stillPlayheadMoved();
  // stop() closed a pass of the live loudness; finalLoudness() has its figures.
  void finalLoudnessPublished();
  // The output stream was lost; the graph has been rebuilt on the device now selected.
  void outputDeviceLost();

 private:
  // Hears what the controller changes by itself and hands it to the transport's signals.
  class ControllerListener : public PlaybackListener {
   public:
    explicit ControllerListener(Transport& transport) : _transport(transport) {}
    void isPlayingChanged(bool) override { emit _transport.isPlayingChanged(); }
    void currentTimeChanged(double) override { emit _transport.currentTimeChanged(); }
    void displayTimerShouldRun(bool run) override { _transport.runDisplayTimer(run); }
    void liveCurvesBroken() override { emit _transport.liveCurvesBroken(); }
    void stillPlayheadMoved() override { emit _transport.stillPlayheadMoved(); }
    void finalLoudnessPublished(const FinalLoudnessFigures&) override { emit _transport.finalLoudnessPublished(); }
    void outputDeviceLost() override { _transport.recoverLostOutput(); }

   private:
    Transport& _transport;
  };

  void runDisplayTimer(bool run);
  void recoverLostOutput();
  void onDisplayTimer();
  void setDuration(double seconds);

  AudioDeviceManager* _devices;
  ControllerListener _listener{*this};
  PlaybackController _controller;
  QTimer _displayTimer;
  double _duration = 0.0;
  QList<int> _mutedSourceChannels;
};

}  // namespace corvane
