// AlertPresenter: how the session asks the user a question or tells them something that
// needs an answer, without knowing about windows.
//
// The session builds a SessionAlert (message, informative text, buttons in order) and hands
// it to the installed presenter, which shows it modally and says which button was pressed.
// The application installs one over QMessageBox; tests install their own to answer as a user
// would. The texts are the session's, ready to show.
//
// Thread class: main thread. present() may run a nested event loop (a modal dialog).
#pragma once

#include <QString>
#include <QStringList>

namespace corvane {

struct SessionAlert {
  enum class Style { warning, informational };
  Style style = Style::warning;
  QString messageText;      // the bold first line
  QString informativeText;  // the explanation under it
  QStringList buttons;      // left to right in reading order; the first is the default
  QString suppressionTitle = {};  // a check box under the text ("Don't ask again"), when not empty

  friend bool operator==(const SessionAlert&, const SessionAlert&) = default;
};

class AlertPresenter {
 public:
  // The answer when no button was pressed (the dialog was closed another way).
  static constexpr int kNoButton = -1;

  virtual ~AlertPresenter() = default;
  // Shows the alert and returns the index of the button pressed (0 for the first, which the
  // other platform calls 1000), or kNoButton.
  virtual int present(const SessionAlert& alert) = 0;
  // Whether the suppression check box of the last alert that had one was ticked when it closed.
  virtual bool suppressionChecked() const { return false; }
};

// Without a presenter (a headless run) every question is answered as if the user closed it,
// and the alert goes to standard output as "[Session] <message>: <text>".
class LoggingAlertPresenter : public AlertPresenter {
 public:
  int present(const SessionAlert& alert) override;
};

}  // namespace corvane
