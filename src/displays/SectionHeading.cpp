#include "displays/SectionHeading.h"

#include <QLabel>

namespace corvane {

QLabel* sectionHeading(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  QFont font = label->font();
  font.setBold(true);
  label->setFont(font);
  return label;
}

}  // namespace corvane
