#include "app/FilePanels.h"

#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QStandardPaths>

#include "session/AudioEngine.h"

namespace corvane {

QStringList audioFileNameFilters() {
  return {QStringLiteral("Audio files (*.wav *.wave *.bwf *.rf64 *.w64 *.aif *.aiff *.aifc *.caf *.flac *.mp3 *.ogg *.oga "
                         "*.opus *.m4a *.mp4 *.aac *.alac *.wv *.mka *.webm)"),
          QStringLiteral("All files (*)")};
}

QList<QUrl> runAudioFilePanel(QWidget* parent, const QString& title, const QString& message) {
  QFileDialog dialog(parent, title);
  // Qt's own dialog, so the message can stand in it (a portal dialog has no room for one).
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  dialog.setFileMode(QFileDialog::ExistingFiles);
  dialog.setNameFilters(audioFileNameFilters());
  const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
  if (!music.isEmpty() && QDir(music).exists()) dialog.setDirectory(music);
  if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
    auto* label = new QLabel(message, &dialog);
    label->setWordWrap(true);
    grid->addWidget(label, grid->rowCount(), 0, 1, grid->columnCount());
  }
  if (dialog.exec() != QDialog::Accepted) return {};
  return dialog.selectedUrls();
}

void openFilePanel(QWidget* parent, AudioEngine& engine) {
  const QList<QUrl> urls =
      runAudioFilePanel(parent, QString::fromUtf8(kOpenPanelTitle), QString::fromUtf8(kOpenPanelMessage));
  if (!urls.isEmpty()) engine.openURLs(urls);
}

void addFilesToComparePanel(QWidget* parent, AudioEngine& engine) {
  const QList<QUrl> urls =
      runAudioFilePanel(parent, QStringLiteral("Add Files to Compare"), QString::fromUtf8(kAddToComparePanelMessage));
  for (const QUrl& url : urls) engine.addCompareSlot(url);
}

}  // namespace corvane
