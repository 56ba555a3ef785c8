// The four roads of an edit, and the two ways the session catches up with it.
#include <QPointer>
#include <cmath>
#include <cstdio>
#include <limits>
#include <new>
#include <system_error>

#include "compare/CompareModel.h"
#include "compare/CompareSlot.h"
#include "dialogue/DialogueModel.h"
#include "editing/EditEngine.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/pipelines/FileLoadPipeline.h"
#include "measurement/FileAnalysis.h"
#include "measurement/LiveMeters.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/BackgroundWork.h"
#include "session/SessionSettings.h"

namespace corvane {

const QString EditEngine::kTooLargeText = QStringLiteral(
    "This file is too large to apply that edit in memory. Fades, gain, phase, and DC removal work on any size; for "
    "trim, silence, or normalize on a file this large, save a trimmed copy first.");
const QString EditEngine::kOutOfMemoryText = QStringLiteral(
    "There isn't enough memory to apply this edit to a file this large. Try editing a shorter selection, or save a "
    "trimmed copy first.");

namespace {

void removeQuietly(const std::filesystem::path& file) {
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
}

QString describe(const std::exception& error) {
  if (dynamic_cast<const std::bad_alloc*>(&error)) return QStringLiteral("Not enough memory.");
  return QString::fromStdString(error.what());
}

}  // namespace

// ---- Around every road ------------------------------------------------------------------------

void EditEngine::reportFailure(const QString& text) {
  _engine.presentEditFailure(text);
}

bool EditEngine::pauseForEdit() {
  Transport& transport = _engine.transport();
  const bool wasPlaying = transport.isPlaying();
  if (wasPlaying) transport.pause();
  return wasPlaying;
}

void EditEngine::waitForRenderToLeave() {
  // pause() has cleared the playing flag; a callback that entered before may still be copying
  // samples out of the buffer, so the in-place write waits for it to leave.
  _engine.transport().controller().waitForRenderToLeave();
}

void EditEngine::resumePlayback() { _engine.transport().play(); }

// ---- Rebuild in memory --------------------------------------------------------------------------

void EditEngine::applyEdit(const std::optional<QString>& confirmation, const RebuildOperation& operation) {
  applyRebuild(confirmation, [&](const AudioBuffer& old) {
    return operation(EditOperations::extractChannelData(old), old.sampleRate());
  });
}

void EditEngine::applyEdit(const std::optional<QString>& confirmation, const SourceOperation& operation) {
  applyRebuild(confirmation, [&](const AudioBuffer& old) {
    BufferEditSource source(old);
    return operation(source);
  });
}

void EditEngine::applyRebuild(const std::optional<QString>& confirmation,
                              const std::function<EditOperations::EditResult(const AudioBuffer& old)>& build) {
  const SharedAudioBuffer old = _engine.pcmBuffer();
  if (!old || !_engine.loadedFile()) return;
  const AudioFileModel oldModel = *_engine.loadedFile();
  const bool wasPlaying = pauseForEdit();
  auto fail = [&](const QString& text) {
    reportFailure(text);
    if (wasPlaying) resumePlayback();
  };

  if (!AudioLoadLimits::rebuildEditFits(EditOperations::decodedBytes(old->frameLength(), old->channelCount()))) {
    fail(kTooLargeText);
    return;
  }
  SharedAudioBuffer built;
  try {
    EditOperations::EditResult result = build(*old);
    if (result.nothingToDo) {
      if (wasPlaying) resumePlayback();
      return;
    }
    built = EditOperations::buildBuffer(std::move(result), old->channelPositions());
  } catch (const std::bad_alloc&) {
    built.reset();
  } catch (const std::exception& e) {
    fail(describe(e));
    return;
  }
  if (!built) {
    fail(kOutOfMemoryText);
    return;
  }
  recordEdit(*old, oldModel);
  AudioFileModel model = AudioFileModel::fromBuffer(built, oldModel);
  const bool lengthChanged = built->frameLength() != old->frameLength();
  swapEditedBuffer(std::move(built), std::move(model), lengthChanged);
  setIsDirty(true);
  if (confirmation) confirm(*confirmation);
}

// ---- Streaming rebuild --------------------------------------------------------------------------

void EditEngine::applyStreamingRebuild(std::string_view tempName, const QString& failMessage,
                                       const std::optional<QString>& confirmation, const StreamingWrite& write) {
  const SharedAudioBuffer old = _engine.pcmBuffer();
  if (!old || !_engine.loadedFile()) return;
  const AudioFileModel oldModel = *_engine.loadedFile();
  const bool wasPlaying = pauseForEdit();

  std::filesystem::path destination;
  try {
    destination = EditOperations::temporaryResultPath(tempName);
    BufferEditSource source(*old);
    if (!write(source, destination)) {
      removeQuietly(destination);
      if (wasPlaying) resumePlayback();
      return;
    }
    // The entry is made once the result is complete, before it is read back: a read-back that
    // fails leaves an entry whose undo restores the same audio.
    recordEdit(*old, oldModel);
    // Decoded alone: the model is made once, from the old one, with one scan for peaks.
    SharedAudioBuffer result = AudioFileModel::decode(destination);
    removeQuietly(destination);
    AudioFileModel model = AudioFileModel::fromBuffer(result, oldModel);
    const bool lengthChanged = result->frameLength() != old->frameLength();
    swapEditedBuffer(std::move(result), std::move(model), lengthChanged);
    setIsDirty(true);
    if (confirmation) confirm(*confirmation);
  } catch (const std::exception& e) {
    if (!destination.empty()) removeQuietly(destination);
    reportFailure(failMessage + QStringLiteral(": ") + describe(e));
    if (wasPlaying) resumePlayback();
  }
}

// ---- Range and in-place edits -------------------------------------------------------------------

bool EditEngine::beginInPlace(FrameCount& startFrame, FrameCount& endFrame, bool& wasPlaying) {
  const SharedAudioBuffer& buffer = _engine.pcmBuffer();
  if (!buffer || !_engine.loadedFile() || buffer->channelCount() < 1) return false;
  startFrame = std::max<FrameCount>(0, startFrame);
  endFrame = std::min(endFrame, buffer->frameLength());
  if (startFrame >= endFrame) return false;
  wasPlaying = pauseForEdit();
  waitForRenderToLeave();
  _engine.bumpBufferEpoch();
  recordEdit(*buffer, *_engine.loadedFile());
  return true;
}

void EditEngine::finishInPlace(FrameCount startFrame, FrameCount endFrame, bool wasPlaying,
                               const std::optional<QString>& confirmation) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  AudioFileModel model = _engine.loadedFile()->refreshedAfterInPlaceEdit(buffer, startFrame, endFrame, kClipThreshold);
  refreshAfterInPlaceEdit(std::move(model), buffer);
  setIsDirty(true);
  // The spectral tile store's invalidation of the range joins here with its subsystem.
  if (wasPlaying) resumePlayback();
  if (confirmation) confirm(*confirmation);
}

void EditEngine::applyRangeEdit(FrameCount startFrame, FrameCount endFrame, const std::optional<QString>& confirmation,
                                const RebuildOperation& operation) {
  bool wasPlaying = false;
  if (!beginInPlace(startFrame, endFrame, wasPlaying)) return;
  AudioBuffer& buffer = *_engine.pcmBuffer();
  const auto frames = static_cast<std::size_t>(endFrame - startFrame);
  EditOperations::EditResult result;
  try {
    ChannelData range(static_cast<std::size_t>(buffer.channelCount()));
    for (int c = 0; c < buffer.channelCount(); ++c) {
      const float* from = buffer.channel(c) + startFrame;
      range[static_cast<std::size_t>(c)].assign(from, from + frames);
    }
    result = operation(range, buffer.sampleRate());
  } catch (const std::exception& e) {
    dropNewestUndo();
    reportFailure(describe(e));
    if (wasPlaying) resumePlayback();
    return;
  }
  if (result.nothingToDo) {
    dropNewestUndo();
    if (wasPlaying) resumePlayback();
    return;
  }
  const int channels = std::min(result.channelCount(), buffer.channelCount());
  for (int c = 0; c < channels; ++c) {
    const auto& edited = result.channelData[static_cast<std::size_t>(c)];
    // A channel of another length has no place in the range; it stays as it was.
    if (edited.size() != frames) continue;
    std::copy(edited.begin(), edited.end(), buffer.channel(c) + startFrame);
  }
  finishInPlace(startFrame, endFrame, wasPlaying, confirmation);
}

void EditEngine::applyInPlaceEdit(FrameCount startFrame, FrameCount endFrame,
                                  const std::optional<QString>& confirmation, const InPlaceOperation& operation) {
  bool wasPlaying = false;
  if (!beginInPlace(startFrame, endFrame, wasPlaying)) return;
  AudioBuffer& buffer = *_engine.pcmBuffer();
  if (!operation(buffer.channels(), buffer.channelCount(), buffer.frameLength(), startFrame, endFrame)) {
    dropNewestUndo();
    if (wasPlaying) resumePlayback();
    return;
  }
  finishInPlace(startFrame, endFrame, wasPlaying, confirmation);
}

// ---- The session catches up ---------------------------------------------------------------------

void EditEngine::swapEditedBuffer(SharedAudioBuffer buffer, AudioFileModel model, bool lengthChanged) {
  if (!buffer) return;
  _engine.bumpBufferEpoch();
  model.pcmBuffer = buffer;
  _engine.setEditedFile(model, buffer);
  Transport& transport = _engine.transport();
  // The render side takes the new buffer at its next run; the old one is freed only once the
  // callback has moved on.
  transport.swapSourceBuffer(buffer);
  transport.setSelection(std::nullopt);
  transport.seekImpl(0.0, true);
  _engine.analysis().setSelectionAnalysis({});
  clearDerivedFigures();
  if (lengthChanged) {
    _engine.dialogue().clearForLoad();
    transport.applySpeechHistory(nullptr);
    // The chapters are cleared here once the chapter subsystem exists.
    scheduleSpeechRederiveAfterEdit();
  }
  rebuildReferenceSlot(model, buffer);
  _engine.schedulePyramidRebuild();
}

void EditEngine::refreshAfterInPlaceEdit(AudioFileModel model, const SharedAudioBuffer& buffer) {
  model.pcmBuffer = buffer;
  _engine.setEditedFile(model, buffer);
  _engine.analysis().setSelectionAnalysis({});
  clearDerivedFigures();
  _engine.transport().mirrors()._atomicPendingLoudnessReset.store(true);
  rebuildReferenceSlot(model, buffer);
}

void EditEngine::clearDerivedFigures() {
  FileAnalysis& analysis = _engine.analysis();
  analysis.setFileLoudnessCurve({});
  analysis.setFileStereoWidthCurve({});
  analysis.setFileSpeechGatedLUFS(-std::numeric_limits<float>::infinity());
  analysis.setFileSamplePeakDB(-std::numeric_limits<float>::infinity());
  analysis.setOfflineSpectrogramColumns({});
  // New analysis rings (the old ones retire once the callback has left them), empty spectra,
  // no live curves or columns.
  const SharedAudioBuffer& buffer = _engine.pcmBuffer();
  const SessionSettings& settings = _engine.sessionSettings();
  try {
    _engine.meters().prepareForFile(buffer->channelCount(), buffer->sampleRate(), settings.fftSize(),
                                    settings.fftWindowType(), _engine.transport().mirrors());
  } catch (const std::invalid_argument& e) {
    std::printf("[EditEngine] no live spectrum: %s\n", e.what());
  }
}

void EditEngine::rebuildReferenceSlot(const AudioFileModel& model, const SharedAudioBuffer& buffer) {
  CompareModel& compare = _engine.compare();
  if (compare.compareSlots().empty()) return;
  compare.placeReference(CompareSlot::make(model.url, model, buffer, false));
}

void EditEngine::scheduleSpeechRederiveAfterEdit() {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer || !_engine.loadedFile()) return;
  FileLoadOptions options;
  options.vadTuning = _engine.sessionSettings().currentVADTuning();
  const quint64 generation = _engine.loadGeneration();
  const quint64 epoch = _engine.bufferEpoch();
  runUserInitiated([engine = QPointer<AudioEngine>(&_engine), buffer, options, generation, epoch] {
    SpeechStageResult speech = detectFileSpeech(*buffer, options);
    landOnMainThread(engine, [speech = std::move(speech), tuning = options.vadTuning, generation,
                              epoch](AudioEngine& e) {
      // A later edit or another file makes this history describe audio that is gone.
      if (e.loadGeneration() != generation || e.bufferEpoch() != epoch) return;
      e.dialogue().landDetectedHistory(speech.history, tuning);
      if (speech.history) e.transport().applySpeechHistory(speech.history);
    });
  });
}

}  // namespace corvane
