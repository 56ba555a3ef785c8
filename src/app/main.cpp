// corvane-app: the desktop program. `corvane-app FILE...` opens the files in the running
// window, or starts one; without files it starts (or raises) the window.
#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>
#include <cstdio>

#include "app/CommandTable.h"
#include "app/GlobalKeyFilter.h"
#include "app/MainWindow.h"
#include "app/MessageBoxAlertPresenter.h"
#include "app/NotificationBus.h"
#include "app/SingleInstance.h"
#include "session/AudioEngine.h"
#include "session/CorvaneAppBridge.h"

namespace {

// A file manager hands over paths or file URLs; both become absolute file URLs.
QList<QUrl> urlsFromArguments(const QStringList& arguments) {
  QList<QUrl> urls;
  for (const QString& argument : arguments) {
    const QUrl asUrl(argument, QUrl::StrictMode);
    if (asUrl.isValid() && asUrl.isLocalFile()) {
      urls << asUrl;
    } else {
      urls << QUrl::fromLocalFile(QFileInfo(argument).absoluteFilePath());
    }
  }
  return urls;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Corvane"));
  QApplication::setApplicationVersion(QStringLiteral(CORVANE_VERSION));
  QApplication::setDesktopFileName(QStringLiteral("corvane-app"));

  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("Corvane: audio inspection and repair"));
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Audio files to open (the first is analysed, the rest compared)"),
                               QStringLiteral("[FILE...]"));
  parser.process(app);
  const QList<QUrl> urls = urlsFromArguments(parser.positionalArguments());

  // One window per user: a running one takes the files and this launch ends.
  corvane::SingleInstance instance;
  if (instance.handOver(urls)) {
    std::printf("[App] handed %lld file(s) to the running Corvane\n", static_cast<long long>(urls.size()));
    return 0;
  }
  instance.listen();

  auto alerts = std::make_shared<corvane::MessageBoxAlertPresenter>();
  corvane::AudioEngineOptions options;
  options.presenter = alerts;
  corvane::AudioEngine engine(std::move(options));

  corvane::NotificationBus& bus = corvane::NotificationBus::shared();
  corvane::MainWindow window(engine, bus, alerts);
  alerts->setParent(&window);
  corvane::CommandTable& commands = window.commands();
  corvane::GlobalKeyFilter keys(commands, bus, [&commands] { commands.trigger(QStringLiteral("view.playPause")); });
  keys.setMainWindow(&window);
  app.installEventFilter(&keys);

  QObject::connect(&instance, &corvane::SingleInstance::filesHandedOver, &window, [&window](const QList<QUrl>& handed) {
    window.showNormal();
    window.raise();
    window.activateWindow();
    if (!handed.isEmpty()) corvane::CorvaneAppBridge::shared().openURLs(handed);
  });

  window.show();
  if (!urls.isEmpty()) {
    QTimer::singleShot(0, &window, [urls] { corvane::CorvaneAppBridge::shared().openURLs(urls); });
  }
  const int status = QApplication::exec();
  app.removeEventFilter(&keys);
  return status;
}
