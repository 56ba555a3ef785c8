#include "session/AlertPresenter.h"

#include <cstdio>

namespace corvane {

int LoggingAlertPresenter::present(const SessionAlert& alert) {
  std::printf("[Session] %s: %s\n", alert.messageText.toUtf8().constData(), alert.informativeText.toUtf8().constData());
  std::fflush(stdout);
  return kNoButton;
}

}  // namespace corvane
