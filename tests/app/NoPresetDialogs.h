// The preset bar's dialogs for window tests that don't use them: every question is declined,
// and an error fails the test.
#pragma once

#include <gtest/gtest.h>

#include "app/PresetBar.h"

namespace corvane::test {

class NoPresetDialogs : public UserPresetUI {
 public:
  std::optional<QString> promptForName(const QString&) override { return std::nullopt; }
  std::optional<QString> promptForRename(const QString&) override { return std::nullopt; }
  std::optional<QString> runExportPanel(const QString&) override { return std::nullopt; }
  std::optional<QString> runImportPanel() override { return std::nullopt; }
  void showError(const QString& description) override { ADD_FAILURE() << description.toStdString(); }
  void showNotice(const QString&) override {}
};

}  // namespace corvane::test
