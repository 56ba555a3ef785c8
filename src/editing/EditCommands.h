// EditCommands: what the user asks of the editor, from the edit toolbar's popovers and the
// Edit menu, turned into frames, a road and one EditOperations call.
//
// Each command reads its fields (text, exactly as typed, parsed when the user applies; a text
// that does not parse whole cancels the command unless it has a fallback), turns the selection
// or the playhead into frames, and picks a road:
//   - fit test (trim, cut): AudioLoadLimits::rebuildEditFits on the live buffer's bytes;
//   - factor test (normalize, limit, swap, silence): EditOperations::passesFactorTest with the
//     command's factor, on the bytes of the live buffer or, for silence, of the result;
//   - in memory (EditEngine::applyEdit) when it passes, else the streaming twin over
//     1,048,576-frame chunks (applyStreamingRebuild); selections go by applyRangeEdit; fades,
//     gain, phase and DC removal always run in place.
// Refusals are silent: no file, no selection where one is needed, a value that does not parse,
// an empty range, a cut of the whole file, a missing dialogue reading.
//
// The toolbar's state, its controls with their tool tips and enablement, and the Edit menu's
// entries are data here, so that the window only draws them.
//
// Thread class: main thread.
#pragma once

#include <QString>
#include <QStringList>
#include <filesystem>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "core/AudioBuffer.h"
#include "editing/EditEngine.h"
#include "headless/edits/EditOperations.h"
#include "measurement/LoudnessTargets.h"

namespace corvane {

class AudioEngine;

enum class SilenceUnit { seconds, samples };
enum class SilenceAnchor { replaceSelection, beforeSelection, afterSelection, fileStart, fileEnd, insertAtPlayhead };
enum class NormalizeMode { peak, lufs };

// "Replace selection", "Insert before selection", ... "Insert at playhead".
QString displayName(SilenceAnchor anchor);

// A frame range, half-open.
using FrameRange = std::pair<FrameCount, FrameCount>;

// The popovers' values as typed, with their defaults.
struct EditToolbarState {
  QString gainDB = QStringLiteral("0.0");
  QString cutCrossfadeMs = QStringLiteral("10");
  QString silenceValue = QStringLiteral("1.0");
  SilenceUnit silenceUnit = SilenceUnit::seconds;
  SilenceAnchor silenceAnchor = SilenceAnchor::insertAtPlayhead;
  EditOperations::FadeCurve fadeCurve = EditOperations::FadeCurve::linear;
  EditOperations::FadeDirection fadeDirection = EditOperations::FadeDirection::fadeIn;
  NormalizeMode normalizeMode = NormalizeMode::peak;
  QString normalizeTargetDB = QStringLiteral("-1.0");
  QString normalizeTargetLUFS = QStringLiteral("-14.0");
  QString normalizeCeilingDB = QStringLiteral("-1.0");
  QString dialogueReductionDB = QStringLiteral("18");
  bool dialogueLiftToTarget = false;
  QString dialogueTargetLKFS = QStringLiteral("-16.0");
  QString dialogueCeilingDBTP = QStringLiteral("-1.0");
  QString limitTPCeilingDBTP = QStringLiteral("-1.0");
};

enum class EditControl {
  undo, redo, trim, cut, changeLevel, addSilence, phase, removeDC, fade, normalize, limitTP, levelDialogue, swap, split
};
struct EditControlInfo {
  EditControl control;
  QString title;    // empty where the control shows only an icon
  QString toolTip;  // its words bind
};
// In the toolbar's order.
const std::vector<EditControlInfo>& editToolbarControls();

enum class EditMenuCommand {
  cut, silenceSelection, trimToSelection, cutToStart, cutToEnd,
  fadeInSelection, fadeOutSelection, fadeInToPlayhead, fadeOutFromPlayhead, gainUp, gainDown
};
struct EditMenuEntry {
  EditMenuCommand command;
  QString title;
  QString shortcut;  // QKeySequence text; Backspace goes through the window's per-mode dispatcher
  bool dividerBefore = false;
};
// In the menu's order, after Save, Save As and Discard (the save commands).
const std::vector<EditMenuEntry>& editMenuEntries();

// The toolbar's form for a loudness target row's request: Normalize to the target, or Limit
// True Peak at its ceiling. Always the whole file.
struct EditTargetForm {
  std::optional<PendingNormalize> normalize;
  std::optional<PendingLimitTP> limit;
  QString title;                                  // "Normalize" / "Limit True Peak"
  std::vector<std::pair<QString, QString>> rows;  // Now, Target, Gain, Basis (normalize only)
  QString ceilingText;                            // the request's ceiling, "%.1f", for the field
  QString note;
};

// The popovers' fixed words and quick values (chips); the window lays them out.
enum class EditPopoverKind { changeLevel, cut, normalizePeak, normalizeLUFS, limitTP, levelDialogue };
struct EditPopover {
  QString title;              // empty where the popover has none of its own
  QStringList texts;          // explanations, in order
  std::vector<double> chips;  // quick values, in the field's unit
};
// `dialogueReadingAvailable`: Level Dialogue explains the lift only when a dialogue-gated
// reading exists (the lift toggle is unavailable otherwise).
EditPopover editPopover(EditPopoverKind kind, bool dialogueReadingAvailable = true);
// What a chip puts into its field: gain with one decimal ("-6.0"), the others as written ("-0.5").
QString chipText(EditPopoverKind kind, double value);

// Whole-number parse of a user's text in the C locale: the whole text must be the number.
std::optional<double> parseEditNumber(const QString& text);

class EditCommands {
 public:
  explicit EditCommands(AudioEngine& engine);

  // ---- Frames ---------------------------------------------------------------------------------
  // The live buffer's rate; 48000 without a file.
  double sampleRate() const;
  FrameCount totalFrames() const;
  // The toolbar's scope: the selection's seconds × rate (truncated), else the whole file.
  FrameRange frameRange() const;
  // The menu's scope: the same, clamped into the file; none without a selection or when empty.
  std::optional<FrameRange> editSelectionFrames() const;
  // The playhead × rate, rounded, clamped into the file.
  FrameCount editPlayheadFrame() const;
  // "Applies to the selection." / "Applies to the whole file."
  QString scopeHint() const;

  bool isEnabled(EditControl control) const;
  bool isEnabled(EditMenuCommand command) const;

  // ---- Commands on frames ---------------------------------------------------------------------
  void applyTrim(FrameCount startFrame, FrameCount endFrame);
  void applyCutRange(FrameCount startFrame, FrameCount endFrame, FrameCount crossfadeFrames);
  void applyAddSilence(FrameCount startFrame, FrameCount endFrame, EditOperations::SilenceMode mode,
                       FrameCount durationFrames);
  void addSilenceAtPlayhead(FrameCount durationFrames);
  void applyNormalizeLUFS(double targetLUFS, double ceilingDB, std::optional<FrameRange> range);
  void applyNormalizePeak(double targetDB, std::optional<FrameRange> range);
  void applyLimitTP(double ceilingDBTP, std::optional<FrameRange> range);
  void applyNormalizeByGain(double gainDB, double ceilingDB, const std::optional<QString>& confirmation);
  void applyNormalizeToDialogGated(double targetLUFS, double ceilingDB);
  void applyChannelSwap();
  void applyDialogueLeveling(double reductionDB, std::optional<double> targetLUFS, std::optional<double> ceilingDBTP);
  void applyFade(FrameRange range, EditOperations::FadeDirection direction, EditOperations::FadeCurve curve,
                 const std::optional<QString>& confirmation);
  void applyGain(FrameRange range, double gainDB, const std::optional<QString>& confirmation);

  // ---- Requests of the loudness targets -------------------------------------------------------
  // The pending Normalize or Limit request of a target row as the toolbar's form; the request
  // is consumed. None when no request waits.
  std::optional<EditTargetForm> takeTargetRequest();
  // "Apply" of the form with the ceiling field as typed (no parse, no action).
  void applyTargetForm(const EditTargetForm& form, const QString& ceilingText);
  // The dialogue-gated reading the targets show (live or offline, by the display mode).
  double dialogGatedReading() const;

  // ---- The toolbar's Apply --------------------------------------------------------------------
  void performCut(const EditToolbarState& state);
  void performAddSilence(const EditToolbarState& state);
  void performGainChange(const EditToolbarState& state);
  void performFade(const EditToolbarState& state);
  void performInvertPhase();
  void performRemoveDC();
  void performNormalize(const EditToolbarState& state);
  void performLimitTP(const EditToolbarState& state);
  void performDialogueLeveling(const EditToolbarState& state);
  // The anchor when the Add Silence popover opens, and the anchors it offers.
  static SilenceAnchor anchorOnOpening(SilenceAnchor current, bool hasSelection);
  static std::vector<SilenceAnchor> anchorChoices(bool hasSelection);

  // ---- The Edit menu --------------------------------------------------------------------------
  void perform(EditMenuCommand command);

  // ---- Split to mono --------------------------------------------------------------------------
  // Every channel as "<stem>_<label>.wav" in `folder` (the app's folder panel chose it). Nothing
  // is written when any name exists already (the alert says which) or is the loaded file.
  void splitToMonoExport(const std::filesystem::path& folder);
  // The file names it would write, in channel order.
  std::vector<std::string> monoFileNames() const;

 private:
  // A whole-file rebuild by either road.
  struct WholeFileRebuild {
    std::optional<QString> confirmation;
    EditEngine::SourceOperation operation;  // in memory, reading the live buffer where it lies
    std::string_view tag;                    // streaming: the temporary file's tag
    QString failMessage;
    EditEngine::StreamingWrite write;
  };
  void rebuild(bool inMemory, const WholeFileRebuild& road);
  // The fit test on the live buffer, and the factor test on `frames` of its channels.
  bool rebuildFits() const;
  bool passesFactorTest(FrameCount frames, int factor) const;

  EditEngine& edits() const;
  bool hasSelection() const;
  std::optional<FrameRange> scopedRange() const;

  AudioEngine& _engine;
};

}  // namespace corvane
