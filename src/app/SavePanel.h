// The panel in which the user names a new file: Qt's own save dialog (the same on every
// desktop, and one a test can answer), in `directory`, with `proposedName` filled in and the
// one file type `extension` ("wav" or "caf") offered and appended when the name lacks it.
//
// Thread class: main thread (a modal dialog).
#pragma once

#include <QString>
#include <filesystem>
#include <optional>

class QWidget;

namespace corvane {

// The chosen path, or nothing when the user cancels.
std::optional<std::filesystem::path> runSaveFilePanel(QWidget* parent, const QString& title, const QString& proposedName,
                                                      const QString& extension, const std::filesystem::path& directory);

}  // namespace corvane
