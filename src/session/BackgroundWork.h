// Where the session's background work runs, and how it comes back.
//
// Two classes of work, after the system's notion of task priority:
//   user-initiated  the load stages, compare extras, analysis: what the user waits for.
//                   Qt's global thread pool, with at least four threads, so that a load that
//                   is slow in one stage never holds up the next file's load.
//   utility         the waveform pyramid: useful, never urgent. One thread of its own whose
//                   tasks run at nice 10, so it yields the cores to the rest.
// A task holds a QPointer to the model it reports to, copies what it needs, and lands with
// landOnMainThread: the landing runs on the main thread, later, and only if the model still
// exists. Generation tests are the landing's own business. A task that throws ends with a
// "[Session] background work stopped: <reason>" line; nothing lands for it.
//
// Thread class: run...() and landOnMainThread() from any thread; waitForBackgroundWork() on
// the main thread (tests, shutdown).
#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <functional>
#include <utility>

class QThreadPool;

namespace corvane {

QThreadPool& userInitiatedPool();
QThreadPool& utilityPool();

void runUserInitiated(std::function<void()> task);
void runAtUtilityPriority(std::function<void()> task);

// Blocks until both pools are idle.
void waitForBackgroundWork();

// Runs `landing(*target)` on the main thread if `target` still exists by then.
template <typename T, typename F>
void landOnMainThread(QPointer<T> target, F landing) {
  QCoreApplication* app = QCoreApplication::instance();
  if (!app) return;
  QMetaObject::invokeMethod(
      app,
      [target = std::move(target), landing = std::move(landing)]() mutable {
        if (target) landing(*target);
      },
      Qt::QueuedConnection);
}

}  // namespace corvane
