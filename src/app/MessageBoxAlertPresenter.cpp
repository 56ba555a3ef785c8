#include "app/MessageBoxAlertPresenter.h"

#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>

namespace corvane {

int MessageBoxAlertPresenter::present(const SessionAlert& alert) {
  QMessageBox box(_parent);
  box.setWindowTitle(QStringLiteral("Corvane"));
  box.setIcon(alert.style == SessionAlert::Style::warning ? QMessageBox::Warning : QMessageBox::Information);
  box.setText(alert.messageText);
  box.setInformativeText(alert.informativeText);
  box.setWindowModality(_parent ? Qt::WindowModal : Qt::ApplicationModal);
  std::vector<QPushButton*> buttons;
  const QStringList titles = alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
  for (const QString& title : titles) {
    // ActionRole keeps the buttons in the order given, whatever the platform's button order.
    buttons.push_back(box.addButton(title, QMessageBox::ActionRole));
  }
  box.setDefaultButton(buttons.front());
  // Escape answers as Cancel where there is one.
  const auto cancel = titles.indexOf(QStringLiteral("Cancel"));
  if (cancel >= 0) box.setEscapeButton(buttons[static_cast<std::size_t>(cancel)]);
  // "Don't ask again": its state is read once the box has closed.
  if (!alert.suppressionTitle.isEmpty()) box.setCheckBox(new QCheckBox(alert.suppressionTitle, &box));
  box.exec();
  if (box.checkBox()) _suppressionChecked = box.checkBox()->isChecked();
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    if (box.clickedButton() == buttons[i]) return static_cast<int>(i);
  }
  return kNoButton;
}

}  // namespace corvane
