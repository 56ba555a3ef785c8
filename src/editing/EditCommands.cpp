#include "editing/EditCommands.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

#include "core/ChannelOrder.h"
#include "dialogue/DialogueModel.h"
#include "editing/EditEngine.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/EditOutputGuard.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LoudnessTargets.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"

namespace corvane {

namespace {

using Ops = EditOperations;
constexpr double kFallbackSampleRate = 48000.0;
// The menu's cut joins with a 10 ms crossfade; whole-file fades from the toolbar last 10 s.
constexpr double kMenuCrossfadeSeconds = 0.01;
constexpr double kWholeFileFadeSeconds = 10.0;
constexpr FrameCount kWholeFileFadeFallbackFrames = 480000;
// Dialogue levelling: the speech mask's 0.1 s blocks, the gate's attack and release.
constexpr double kSpeechBlockSeconds = 0.1;
constexpr double kGateAttackMs = 5.0;
constexpr double kGateReleaseMs = 200.0;
constexpr int kFactorLoudness = 6;
constexpr int kFactorPeak = 4;

QString format(const char* pattern, double value) { return QString::asprintf(pattern, value); }

}  // namespace

QString displayName(SilenceAnchor anchor) {
  switch (anchor) {
    case SilenceAnchor::replaceSelection: return QStringLiteral("Replace selection");
    case SilenceAnchor::beforeSelection: return QStringLiteral("Insert before selection");
    case SilenceAnchor::afterSelection: return QStringLiteral("Insert after selection");
    case SilenceAnchor::fileStart: return QStringLiteral("Insert at start");
    case SilenceAnchor::fileEnd: return QStringLiteral("Insert at end");
    case SilenceAnchor::insertAtPlayhead: return QStringLiteral("Insert at playhead");
  }
  return {};
}

const std::vector<EditControlInfo>& editToolbarControls() {
  static const std::vector<EditControlInfo> controls{
      {EditControl::undo, QStringLiteral("Undo"), QStringLiteral("Undo last edit (Ctrl+Z)")},
      {EditControl::redo, QStringLiteral("Redo"), QStringLiteral("Redo last edit (Shift+Ctrl+Z)")},
      {EditControl::trim, {}, QStringLiteral("Trim to selection (keep the selection, discard the rest)")},
      {EditControl::cut, {}, QStringLiteral("Cut out the selection and join the surrounding audio, with a crossfade at the join")},
      {EditControl::changeLevel, {}, QStringLiteral("Change level (dB)")},
      {EditControl::addSilence, {}, QStringLiteral("Insert or replace with silence")},
      {EditControl::phase, QStringLiteral("Phase"), QStringLiteral("Invert phase (×−1)")},
      {EditControl::removeDC, {}, QStringLiteral("Remove DC offset")},
      {EditControl::fade, QStringLiteral("Fade"), QStringLiteral("Fade in/out on selection")},
      {EditControl::normalize, QStringLiteral("Normalize"),
       QStringLiteral("Normalize the whole file or selection to a loudness (LUFS) or peak (dBFS) target. For "
                      "chapter-to-chapter consistency use Chapter mode's Level.")},
      {EditControl::limitTP, QStringLiteral("Limit TP"),
       QStringLiteral("Apply true-peak limiter at a ceiling without changing loudness")},
      {EditControl::levelDialogue, QStringLiteral("Level Dialogue"),
       QStringLiteral("Duck room tone between phrases, optionally lifting dialogue to a target, without the noise "
                      "floor riding up. For an overall loudness target use Normalize.")},
      {EditControl::swap, {}, QStringLiteral("Swap left and right channels")},
      {EditControl::split, QStringLiteral("Split"), QStringLiteral("Export each channel as mono WAV")},
  };
  return controls;
}

const std::vector<EditMenuEntry>& editMenuEntries() {
  static const std::vector<EditMenuEntry> entries{
      {EditMenuCommand::cut, QStringLiteral("Cut"), QStringLiteral("Backspace"), true},
      {EditMenuCommand::silenceSelection, QStringLiteral("Silence Selection"), QStringLiteral("Alt+Backspace")},
      {EditMenuCommand::trimToSelection, QStringLiteral("Trim to Selection"), QStringLiteral("Ctrl+T")},
      {EditMenuCommand::cutToStart, QStringLiteral("Cut to Start (Playhead)"), QStringLiteral("Ctrl+Backspace"), true},
      {EditMenuCommand::cutToEnd, QStringLiteral("Cut to End (Playhead)"), QStringLiteral("Shift+Ctrl+Backspace")},
      {EditMenuCommand::fadeInSelection, QStringLiteral("Fade In (Selection)"), QStringLiteral("Ctrl+F"), true},
      {EditMenuCommand::fadeOutSelection, QStringLiteral("Fade Out (Selection)"), QStringLiteral("Alt+Ctrl+F")},
      {EditMenuCommand::fadeInToPlayhead, QStringLiteral("Fade In to Playhead"), QStringLiteral("Alt+[")},
      {EditMenuCommand::fadeOutFromPlayhead, QStringLiteral("Fade Out from Playhead"), QStringLiteral("Alt+]")},
      {EditMenuCommand::gainUp, QStringLiteral("Gain +1 dB (Selection)"), QStringLiteral("Meta+Up"), true},
      {EditMenuCommand::gainDown, QStringLiteral("Gain −1 dB (Selection)"), QStringLiteral("Meta+Down")},
  };
  return entries;
}

EditPopover editPopover(EditPopoverKind kind, bool dialogueReadingAvailable) {
  switch (kind) {
    case EditPopoverKind::changeLevel: return {{}, {}, {-6, -3, -1, 1, 3, 6}};
    case EditPopoverKind::cut:
      return {QStringLiteral("Cut Selection"),
              {QStringLiteral("Removes the selection and joins the audio on either side."),
               QStringLiteral("An equal-power crossfade at the join hides the splice click. 0 = hard cut. Clamped to "
                              "the audio kept on each side.")},
              {0, 5, 10, 20}};
    case EditPopoverKind::normalizePeak: return {{}, {}, {-1, -0.5, -0.1, 0}};
    case EditPopoverKind::normalizeLUFS:
      return {{}, {QStringLiteral("True-peak limiter (5 ms lookahead, two-pass)")}, {-16, -14, -11, -9}};
    case EditPopoverKind::limitTP:
      return {{},
              {QStringLiteral("Caps inter-sample peaks at the ceiling; loudness otherwise unchanged. Two-pass offline, "
                              "BS.1770 4× polyphase oversampled detection.")},
              {-2, -1, -0.5, -0.1}};
    case EditPopoverKind::levelDialogue:
      return {QStringLiteral("Level Dialogue"),
              {dialogueReadingAvailable
                   ? QStringLiteral("Ducks the detected non-speech (room tone) between phrases. Lift gains everything "
                                    "so dialogue lands on target, with the floor ending lower, not higher, then caps "
                                    "inter-sample peaks at the ceiling with the true-peak limiter. A gate, not a "
                                    "denoiser: it helps a marginal floor, not a hissy one. Tune the speech regions in "
                                    "Dialogue mode.")
                   : QStringLiteral("Ducks the detected non-speech (room tone) between phrases. No dialogue reading "
                                    "yet, so lifting to a target is unavailable. A gate, not a denoiser. Tune the "
                                    "speech regions in Dialogue mode.")},
              {12, 18, 24}};
  }
  return {};
}

QString chipText(EditPopoverKind kind, double value) {
  return kind == EditPopoverKind::changeLevel ? format("%.1f", value) : format("%g", value);
}

std::optional<double> parseEditNumber(const QString& text) {
  std::string s = text.toStdString();
  // A typed plus sign is a number's sign to the user; from_chars reads only the minus.
  std::string_view view(s);
  if (view.starts_with('+')) {
    view.remove_prefix(1);
    if (view.starts_with('+') || view.starts_with('-')) return std::nullopt;
  }
  double value = 0.0;
  const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
  if (error != std::errc() || end != view.data() + view.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

EditCommands::EditCommands(AudioEngine& engine) : _engine(engine) {}

EditEngine& EditCommands::edits() const { return _engine.editEngine(); }

// ---- Frames -----------------------------------------------------------------------------------

double EditCommands::sampleRate() const {
  return _engine.pcmBuffer() ? _engine.pcmBuffer()->sampleRate() : kFallbackSampleRate;
}

FrameCount EditCommands::totalFrames() const { return _engine.pcmBuffer() ? _engine.pcmBuffer()->frameLength() : 0; }

bool EditCommands::hasSelection() const { return _engine.transport().selection().has_value(); }

FrameRange EditCommands::frameRange() const {
  const auto& selection = _engine.transport().selection();
  if (!selection) return {0, totalFrames()};
  const double rate = sampleRate();
  return {static_cast<FrameCount>(selection->lowerSec * rate), static_cast<FrameCount>(selection->upperSec * rate)};
}

std::optional<FrameRange> EditCommands::editSelectionFrames() const {
  if (!hasSelection() || !_engine.pcmBuffer()) return std::nullopt;
  const auto [start, end] = frameRange();
  const FrameCount total = totalFrames();
  const FrameRange clamped{std::clamp<FrameCount>(start, 0, total), std::clamp<FrameCount>(end, 0, total)};
  if (clamped.first >= clamped.second) return std::nullopt;
  return clamped;
}

FrameCount EditCommands::editPlayheadFrame() const {
  const auto frame = static_cast<FrameCount>(std::llround(_engine.transport().currentTime() * sampleRate()));
  return std::clamp<FrameCount>(frame, 0, totalFrames());
}

QString EditCommands::scopeHint() const {
  return hasSelection() ? QStringLiteral("Applies to the selection.") : QStringLiteral("Applies to the whole file.");
}

std::optional<FrameRange> EditCommands::scopedRange() const {
  if (!hasSelection()) return std::nullopt;
  const FrameRange range = frameRange();
  if (range.first >= range.second) return std::nullopt;
  return range;
}

bool EditCommands::isEnabled(EditControl control) const {
  const SharedAudioBuffer& buffer = _engine.pcmBuffer();
  const int channels = buffer ? buffer->channelCount() : 0;
  switch (control) {
    case EditControl::undo: return edits().undoDepth() > 0;
    case EditControl::redo: return edits().redoDepth() > 0;
    case EditControl::trim:
    case EditControl::cut:
    case EditControl::fade: return hasSelection();
    case EditControl::levelDialogue: {
      const SharedSpeechHistory& history = _engine.dialogue().fileSpeechHistory();
      return history && !history->empty();
    }
    case EditControl::swap: return channels == 2;
    case EditControl::split: return channels >= 2;
    default: return true;
  }
}

bool EditCommands::isEnabled(EditMenuCommand command) const {
  if (!_engine.pcmBuffer()) return false;
  switch (command) {
    case EditMenuCommand::cutToStart:
    case EditMenuCommand::fadeInToPlayhead: return editPlayheadFrame() > 0;
    case EditMenuCommand::cutToEnd:
    case EditMenuCommand::fadeOutFromPlayhead: return editPlayheadFrame() < totalFrames();
    default: return editSelectionFrames().has_value();
  }
}

// ---- Commands on frames -----------------------------------------------------------------------

bool EditCommands::rebuildFits() const {
  const SharedAudioBuffer& buffer = _engine.pcmBuffer();
  return AudioLoadLimits::rebuildEditFits(Ops::decodedBytes(buffer->frameLength(), buffer->channelCount()));
}

bool EditCommands::passesFactorTest(FrameCount frames, int factor) const {
  return Ops::passesFactorTest(Ops::decodedBytes(frames, _engine.pcmBuffer()->channelCount()), factor);
}

void EditCommands::rebuild(bool inMemory, const WholeFileRebuild& road) {
  if (inMemory) {
    edits().applyEdit(road.confirmation, road.operation);
  } else {
    edits().applyStreamingRebuild(road.tag, road.failMessage, road.confirmation, road.write);
  }
}

void EditCommands::applyTrim(FrameCount startFrame, FrameCount endFrame) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  const FrameCount total = buffer->frameLength();
  startFrame = std::clamp<FrameCount>(startFrame, 0, total);
  endFrame = std::clamp<FrameCount>(endFrame, 0, total);
  if (startFrame >= endFrame) return;
  rebuild(rebuildFits(),
          {std::nullopt, [=](EditSource& source) { return Ops::trim(source, startFrame, endFrame); },
           Ops::kTrimTag, QStringLiteral("Couldn't trim this file"),
           [=](EditSource& source, const std::filesystem::path& to) {
             return Ops::writeTrimmedWAV(source, startFrame, endFrame, to, Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::applyCutRange(FrameCount startFrame, FrameCount endFrame, FrameCount crossfadeFrames) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  const FrameCount total = buffer->frameLength();
  startFrame = std::clamp<FrameCount>(startFrame, 0, total);
  endFrame = std::clamp<FrameCount>(endFrame, 0, total);
  if (startFrame >= endFrame || (startFrame == 0 && endFrame == total)) return;
  crossfadeFrames = std::max<FrameCount>(0, crossfadeFrames);
  const QString confirmation =
      QStringLiteral("Cut ") + format("%.2f", static_cast<double>(endFrame - startFrame) / buffer->sampleRate()) +
      QStringLiteral("s");
  rebuild(rebuildFits(), {confirmation,
                          [=](EditSource& source) {
                            return Ops::cutRange(source, startFrame, endFrame, crossfadeFrames);
                          },
                          Ops::kCutTag, QStringLiteral("Couldn't cut this file"),
                          [=](EditSource& source, const std::filesystem::path& to) {
                            return Ops::writeCutWAV(source, startFrame, endFrame, crossfadeFrames, to,
                                                    Ops::kStreamingChunkFrames);
                          }});
}

void EditCommands::applyAddSilence(FrameCount startFrame, FrameCount endFrame, Ops::SilenceMode mode,
                                   FrameCount durationFrames) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  // The test is on the result: the current frames plus what is inserted.
  const FrameCount total = buffer->frameLength();
  const FrameCount resultFrames =
      mode == Ops::SilenceMode::replace ? total : total + std::max<FrameCount>(0, durationFrames);
  rebuild(passesFactorTest(resultFrames, kFactorPeak),
          {std::nullopt,
           [=](EditSource& source) { return Ops::addSilence(source, startFrame, endFrame, mode, durationFrames); },
           Ops::kSilenceTag, QStringLiteral("Couldn't add silence to this file"),
           [=](EditSource& source, const std::filesystem::path& to) {
             return Ops::writeSilenceWAV(source, startFrame, endFrame, mode, durationFrames, to,
                                         Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::addSilenceAtPlayhead(FrameCount durationFrames) {
  const FrameCount playhead = editPlayheadFrame();
  applyAddSilence(playhead, playhead, Ops::SilenceMode::before, durationFrames);
}

void EditCommands::applyNormalizeLUFS(double targetLUFS, double ceilingDB, std::optional<FrameRange> range) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  const std::vector<double> weights = ChannelOrder::bs1770Weights(*buffer);
  auto operation = [=](const ChannelData& d, double rate) {
    return Ops::normalizeLUFS(d, targetLUFS, ceilingDB, rate, weights);
  };
  if (range) {
    edits().applyRangeEdit(range->first, range->second,
                           QString::asprintf("Normalized selection to %.1f LUFS, peak-limited at %.1f dBTP", targetLUFS,
                                             ceilingDB),
                           operation);
    return;
  }
  rebuild(passesFactorTest(buffer->frameLength(), kFactorLoudness),
          {QString::asprintf("Normalized to %.1f LUFS, peak-limited at %.1f dBTP", targetLUFS, ceilingDB),
           [=](EditSource& source) { return Ops::normalizeLUFS(source, targetLUFS, ceilingDB, weights); },
           Ops::kNormalizeTag, QStringLiteral("Couldn't normalize this file"),
           [=](EditSource& source, const std::filesystem::path& to) {
             return Ops::writeNormalizedWAV(source, targetLUFS, ceilingDB, to, Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::applyNormalizePeak(double targetDB, std::optional<FrameRange> range) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  auto operation = [=](const ChannelData& d, double rate) { return Ops::normalizePeak(d, targetDB, rate); };
  if (range) {
    edits().applyRangeEdit(range->first, range->second, format("Peak-normalized selection to %.1f dBFS", targetDB),
                           operation);
    return;
  }
  rebuild(passesFactorTest(buffer->frameLength(), kFactorPeak),
          {format("Peak-normalized to %.1f dBFS", targetDB),
           [=](EditSource& source) { return Ops::normalizePeak(source, targetDB); }, Ops::kPeakNormalizeTag,
           QStringLiteral("Couldn't normalize this file"),
           [=](EditSource& source, const std::filesystem::path& to) {
             return Ops::writePeakNormalizedWAV(source, targetDB, to, Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::applyLimitTP(double ceilingDBTP, std::optional<FrameRange> range) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  auto operation = [=](const ChannelData& d, double rate) { return Ops::limitTruePeak(d, ceilingDBTP, rate); };
  if (range) {
    edits().applyRangeEdit(range->first, range->second, format("Limited selection true peak to %.1f dBTP", ceilingDBTP),
                           operation);
    return;
  }
  rebuild(passesFactorTest(buffer->frameLength(), kFactorLoudness),
          {format("Limited true peak to %.1f dBTP", ceilingDBTP),
           [=](EditSource& source) { return Ops::limitTruePeak(source, ceilingDBTP); }, Ops::kLimitTag,
           QStringLiteral("Couldn't limit this file"),
           [=](EditSource& source, const std::filesystem::path& to) {
             return Ops::writeLimitedWAV(source, ceilingDBTP, to, Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::applyNormalizeByGain(double gainDB, double ceilingDB, const std::optional<QString>& confirmation) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  rebuild(passesFactorTest(buffer->frameLength(), kFactorLoudness),
          {confirmation,
           [=](EditSource& source) { return Ops::normalizeByGain(source, gainDB, ceilingDB); },
           Ops::kGainNormalizeTag, QStringLiteral("Couldn't normalize this file"),
           [=](EditSource& source, const std::filesystem::path& to) {
             return Ops::writeGainLimitedWAV(source, gainDB, ceilingDB, to, Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::applyNormalizeToDialogGated(double targetLUFS, double ceilingDB) {
  const double gated = dialogGatedReading();
  if (!std::isfinite(gated)) return;
  applyNormalizeByGain(targetLUFS - gated, ceilingDB,
                       QString::asprintf("Normalized dialogue to %.1f LKFS, peak-limited at %.1f dBTP", targetLUFS,
                                         ceilingDB));
}

void EditCommands::applyChannelSwap() {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer) return;
  rebuild(passesFactorTest(buffer->frameLength(), kFactorPeak),
          {std::nullopt, [](EditSource& source) { return Ops::swapChannels(source); }, Ops::kSwapTag,
           QStringLiteral("Couldn't swap channels on this file"),
           [](EditSource& source, const std::filesystem::path& to) {
             return Ops::writeChannelSwappedWAV(source, to, Ops::kStreamingChunkFrames);
           }});
}

void EditCommands::applyDialogueLeveling(double reductionDB, std::optional<double> targetLUFS,
                                         std::optional<double> ceilingDBTP) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  const SharedSpeechHistory history = _engine.dialogue().fileSpeechHistory();
  if (!buffer || !_engine.loadedFile() || !history || history->empty()) return;
  const double rate = buffer->sampleRate();
  const FrameCount blockFrames = std::max<FrameCount>(1, std::llround(rate * kSpeechBlockSeconds));
  double makeupDB = 0.0;
  if (targetLUFS) {
    const double gated = dialogGatedReading();
    if (!std::isfinite(gated)) return;
    makeupDB = *targetLUFS - gated;
  }
  const QString depth = format("%.0f", std::fabs(reductionDB));
  const SpeechHistory mask = *history;

  if (targetLUFS && ceilingDBTP) {
    const double ceiling = *ceilingDBTP;
    const QString confirmation =
        format("Leveled dialogue to %.1f LKFS", *targetLUFS) + QStringLiteral(", room tone ducked ") + depth +
        format(" dB, peak-limited at %.1f dBTP", ceiling);
    edits().applyEdit(confirmation, [=](const ChannelData& d, double r) {
      Ops::EditResult gated = Ops::expandNonSpeech(d, mask, blockFrames, reductionDB, makeupDB, kGateAttackMs,
                                                   kGateReleaseMs, r);
      if (gated.nothingToDo) return Ops::limitTruePeak(d, ceiling, r);
      Ops::EditResult limited = Ops::limitTruePeak(gated.channelData, ceiling, r);
      return limited.nothingToDo ? gated : limited;
    });
    return;
  }
  const QString confirmation =
      targetLUFS ? format("Leveled dialogue to %.1f LKFS", *targetLUFS) + QStringLiteral(", room tone ducked ") + depth +
                       QStringLiteral(" dB")
                 : QStringLiteral("Ducked room tone ") + depth + QStringLiteral(" dB between phrases");
  edits().applyInPlaceEdit(0, buffer->frameLength(), confirmation,
                           [=](float* const* d, int n, FrameCount total, FrameCount, FrameCount) {
                             return Ops::expandNonSpeechInPlace(d, n, total, mask, blockFrames, reductionDB, makeupDB,
                                                                kGateAttackMs, kGateReleaseMs, rate);
                           });
}

void EditCommands::applyFade(FrameRange range, Ops::FadeDirection direction, Ops::FadeCurve curve,
                             const std::optional<QString>& confirmation) {
  edits().applyInPlaceEdit(range.first, range.second, confirmation,
                           [=](float* const* d, int n, FrameCount total, FrameCount s, FrameCount e) {
                             return Ops::fadeInPlace(d, n, total, direction, curve, s, e);
                           });
}

void EditCommands::applyGain(FrameRange range, double gainDB, const std::optional<QString>& confirmation) {
  edits().applyInPlaceEdit(range.first, range.second, confirmation,
                           [=](float* const* d, int n, FrameCount total, FrameCount s, FrameCount e) {
                             return Ops::changeLevelInPlace(d, n, total, gainDB, s, e);
                           });
}

double EditCommands::dialogGatedReading() const { return _engine.analysis().targets().displayDialogGatedLUFS(); }

// ---- Requests of the loudness targets -----------------------------------------------------------

std::optional<EditTargetForm> EditCommands::takeTargetRequest() {
  LoudnessTargets& targets = _engine.analysis().targets();
  if (const auto& request = targets.pendingNormalize()) {
    EditTargetForm form;
    form.normalize = *request;
    form.title = QStringLiteral("Normalize");
    const bool gated = request->basis == PendingNormalize::Basis::dialogGated;
    const QString unit = gated ? QStringLiteral("LKFS") : QStringLiteral("LUFS");
    const double gain = static_cast<double>(request->targetLUFS) - request->nowLUFS;
    form.rows = {{QStringLiteral("Now"), QString::asprintf("%.1f ", request->nowLUFS) + unit},
                 {QStringLiteral("Target"), QString::asprintf("%.1f ", request->targetLUFS) + unit},
                 {QStringLiteral("Gain"), (gain >= 0.0 ? QStringLiteral("+") : QString()) + format("%.1f dB", gain)},
                 {QStringLiteral("Basis"), gated ? QStringLiteral("Dialog-gated") : QStringLiteral("Integrated")}};
    form.ceilingText = format("%.1f", request->ceilingDB);
    form.note = QStringLiteral("True-peak limiter at the ceiling.");
    targets.consumePendingNormalize();
    return form;
  }
  if (const auto& request = targets.pendingLimitTP()) {
    EditTargetForm form;
    form.limit = *request;
    form.title = QStringLiteral("Limit True Peak");
    form.ceilingText = format("%.1f", request->ceilingDBTP);
    form.note = QStringLiteral("Caps inter-sample peaks at the ceiling; loudness unchanged.");
    targets.consumePendingLimitTP();
    return form;
  }
  return std::nullopt;
}

void EditCommands::applyTargetForm(const EditTargetForm& form, const QString& ceilingText) {
  const auto ceiling = parseEditNumber(ceilingText);
  if (!ceiling) return;
  // The target forms always act on the whole file.
  if (form.normalize) {
    if (form.normalize->basis == PendingNormalize::Basis::integrated) {
      applyNormalizeLUFS(form.normalize->targetLUFS, *ceiling, std::nullopt);
    } else {
      applyNormalizeToDialogGated(form.normalize->targetLUFS, *ceiling);
    }
  } else if (form.limit) {
    applyLimitTP(*ceiling, std::nullopt);
  }
}

// ---- The toolbar ------------------------------------------------------------------------------

void EditCommands::performCut(const EditToolbarState& state) {
  if (!hasSelection()) return;
  const double ms = std::max(0.0, parseEditNumber(state.cutCrossfadeMs).value_or(10.0));
  const auto crossfade = static_cast<FrameCount>(sampleRate() * ms / 1000.0);
  const auto [start, end] = frameRange();
  applyCutRange(start, end, crossfade);
}

void EditCommands::performAddSilence(const EditToolbarState& state) {
  if (!_engine.pcmBuffer()) return;
  const double rate = sampleRate();
  FrameCount duration = 0;
  if (state.silenceUnit == SilenceUnit::seconds) {
    duration = static_cast<FrameCount>(rate * parseEditNumber(state.silenceValue).value_or(1.0));
  } else {
    bool ok = false;
    const qlonglong samples = state.silenceValue.toLongLong(&ok);
    duration = ok ? static_cast<FrameCount>(samples) : static_cast<FrameCount>(rate);
  }
  const FrameCount total = totalFrames();
  const auto [start, end] = frameRange();
  switch (state.silenceAnchor) {
    case SilenceAnchor::replaceSelection: applyAddSilence(start, end, Ops::SilenceMode::replace, duration); break;
    case SilenceAnchor::beforeSelection: applyAddSilence(start, end, Ops::SilenceMode::before, duration); break;
    case SilenceAnchor::afterSelection: applyAddSilence(start, end, Ops::SilenceMode::after, duration); break;
    case SilenceAnchor::fileStart: applyAddSilence(0, total, Ops::SilenceMode::before, duration); break;
    case SilenceAnchor::fileEnd: applyAddSilence(0, total, Ops::SilenceMode::after, duration); break;
    case SilenceAnchor::insertAtPlayhead: addSilenceAtPlayhead(duration); break;
  }
}

SilenceAnchor EditCommands::anchorOnOpening(SilenceAnchor current, bool hasSelection) {
  const bool selectionAnchor = current == SilenceAnchor::replaceSelection || current == SilenceAnchor::beforeSelection ||
                               current == SilenceAnchor::afterSelection;
  const bool fileAnchor = current == SilenceAnchor::fileStart || current == SilenceAnchor::fileEnd;
  if ((selectionAnchor && !hasSelection) || (fileAnchor && hasSelection)) {
    return hasSelection ? SilenceAnchor::replaceSelection : SilenceAnchor::insertAtPlayhead;
  }
  return current;
}

std::vector<SilenceAnchor> EditCommands::anchorChoices(bool hasSelection) {
  if (hasSelection) {
    return {SilenceAnchor::replaceSelection, SilenceAnchor::beforeSelection, SilenceAnchor::afterSelection,
            SilenceAnchor::insertAtPlayhead};
  }
  return {SilenceAnchor::fileStart, SilenceAnchor::fileEnd, SilenceAnchor::insertAtPlayhead};
}

void EditCommands::performGainChange(const EditToolbarState& state) {
  const auto gain = parseEditNumber(state.gainDB);
  if (!gain) return;
  applyGain(frameRange(), *gain, std::nullopt);
}

void EditCommands::performFade(const EditToolbarState& state) {
  FrameRange range = frameRange();
  const FrameCount total = totalFrames();
  if (range.second - range.first >= total) {
    // A fade over the whole file would be a level ramp, not a fade: it is kept to 10 s.
    const FrameCount length =
        _engine.loadedFile()
            ? std::min(total, static_cast<FrameCount>(_engine.loadedFile()->sampleRate * kWholeFileFadeSeconds))
            : std::min(total, kWholeFileFadeFallbackFrames);
    range = state.fadeDirection == Ops::FadeDirection::fadeIn ? FrameRange{0, length} : FrameRange{total - length, total};
  }
  applyFade(range, state.fadeDirection, state.fadeCurve, std::nullopt);
}

void EditCommands::performInvertPhase() {
  const FrameRange range = frameRange();
  edits().applyInPlaceEdit(range.first, range.second, std::nullopt,
                           [](float* const* d, int n, FrameCount total, FrameCount s, FrameCount e) {
                             return Ops::invertPhaseInPlace(d, n, total, s, e);
                           });
}

void EditCommands::performRemoveDC() {
  const FrameRange range = frameRange();
  edits().applyInPlaceEdit(range.first, range.second, std::nullopt,
                           [](float* const* d, int n, FrameCount total, FrameCount s, FrameCount e) {
                             return Ops::removeDCOffsetInPlace(d, n, total, s, e);
                           });
}

void EditCommands::performNormalize(const EditToolbarState& state) {
  const std::optional<FrameRange> range = scopedRange();
  if (state.normalizeMode == NormalizeMode::peak) {
    const auto target = parseEditNumber(state.normalizeTargetDB);
    if (target) applyNormalizePeak(*target, range);
    return;
  }
  const auto target = parseEditNumber(state.normalizeTargetLUFS);
  const auto ceiling = parseEditNumber(state.normalizeCeilingDB);
  if (target && ceiling) applyNormalizeLUFS(*target, *ceiling, range);
}

void EditCommands::performLimitTP(const EditToolbarState& state) {
  const auto ceiling = parseEditNumber(state.limitTPCeilingDBTP);
  if (ceiling) applyLimitTP(*ceiling, scopedRange());
}

void EditCommands::performDialogueLeveling(const EditToolbarState& state) {
  // The depth is a reduction whichever sign was typed.
  const double reduction = -std::fabs(parseEditNumber(state.dialogueReductionDB).value_or(18.0));
  std::optional<double> target;
  std::optional<double> ceiling;
  if (state.dialogueLiftToTarget && std::isfinite(dialogGatedReading())) {
    target = parseEditNumber(state.dialogueTargetLKFS).value_or(-16.0);
    ceiling = parseEditNumber(state.dialogueCeilingDBTP).value_or(-1.0);
  }
  applyDialogueLeveling(reduction, target, ceiling);
}

// ---- The Edit menu ----------------------------------------------------------------------------

void EditCommands::perform(EditMenuCommand command) {
  if (!_engine.pcmBuffer()) return;
  const std::optional<FrameRange> selection = editSelectionFrames();
  const FrameCount playhead = editPlayheadFrame();
  const FrameCount total = totalFrames();
  switch (command) {
    case EditMenuCommand::trimToSelection:
      if (selection) applyTrim(selection->first, selection->second);
      break;
    case EditMenuCommand::cutToStart: applyTrim(playhead, total); break;
    case EditMenuCommand::cutToEnd: applyTrim(0, playhead); break;
    case EditMenuCommand::cut:
      if (selection) {
        applyCutRange(selection->first, selection->second,
                      static_cast<FrameCount>(sampleRate() * kMenuCrossfadeSeconds));
      }
      break;
    case EditMenuCommand::silenceSelection:
      if (selection) applyAddSilence(selection->first, selection->second, Ops::SilenceMode::replace, 0);
      break;
    case EditMenuCommand::fadeInSelection:
    case EditMenuCommand::fadeOutSelection:
      if (selection) {
        const bool in = command == EditMenuCommand::fadeInSelection;
        applyFade(*selection, in ? Ops::FadeDirection::fadeIn : Ops::FadeDirection::fadeOut, Ops::FadeCurve::equalPower,
                  in ? QStringLiteral("Faded in") : QStringLiteral("Faded out"));
      }
      break;
    case EditMenuCommand::fadeInToPlayhead:
      if (playhead > 0) {
        applyFade({0, playhead}, Ops::FadeDirection::fadeIn, Ops::FadeCurve::equalPower, QStringLiteral("Faded in"));
      }
      break;
    case EditMenuCommand::fadeOutFromPlayhead:
      if (playhead < total) {
        applyFade({playhead, total}, Ops::FadeDirection::fadeOut, Ops::FadeCurve::equalPower,
                  QStringLiteral("Faded out"));
      }
      break;
    case EditMenuCommand::gainUp:
    case EditMenuCommand::gainDown:
      if (selection) {
        const double gain = command == EditMenuCommand::gainUp ? 1.0 : -1.0;
        applyGain(*selection, gain, format("Gain %+.0f dB", gain));
      }
      break;
  }
}

// ---- Split to mono ----------------------------------------------------------------------------

std::vector<std::string> EditCommands::monoFileNames() const {
  std::vector<std::string> names;
  const auto& model = _engine.loadedFile();
  const SharedAudioBuffer& buffer = _engine.pcmBuffer();
  if (!model || !buffer) return names;
  const std::vector<std::string> labels = model->channelLabels();
  const std::string stem = model->url.stem().string();
  for (int c = 0; c < buffer->channelCount(); ++c) {
    const std::string label =
        c < static_cast<int>(labels.size()) ? labels[static_cast<std::size_t>(c)] : "ch" + std::to_string(c + 1);
    names.push_back(stem + "_" + label + ".wav");
  }
  return names;
}

void EditCommands::splitToMonoExport(const std::filesystem::path& folder) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer || !_engine.loadedFile() || buffer->channelCount() < 2) return;
  const std::filesystem::path input = _engine.loadedFile()->url;
  const std::vector<std::string> names = monoFileNames();
  // Every name is checked before anything is written: a split is whole or not at all.
  try {
    for (const std::string& name : names) {
      EditOutputGuard::assertNotInPlace(input, folder / name);
      if (std::filesystem::exists(folder / name)) {
        _engine.presentAlert(SessionAlert{
            SessionAlert::Style::warning, QStringLiteral("A file with that name already exists"),
            QStringLiteral("Splitting would overwrite \"%1\". Choose an empty folder, or move the existing files first.")
                .arg(QString::fromStdString(name)),
            {QStringLiteral("OK")}});
        return;
      }
    }
    BufferEditSource source(*buffer);
    for (int c = 0; c < buffer->channelCount(); ++c) {
      Ops::writeMonoChannelWAV(source, c, folder / names[static_cast<std::size_t>(c)], Ops::kStreamingChunkFrames);
    }
  } catch (const EditOutputGuardError&) {
    edits().presentInPlaceWriteRefused();
  } catch (const std::exception& e) {
    _engine.presentAlert(SessionAlert{SessionAlert::Style::warning, QString::fromStdString(e.what()), {},
                                      {QStringLiteral("OK")}});
  }
}

}  // namespace corvane
