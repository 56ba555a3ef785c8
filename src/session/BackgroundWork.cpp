#include "session/BackgroundWork.h"

#include <QThread>
#include <QThreadPool>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <sys/resource.h>
#include <unistd.h>

namespace corvane {

namespace {

constexpr int kUtilityNice = 10;

// A task that throws would end the process from a pool thread; memory running short in the
// middle of an analysis costs that analysis only.
void runGuarded(const std::function<void()>& task) {
  try {
    task();
  } catch (const std::exception& e) {
    std::printf("[Session] background work stopped: %s\n", e.what());
    std::fflush(stdout);
  }
}

}  // namespace

QThreadPool& userInitiatedPool() {
  QThreadPool* pool = QThreadPool::globalInstance();
  static const bool sized = [pool] {
    pool->setMaxThreadCount(std::max(4, QThread::idealThreadCount()));
    return true;
  }();
  (void)sized;
  return *pool;
}

QThreadPool& utilityPool() {
  static QThreadPool pool;
  static const bool sized = [] {
    pool.setMaxThreadCount(1);
    return true;
  }();
  (void)sized;
  return pool;
}

void runUserInitiated(std::function<void()> task) {
  userInitiatedPool().start([task = std::move(task)] { runGuarded(task); });
}

void runAtUtilityPriority(std::function<void()> task) {
  utilityPool().start([task = std::move(task)] {
    // Per thread on Linux; a pool thread that once ran utility work only ever runs more of it.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kUtilityNice);
    runGuarded(task);
  });
}

void waitForBackgroundWork() {
  // A landing may start more work (the first landing starts the pyramid and the extras), so
  // wait until both pools stay idle.
  for (int round = 0; round < 8; ++round) {
    userInitiatedPool().waitForDone();
    utilityPool().waitForDone();
    QCoreApplication::processEvents();
    if (userInitiatedPool().activeThreadCount() == 0 && utilityPool().activeThreadCount() == 0) return;
  }
}

}  // namespace corvane
