// RoutedOutputExport: the output panel's "Render to File…" command. The loaded file is mixed
// through the current routing (downmix or reorder, with each route's gain and phase) and
// written as a new 32-bit float file, one channel per output that has a routed source. The
// session is left alone: the new file is neither opened nor listed.
//
// The questions it asks go through the session's alert presenter, and its two failures of its
// own (nothing routed, no memory for the mix) through the session's edit-failure report; the
// destination comes from a save panel the caller installs (the application a file dialog,
// tests their own answer).
//
// Thread class: main thread. The render and the write block it for their duration, as a save
// does.
#pragma once

#include <QString>
#include <QStringList>
#include <filesystem>
#include <functional>
#include <optional>

namespace corvane {

class AudioEngine;

// What the save panel is asked to show.
struct SavePanelRequest {
  QString title;                   // "Render Routed Output"
  QString proposedName;            // "<stem>_routed.<extension>"
  QStringList allowedExtensions;   // the one chosen type ("wav" or "caf")
  std::filesystem::path directory; // the loaded file's folder

  friend bool operator==(const SavePanelRequest&, const SavePanelRequest&) = default;
};

// Shows the panel and returns the chosen path, or nothing when the user cancels.
using SavePanel = std::function<std::optional<std::filesystem::path>(const SavePanelRequest&)>;

class RoutedOutputExport {
 public:
  // The command's texts.
  static constexpr const char* kTooltip =
      "Render the current routing (downmix or reorder, with per-route gain and phase) to a new audio file. Only "
      "the outputs you've routed are written.";
  static constexpr const char* kPanelTitle = "Render Routed Output";
  static constexpr const char* kNothingRoutedText =
      "No output has a routed source yet, so there's nothing to render. Route at least one source in the matrix "
      "first.";
  static constexpr const char* kOutOfMemoryText =
      "Couldn't render the routed output (not enough memory for a file this large).";
  static constexpr const char* kCafQuestion = "Save as CAF to keep the channel layout?";

  // `engine` must outlive the command; without a panel the command asks for no destination
  // and writes nothing.
  RoutedOutputExport(AudioEngine& engine, SavePanel panel);

  // Runs the command. The path written, or nothing when it ended early (nothing loaded, a
  // failure already shown to the user, a cancelled question or panel).
  std::optional<std::filesystem::path> exportRoutedOutput();

  // The CAF question's text for `channels` outputs.
  static QString cafQuestionText(int channels);

 private:
  AudioEngine& _engine;
  SavePanel _panel;
};

}  // namespace corvane
