// corvane-app as a user meets it: started with a WAV on an X server (Xvfb) with a window
// manager (openbox), playing to a private JACK server on the dummy driver, driven by real key
// presses and a click on the window's close button. Screenshots stay in the test-output folder.
#include <gtest/gtest.h>
#include <jack/jack.h>

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "TestSignals.h"
#include "support/JackTestServer.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;

QString outputFolder() {
  const QString dir = QStringLiteral(CORVANE_TEST_OUTPUT_DIR "/app-desktop");
  QDir().mkpath(dir);
  return dir;
}

// Runs a tool on the test's display; its standard output, trimmed.
QString tool(const QString& display, const QString& program, const QStringList& arguments, int* exitCode = nullptr) {
  QProcess process;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(QStringLiteral("DISPLAY"), display);
  process.setProcessEnvironment(env);
  process.start(program, arguments);
  process.waitForFinished(20000);
  if (exitCode) *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
  return QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
}

template <typename Predicate>
bool waitFor(Predicate done, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(100ms);
  }
  return true;
}

double rms(const std::vector<float>& samples) {
  if (samples.empty()) return 0.0;
  double sum = 0.0;
  for (float s : samples) sum += double(s) * s;
  return std::sqrt(sum / double(samples.size()));
}

// An X server of the test's own, with openbox on it.
class DesktopTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
    if (xvfb.isEmpty()) GTEST_SKIP() << "Xvfb is not installed (scripts/install-deps installs it)";
    for (const char* needed : {"openbox", "xdotool", "xwininfo", "xprop", "import"}) {
      ASSERT_FALSE(QStandardPaths::findExecutable(QString::fromLatin1(needed)).isEmpty())
          << needed << " is missing; scripts/install-deps installs it";
    }
    // -displayfd: the server picks a free display and writes its number when it is ready.
    _xvfb.start(xvfb, {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"), QStringLiteral("0"),
                       QStringLiteral("1600x1000x24"), QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    ASSERT_TRUE(_xvfb.waitForStarted(5000));
    QByteArray number;
    ASSERT_TRUE(waitFor(
        [&] {
          _xvfb.waitForReadyRead(100);
          number += _xvfb.readAllStandardOutput();
          return number.contains('\n');
        },
        10s))
        << "Xvfb did not report a display";
    display = QStringLiteral(":") + QString::fromLatin1(number.trimmed());

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), display);
    _openbox.setProcessEnvironment(env);
    _openbox.start(QStringLiteral("openbox"), {});
    ASSERT_TRUE(_openbox.waitForStarted(5000));
    // The window manager is up once it announces itself on the root window.
    ASSERT_TRUE(waitFor(
        [&] {
          return tool(display, QStringLiteral("xprop"), {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")})
              .contains(QStringLiteral("window id"));
        },
        10s))
        << "openbox did not come up";
  }

  void TearDown() override {
    for (QProcess* process : {&_openbox, &_xvfb}) {
      if (process->state() == QProcess::NotRunning) continue;
      process->terminate();
      if (!process->waitForFinished(5000)) {
        process->kill();
        process->waitForFinished(2000);
      }
    }
  }

  void key(const QString& keys) {
    tool(display, QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("--clearmodifiers"), keys});
    std::this_thread::sleep_for(150ms);
  }
  QString screenshot(const QString& name) {
    const QString path = outputFolder() + QLatin1Char('/') + name;
    int status = 0;
    tool(display, QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), path}, &status);
    EXPECT_EQ(status, 0) << "import failed for " << path.toStdString();
    return path;
  }

  QString display;

 private:
  QProcess _xvfb;
  QProcess _openbox;
};

// The output ports the program opened on the JACK server (everything that is neither the
// dummy driver's nor the capture client's).
std::vector<std::string> programPorts(jack_client_t* probe, const std::string& captureName) {
  std::vector<std::string> names;
  const char** ports = jack_get_ports(probe, nullptr, JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
  for (const char** p = ports; p && *p; ++p) {
    const std::string name(*p);
    if (name.rfind("system:", 0) == 0 || name.rfind(captureName + ":", 0) == 0) continue;
    names.push_back(name);
  }
  if (ports) jack_free(ports);
  return names;
}

TEST_F(DesktopTest, OpensAFilePlaysItOnKeysAndQuitsWithTheCloseButton) {
  test::JackTestServer server;
  test::JackCaptureClient capture("cvcap", 2, 60.0);
  jack_client_t* probe = jack_client_open("cvprobe", JackNoStartServer, nullptr);
  ASSERT_NE(probe, nullptr);
  ASSERT_EQ(jack_activate(probe), 0);  // JACK makes connections only for active clients

  // 30 s of a tone at −12 dBFS, so that the file plays throughout the test.
  test::TemporaryDirectory folder;
  const std::string wav = folder.file("desktop-tone.wav");
  test::writeWav(wav, test::sine(48000.0, 2, 30.0, 440.0, 0.25));

  QProcess app;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(QStringLiteral("DISPLAY"), display);
  env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
  env.remove(QStringLiteral("WAYLAND_DISPLAY"));
  app.setProcessEnvironment(env);
  app.setProcessChannelMode(QProcess::MergedChannels);
  app.setStandardOutputFile(outputFolder() + QStringLiteral("/corvane-app.log"));
  app.start(QStringLiteral(CORVANE_APP_PATH), {QString::fromStdString(wav)});
  ASSERT_TRUE(app.waitForStarted(5000));

  // The window, titled after the file once it has opened it.
  QString window;
  ASSERT_TRUE(waitFor(
      [&] {
        window = tool(display, QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("desktop-tone\\.wav")})
                     .section(QLatin1Char('\n'), 0, 0);
        return !window.isEmpty();
      },
      30s))
      << "no window showed the file";
  EXPECT_EQ(tool(display, QStringLiteral("xdotool"), {QStringLiteral("getwindowname"), window}),
            QStringLiteral("desktop-tone.wav \u2014 Corvane"));
  // Keys go to the window with the focus: wait until the window manager has given it.
  ASSERT_TRUE(waitFor(
      [&] {
        tool(display, QStringLiteral("xdotool"), {QStringLiteral("windowactivate"), window});
        return tool(display, QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")}) == window;
      },
      10s))
      << "the window never got the focus";

  // Space starts playback: the program's stream starts on the server (JACK connects the ports
  // of running clients only), and its first two outputs are led to the capture client. The
  // stream may be opened anew while playback starts, so a failed connection is tried again.
  key(QStringLiteral("space"));
  std::vector<std::string> ports;
  int lastResult = 0;
  const bool connected = waitFor(
      [&] {
        ports = programPorts(probe, capture.clientName());
        if (ports.size() < 2) return false;
        for (int c = 0; c < 2; ++c) {
          lastResult = jack_connect(probe, ports[static_cast<std::size_t>(c)].c_str(), capture.portName(c).c_str());
          if (lastResult != 0 && lastResult != EEXIST) return false;
        }
        return true;
      },
      20s);
  ASSERT_TRUE(connected) << "could not connect the program's outputs (" << ports.size() << " ports, last result "
                         << lastResult << ")";
  capture.arm();
  std::this_thread::sleep_for(1500ms);
  // The tone, at its level (peak 0.25, RMS 0.177 while it plays) on both channels; the RMS
  // allows for a period lost on a busy machine.
  for (int c = 0; c < 2; ++c) {
    const std::vector<float> heard = capture.channel(c);
    ASSERT_GT(heard.size(), 24000u) << "the capture client recorded too little";
    float peak = 0.0f;
    for (float v : heard) peak = std::max(peak, std::abs(v));
    EXPECT_NEAR(peak, 0.25f, 0.005f) << "channel " << c;
    EXPECT_GT(rms(heard), 0.12) << "channel " << c;
  }
  const QString playingShot = screenshot(QStringLiteral("playing.png"));

  // Escape (no selection to clear) and the slot digits (no compare slots) leave playback alone.
  key(QStringLiteral("Escape"));
  key(QStringLiteral("1"));
  key(QStringLiteral("2"));
  key(QStringLiteral("7"));
  capture.arm();
  std::this_thread::sleep_for(800ms);
  EXPECT_GT(rms(capture.channel(0)), 0.1) << "playback stopped on Escape or a digit";
  EXPECT_EQ(app.state(), QProcess::Running);

  // Space again pauses.
  key(QStringLiteral("space"));
  std::this_thread::sleep_for(400ms);
  capture.arm();
  std::this_thread::sleep_for(600ms);
  EXPECT_LT(rms(capture.channel(0)), 1e-4);

  // The picture: a full window, not an empty screen.
  const QImage shot(playingShot);
  ASSERT_FALSE(shot.isNull());
  QSet<QRgb> colours;
  for (int y = 0; y < shot.height(); y += 4) {
    for (int x = 0; x < shot.width(); x += 4) colours.insert(shot.pixel(x, y));
  }
  EXPECT_GT(colours.size(), 50) << "the screenshot is nearly blank";

  // A second launch hands its file to the running window and ends; the window opens it.
  const std::string secondWav = folder.file("second-tone.wav");
  test::writeWav(secondWav, test::sine(48000.0, 1, 5.0, 880.0, 0.25));
  QProcess second;
  second.setProcessEnvironment(env);
  second.setProcessChannelMode(QProcess::MergedChannels);
  second.start(QStringLiteral(CORVANE_APP_PATH), {QString::fromStdString(secondWav)});
  ASSERT_TRUE(second.waitForFinished(15000)) << "the second launch did not end";
  EXPECT_EQ(second.exitCode(), 0) << second.readAll().toStdString();
  EXPECT_TRUE(waitFor(
      [&] {
        return tool(display, QStringLiteral("xdotool"), {QStringLiteral("getwindowname"), window}) ==
               QStringLiteral("second-tone.wav \u2014 Corvane");
      },
      20s))
      << "the running window did not open the handed-over file";
  EXPECT_EQ(app.state(), QProcess::Running);

  // The close button: openbox draws it at the right end of the frame's title bar.
  const QString parent = tool(display, QStringLiteral("xwininfo"), {QStringLiteral("-id"), window, QStringLiteral("-tree")});
  const QRegularExpressionMatch parentId = QRegularExpression(QStringLiteral("Parent window id: (0x[0-9a-f]+)")).match(parent);
  ASSERT_TRUE(parentId.hasMatch());
  const QString frame = tool(display, QStringLiteral("xwininfo"), {QStringLiteral("-id"), parentId.captured(1)});
  const auto field = [&](const char* name) {
    return QRegularExpression(QStringLiteral("%1:\\s+(-?\\d+)").arg(QLatin1String(name))).match(frame).captured(1).toInt();
  };
  const int right = field("Absolute upper-left X") + field("Width");
  const int top = field("Absolute upper-left Y");
  screenshot(QStringLiteral("before-close.png"));
  tool(display, QStringLiteral("xdotool"),
       {QStringLiteral("mousemove"), QString::number(right - 10), QString::number(top + 10), QStringLiteral("click"), QStringLiteral("1")});
  ASSERT_TRUE(app.waitForFinished(10000)) << "the close button did not quit the program";
  EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(app.exitCode(), 0);

  jack_client_close(probe);
}

}  // namespace
}  // namespace corvane

namespace corvane {
namespace {

// Without a display the program says what to use instead, and its command line works anywhere.
TEST(DesktopProgram, WithoutADisplayItSaysSoAndItsOptionsStillWork) {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) env.remove(QString::fromLatin1(name));
  const auto run = [&](const QStringList& arguments, int& status) {
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(CORVANE_APP_PATH), arguments);
    EXPECT_TRUE(process.waitForFinished(10000));
    status = process.exitCode();
    return QString::fromLocal8Bit(process.readAllStandardOutput() + process.readAllStandardError());
  };
  int status = 0;
  const QString noDisplay = run({QStringLiteral("some.wav")}, status);
  EXPECT_EQ(status, 1);
  EXPECT_TRUE(noDisplay.contains(QStringLiteral("no display"))) << noDisplay.toStdString();
  EXPECT_TRUE(noDisplay.contains(QStringLiteral("corvane measure")));
  EXPECT_TRUE(run({QStringLiteral("--help")}, status).startsWith(QStringLiteral("Usage: corvane-app [options] [FILE...]")));
  EXPECT_EQ(status, 0);
  EXPECT_EQ(run({QStringLiteral("--bogus")}, status).trimmed(), QStringLiteral("Unknown option 'bogus'."));
  EXPECT_EQ(status, 2);
}

}  // namespace
}  // namespace corvane
