// MessageBoxAlertPresenter: the session's questions and notices as modal QMessageBoxes.
//
// The message is the box's bold text, the informative text the line under it, and the buttons
// stand in reading order with the first as the default (Return) button. The answer is the index
// of the button pressed. Escape presses "Cancel" where the alert has one; a box closed any
// other way answers AlertPresenter::kNoButton, which every question takes as its cautious
// answer. An alert with a suppression title shows it as a check box under the text, unticked.
//
// Thread class: main thread; present() runs a nested event loop.
#pragma once

#include <QPointer>
#include <QWidget>

#include "session/AlertPresenter.h"

namespace corvane {

class MessageBoxAlertPresenter : public AlertPresenter {
 public:
  // The boxes are modal to `parent` (the main window), or to the application without one.
  explicit MessageBoxAlertPresenter(QWidget* parent = nullptr) : _parent(parent) {}
  void setParent(QWidget* parent) { _parent = parent; }

  int present(const SessionAlert& alert) override;
  bool suppressionChecked() const override { return _suppressionChecked; }

 private:
  QPointer<QWidget> _parent;
  bool _suppressionChecked = false;
};

}  // namespace corvane
