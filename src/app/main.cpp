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
  // The command line is read before the window system is reached, so --help and --version
  // work anywhere, and a launch without a display says so instead of aborting.
  QStringList arguments;
  for (int i = 0; i < argc; ++i) arguments << QString::fromLocal8Bit(argv[i]);
  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("Corvane: audio inspection and repair"));
  const QCommandLineOption help = parser.addHelpOption();
  const QCommandLineOption version = parser.addVersionOption();
  parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Audio files to open (the first is analysed, the rest compared)"),
                               QStringLiteral("[FILE...]"));
  if (!parser.parse(arguments)) {
    std::fprintf(stderr, "%s\n", parser.errorText().toLocal8Bit().constData());
    return 2;
  }
  if (parser.isSet(help)) {
    // Without an application object Qt can't name the program; it is this one.
    QString text = parser.helpText();
    text.replace(QStringLiteral("<executable_name>"), QStringLiteral("corvane-app"));
    std::printf("%s", text.toLocal8Bit().constData());
    return 0;
  }
  if (parser.isSet(version)) {
    std::printf("corvane-app %s\n", CORVANE_VERSION);
    return 0;
  }
  if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
      qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
    std::fprintf(stderr, "[App] no display to open the window on (DISPLAY and WAYLAND_DISPLAY are unset); "
                         "'corvane measure FILE' measures files without one\n");
    return 1;
  }

  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Corvane"));
  QApplication::setApplicationVersion(QStringLiteral(CORVANE_VERSION));
  QApplication::setDesktopFileName(QStringLiteral("corvane-app"));
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
