#include "session/SessionWorkGuard.h"

#include <QStandardPaths>

namespace corvane {

QString SessionWorkGuard::takesDirectory() const {
  return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Corvane/Recordings");
}

}  // namespace corvane
