// The bold title over a section of a panel ("Loudness", "Routing"), the same in every panel.
#pragma once

#include <QString>

class QLabel;
class QWidget;

namespace corvane {

QLabel* sectionHeading(const QString& text, QWidget* parent);

}  // namespace corvane
