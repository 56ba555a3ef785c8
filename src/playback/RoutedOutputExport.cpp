#include "playback/RoutedOutputExport.h"

#include <exception>

#include "headless/files/AudioContainer.h"
#include "headless/files/AudioFileWriter.h"
#include "headless/files/EditOutputGuard.h"
#include "playback/RoutedRender.h"
#include "playback/Transport.h"
#include "session/AlertPresenter.h"
#include "session/AudioEngine.h"

namespace corvane {

RoutedOutputExport::RoutedOutputExport(AudioEngine& engine, SavePanel panel) : _engine(engine), _panel(std::move(panel)) {}

QString RoutedOutputExport::cafQuestionText(int channels) {
  return QStringLiteral(
             "This routed output has %1 channels in an order a WAV file can't store with a layout tag. Saving as WAV "
             "keeps the audio but an app reopening it can't tell which channel is which. Core Audio Format (.caf) "
             "stores the exact layout.")
      .arg(channels);
}

std::optional<std::filesystem::path> RoutedOutputExport::exportRoutedOutput() {
  const SharedAudioBuffer source = _engine.pcmBuffer();
  const auto& file = _engine.loadedFile();
  if (!source || !file) return std::nullopt;

  // Only outputs that carry a source become channels of the file, in their order.
  const ChannelRoutings& routings = _engine.transport().routings();
  ChannelRoutings kept;
  for (int index : routedOutputIndexes(routings)) kept.push_back(routings[static_cast<std::size_t>(index)]);
  if (kept.empty()) {
    _engine.presentEditFailure(QString::fromUtf8(kNothingRoutedText));
    return std::nullopt;
  }
  const int channels = static_cast<int>(kept.size());
  const SharedAudioBuffer routed = buildRoutedBuffer(*source, kept, channels);
  if (!routed) {
    _engine.presentEditFailure(QString::fromUtf8(kOutOfMemoryText));
    return std::nullopt;
  }

  // Discrete channels beyond a pair: a WAV would let a reader guess a speaker layout for them.
  std::string extension = "wav";
  if (!routedOutputFitsWav(channels)) {
    const int answer = _engine.presentAlert(SessionAlert{
        SessionAlert::Style::warning, QString::fromUtf8(kCafQuestion), cafQuestionText(channels),
        {QStringLiteral("Save as CAF"), QStringLiteral("Save as WAV Anyway"), QStringLiteral("Cancel")}});
    if (answer == 0) {
      extension = "caf";
    } else if (answer != 1) {
      return std::nullopt;
    }
  }

  if (!_panel) return std::nullopt;
  const QString ext = QString::fromStdString(extension);
  const std::optional<std::filesystem::path> chosen =
      _panel(SavePanelRequest{QString::fromUtf8(kPanelTitle), QString::fromStdString(file->name) + "_routed." + ext,
                              {ext}, file->url.parent_path()});
  if (!chosen) return std::nullopt;

  try {
    EditOutputGuard::assertNotInPlace(file->url, *chosen);
  } catch (const EditOutputGuardError&) {
    _engine.presentInPlaceWriteRefused();
    return std::nullopt;
  }

  const AudioContainer container =
      audioContainer(chosen->extension().string()).value_or(audioContainer(extension).value_or(AudioContainer::wav));
  try {
    PCMWriteSettings settings = PCMWriteSettings::make(container, AudioStreamFormat::of(*routed), PCMEncoding::float32);
    settings.expectedFrames = routed->frameLength();
    const auto writer = AudioFileWriter::create(*chosen, settings);
    writer->write(*routed);
    writer->finish();
  } catch (const std::exception& error) {
    _engine.presentAlert(SessionAlert{SessionAlert::Style::warning, QString::fromUtf8(error.what()), QString(), {QStringLiteral("OK")}});
    return std::nullopt;
  }
  return chosen;
}

}  // namespace corvane
