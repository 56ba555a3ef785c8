// How edited audio reaches a file: Save over the loaded file (opt-in, behind a setting and a
// confirmation), Save As (a new file, never the loaded one), and what the leave-session
// questions need to know about both.
#include <QStringList>
#include <cstdio>

#include "compare/CompareModel.h"
#include "compare/CompareSlot.h"
#include "core/ChannelOrder.h"
#include "editing/EditEngine.h"
#include "headless/files/AudioContainer.h"
#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/EditOutputGuard.h"
#include "headless/files/InPlaceSave.h"
#include "headless/files/PCMWriteSettings.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"
#include "session/SettingsStore.h"

namespace corvane {

namespace {

QString text(const std::string& utf8) { return QString::fromStdString(utf8); }

bool liesInside(const std::filesystem::path& file, const QString& folder) {
  if (folder.isEmpty()) return false;
  const std::string inside = std::filesystem::path(folder.toStdString()).lexically_normal().string();
  const std::string path = std::filesystem::absolute(file).lexically_normal().string();
  return path.starts_with(inside.ends_with('/') ? inside : inside + '/');
}

}  // namespace

std::optional<QString> EditEngine::inPlaceSaveBlocker() const {
  const auto& model = _engine.loadedFile();
  if (!model) return QStringLiteral("No file is loaded.");
  if (model->rawFormat) {
    return QStringLiteral(
        "This file was opened as raw PCM. It has no header to rewrite, so use Save As to write a WAV.");
  }
  if (liesInside(model->url, takesDirectory())) {
    return QStringLiteral(
        "This is a recorded take still in Corvane's takes folder. Use Save Take As… to keep it somewhere of your own.");
  }
  const QString format = text(model->identity ? model->identity->formatLabel : model->fileFormat);
  if (!audioContainer(model->url.extension().string())) {
    return QStringLiteral("Corvane writes WAV, AIFF, and CAF in place. %1 files are saved as a new file with Save As.")
        .arg(format);
  }
  if (model->identity && !model->identity->isRewritableInPlace) {
    return QStringLiteral(
               "This file is %1 inside, whatever its name says. Corvane writes WAV, AIFF, and CAF in place; use Save "
               "As to write a new file.")
        .arg(format);
  }
  return std::nullopt;
}

QString EditEngine::sessionPromptSaveTitle() const {
  // "Save" only where one press finishes the save; any further dialog earns the ellipsis.
  const SettingsStore& settings = _engine.settings();
  const bool oneStep =
      settings.corvaneAllowSaveOverwrite() && !inPlaceSaveBlocker() && !settings.corvaneConfirmSaveOverwrite();
  return oneStep ? QStringLiteral("Save") : QStringLiteral("Save…");
}

void EditEngine::saveEditedBufferInPlace() {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer || !_engine.loadedFile() || !_isDirty) return;
  SettingsStore& settings = _engine.settings();
  if (!settings.corvaneAllowSaveOverwrite()) {
    exportEditedBuffer();
    return;
  }
  if (const auto blocker = inPlaceSaveBlocker()) {
    const int answer = _engine.presentAlert(SessionAlert{SessionAlert::Style::warning,
                                                         QStringLiteral("Can't save over this file"), *blocker,
                                                         {QStringLiteral("Save As…"), QStringLiteral("Cancel")}});
    if (answer == 0) exportEditedBuffer();
    return;
  }
  const AudioFileModel model = *_engine.loadedFile();
  const QString fileName = text(model.url.filename().string());
  if (settings.corvaneConfirmSaveOverwrite()) {
    SessionAlert alert{SessionAlert::Style::warning, QStringLiteral("Save over \"%1\"?").arg(fileName),
                       QStringLiteral("The file on disk will be replaced with the edited audio, keeping its format. The "
                                      "original can't be recovered afterwards: Undo and Discard Edits only reach back "
                                      "to this save."),
                       {QStringLiteral("Save"), QStringLiteral("Save As…"), QStringLiteral("Cancel")}};
    alert.suppressionTitle = QStringLiteral("Don't ask again");
    const int answer = _engine.presentAlert(alert);
    if (answer == 1) {
      exportEditedBuffer();
      return;
    }
    if (answer != 0) return;
    if (_engine.alertSuppressionChecked()) settings.setCorvaneConfirmSaveOverwrite(false);
  }
  try {
    InPlaceSave::write(*buffer, model.url);
  } catch (const InPlaceSaveError& e) {
    const int answer = _engine.presentAlert(
        SessionAlert{SessionAlert::Style::warning, QStringLiteral("Couldn't save over the file"),
                     text(e.what()) + QStringLiteral(" Save As still works."),
                     {QStringLiteral("Save As…"), QStringLiteral("Cancel")}});
    if (answer == 0) exportEditedBuffer();
    return;
  } catch (const std::exception& e) {
    _engine.presentAlert(SessionAlert{SessionAlert::Style::warning, text(e.what()), {}, {QStringLiteral("OK")}});
    return;
  }
  reset();
  // The chapter subsystem's recall hint is refreshed here once it exists.
  confirm(QStringLiteral("Saved over ") + fileName);
}

void EditEngine::exportEditedBuffer() {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  if (!buffer || !_engine.loadedFile()) return;
  const AudioFileModel current = *_engine.loadedFile();

  std::string extension = "wav";
  if (!ChannelOrder::wavPreservesChannelOrder(buffer->channelPositions())) {
    QStringList names;
    for (const std::string& name : ChannelOrder::displayShortNames(buffer->channelPositions())) names << text(name);
    const QString label = names.isEmpty() ? QStringLiteral("%1 channels").arg(buffer->channelCount()) : names.join(' ');
    const int answer = _engine.presentAlert(SessionAlert{
        SessionAlert::Style::warning, QStringLiteral("Save as CAF to keep the channel layout?"),
        QStringLiteral("This file's channel order (%1) can't be stored in a WAV file. Saving as WAV keeps the audio but "
                       "drops the channel-layout tag, so an app reopening it can't tell which channel is which. Core "
                       "Audio Format (.caf) stores the exact layout. CAF is read by Logic, Pro Tools and most audio "
                       "applications, but not by every tool.")
            .arg(label),
        {QStringLiteral("Save as CAF"), QStringLiteral("Save as WAV Anyway"), QStringLiteral("Cancel")}});
    if (answer == 0) {
      extension = "caf";
    } else if (answer != 1) {
      return;
    }
  }
  if (!_chooseSaveLocation) {
    std::printf("[EditEngine] no save panel installed\n");
    return;
  }
  const auto chosen = _chooseSaveLocation(SaveRequest{QStringLiteral("Save Edited Audio"),
                                                      current.url.stem().string() + "_edited." + extension, extension,
                                                      current.url.parent_path()});
  if (!chosen) return;

  try {
    EditOutputGuard::assertNotInPlace(current.url, *chosen);
    const AudioContainer container = audioContainer(chosen->extension().string())
                                         .value_or(audioContainer(extension).value_or(AudioContainer::wav));
    const PCMEncoding encoding = current.pcmEncoding.value_or(PCMEncoding::float32);
    PCMWriteSettings writeSettings = PCMWriteSettings::make(container, AudioStreamFormat::of(*buffer), encoding);
    writeSettings.expectedFrames = buffer->frameLength();
    auto writer = AudioFileWriter::create(*chosen, writeSettings);
    writer->write(*buffer);
    writer->finish();
    writer.reset();

    AudioFileModel saved = AudioFileModel::fromBuffer(buffer, current);
    saved.url = *chosen;
    saved.name = chosen->stem().string();
    saved.bitDepth = bitDepth(encoding);
    saved.pcmEncoding = encoding;
    saved.identity = AudioFileIdentity::inspect(*chosen);
    saved.fileFormat = saved.identity ? saved.identity->formatLabel : std::string(displayName(container));
    saved.fileSize = 0;
    saved.rawFormat.reset();
    saved.waveformPyramid.clear();
    bindSavedFile(std::move(saved));
  } catch (const EditOutputGuardError&) {
    presentInPlaceWriteRefused();
  } catch (const std::exception& e) {
    _engine.presentAlert(SessionAlert{SessionAlert::Style::warning, text(e.what()), {}, {QStringLiteral("OK")}});
  }
}

void EditEngine::bindSavedFile(AudioFileModel model) {
  const SharedAudioBuffer buffer = _engine.pcmBuffer();
  model.pcmBuffer = buffer;
  _engine.setEditedFile(model, buffer);
  rebuildReferenceSlot(model, buffer);
  reset();
  // The chapter subsystem's recall hint is refreshed here once it exists.
}

void EditEngine::requestExitEditMode() { _engine.setMode(AudioEngine::Mode::edit, false); }

}  // namespace corvane
