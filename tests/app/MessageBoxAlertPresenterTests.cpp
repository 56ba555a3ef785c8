// The session's questions as the application asks them: a modal QMessageBox with the alert's
// words, its buttons in reading order with the first as the default, and the answer the user
// gives by button, Return or Escape.
#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <functional>

#include "app/MessageBoxAlertPresenter.h"

namespace corvane {
namespace {

struct Seen {
  QString text, informative;
  QStringList buttonsLeftToRight;
  QString defaultButton;
};

// Presents `alert` and, once its box is up, reads it and lets `act` answer it.
int answer(const SessionAlert& alert, Seen& seen, const std::function<void(QMessageBox*)>& act) {
  QWidget parent;
  parent.show();
  MessageBoxAlertPresenter presenter(&parent);
  QTimer::singleShot(0, [&] {
    QMessageBox* box = nullptr;
    for (int i = 0; i < 200 && !box; ++i) {
      box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      if (!box) QTest::qWait(10);
    }
    ASSERT_NE(box, nullptr) << "no message box came up";
    seen.text = box->text();
    seen.informative = box->informativeText();
    QList<QAbstractButton*> buttons = box->buttons();
    std::sort(buttons.begin(), buttons.end(), [](QAbstractButton* a, QAbstractButton* b) { return a->x() < b->x(); });
    for (QAbstractButton* b : buttons) seen.buttonsLeftToRight << b->text();
    if (box->defaultButton()) seen.defaultButton = box->defaultButton()->text();
    act(box);
  });
  return presenter.present(alert);
}

const SessionAlert kQuit{SessionAlert::Style::warning, QStringLiteral("Unsaved edits"),
                         QStringLiteral("The audio has edits that haven't been saved."),
                         {QStringLiteral("Save\u2026"), QStringLiteral("Quit Without Saving"), QStringLiteral("Cancel")}};

TEST(MessageBoxAlertPresenter, ShowsTheWordsAndButtonsInOrderAndReturnsTheAnswer) {
  Seen seen;
  const int clicked = answer(kQuit, seen, [](QMessageBox* box) {
    for (QAbstractButton* b : box->buttons()) {
      if (b->text() == QStringLiteral("Quit Without Saving")) b->click();
    }
  });
  EXPECT_EQ(clicked, 1);
  EXPECT_EQ(seen.text, kQuit.messageText);
  EXPECT_EQ(seen.informative, kQuit.informativeText);
  EXPECT_EQ(seen.buttonsLeftToRight, kQuit.buttons);
  EXPECT_EQ(seen.defaultButton, QStringLiteral("Save\u2026"));
}

TEST(MessageBoxAlertPresenter, ReturnTakesTheFirstAndEscapeTheCancelButton) {
  Seen seen;
  EXPECT_EQ(answer(kQuit, seen, [](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Return); }), 0);
  EXPECT_EQ(answer(kQuit, seen, [](QMessageBox* box) { QTest::keyClick(box, Qt::Key_Escape); }), 2);
  // A box without Cancel that is closed without a button: no answer.
  const SessionAlert twoWay{SessionAlert::Style::informational, QStringLiteral("Recording in progress"), QString(),
                            {QStringLiteral("Stop and Quit"), QStringLiteral("Keep Recording")}};
  EXPECT_EQ(answer(twoWay, seen, [](QMessageBox* box) { box->done(QDialog::Rejected); }), AlertPresenter::kNoButton);
}

}  // namespace
}  // namespace corvane
