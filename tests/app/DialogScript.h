// Answers the modal dialogs a window test sets off, as a user would: message boxes by the
// title of the button pressed, the save panel by typing a name or cancelling. Each step gets
// its dialog once that is the active modal widget, and must close it.
#pragma once

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace corvane::test {

// The modal dialogs that will come up, answered in order: each step gets the dialog once it
// is the active modal widget and must close it. What a step saw is kept for the test.
class DialogScript : public QObject {
 public:
  using Step = std::function<void(QWidget*)>;
  DialogScript() {
    _timer.setInterval(10);
    connect(&_timer, &QTimer::timeout, this, [this] { poll(); });
    _timer.start();
  }
  void then(Step step) { _steps.push_back(std::move(step)); }
  bool finished() const { return _steps.empty(); }

 private:
  void poll() {
    QWidget* modal = QApplication::activeModalWidget();
    if (!modal || modal == _last.data() || _steps.empty()) return;
    _last = modal;
    Step step = std::move(_steps.front());
    _steps.pop_front();
    step(modal);
  }
  QTimer _timer;
  std::deque<Step> _steps;
  QPointer<QWidget> _last;
};

struct SeenBox {
  QString text, informative, checkBox;
  QStringList buttons;
};

// A step that reads a message box and presses the button titled `press` (ticking its check
// box first when `tick`).
inline DialogScript::Step pressIn(SeenBox& seen, const QString& press, bool tick = false) {
  return [&seen, press, tick](QWidget* widget) {
    auto* box = qobject_cast<QMessageBox*>(widget);
    ASSERT_NE(box, nullptr) << "expected a message box, got " << widget->metaObject()->className();
    seen.text = box->text();
    seen.informative = box->informativeText();
    seen.checkBox = box->checkBox() ? box->checkBox()->text() : QString();
    QList<QAbstractButton*> buttons = box->buttons();
    std::sort(buttons.begin(), buttons.end(), [](QAbstractButton* a, QAbstractButton* b) { return a->x() < b->x(); });
    seen.buttons.clear();
    for (QAbstractButton* button : buttons) seen.buttons << button->text();
    if (tick && box->checkBox()) box->checkBox()->setChecked(true);
    for (QAbstractButton* button : buttons) {
      if (button->text() == press) {
        button->click();
        return;
      }
    }
    ADD_FAILURE() << "no button " << press.toStdString();
    box->reject();
  };
}

struct SeenPanel {
  QString title, proposed, filter;
};

// A step that reads the save panel and cancels it, or picks `path`.
inline DialogScript::Step inSavePanel(SeenPanel& seen, std::optional<std::string> path) {
  return [&seen, path](QWidget* widget) {
    auto* panel = qobject_cast<QFileDialog*>(widget);
    ASSERT_NE(panel, nullptr) << "expected the save panel, got " << widget->metaObject()->className();
    seen.title = panel->windowTitle();
    seen.proposed = panel->selectedFiles().value(0);
    seen.filter = panel->selectedNameFilter();
    if (!path) {
      panel->reject();
      return;
    }
    // Typed into the name field, as a user would (selectFile() waits for the folder to load).
    auto* name = panel->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
    ASSERT_NE(name, nullptr);
    name->setText(QString::fromStdString(*path));
    static_cast<QDialog*>(panel)->accept();  // QFileDialog::accept, through its public base
  };
}

}  // namespace corvane::test
