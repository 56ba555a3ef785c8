#include "app/SavePanel.h"

#include <QFileDialog>

namespace corvane {

std::optional<std::filesystem::path> runSaveFilePanel(QWidget* parent, const QString& title, const QString& proposedName,
                                                      const QString& extension, const std::filesystem::path& directory) {
  QFileDialog dialog(parent, title);
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  dialog.setAcceptMode(QFileDialog::AcceptSave);
  dialog.setFileMode(QFileDialog::AnyFile);
  const QString type = extension == QLatin1String("caf") ? QStringLiteral("Core Audio Format") : QStringLiteral("WAV audio");
  dialog.setNameFilter(QStringLiteral("%1 (*.%2)").arg(type, extension));
  dialog.setDefaultSuffix(extension);
  if (!directory.empty()) dialog.setDirectory(QString::fromStdString(directory.string()));
  dialog.selectFile(proposedName);
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
  return std::filesystem::path(dialog.selectedFiles().first().toStdString());
}

}  // namespace corvane
