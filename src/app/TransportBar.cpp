#include "app/TransportBar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QToolButton>

#include "app/CommandTable.h"
#include "displays/TimeFormat.h"
#include "playback/PlaybackRates.h"
#include "playback/Transport.h"

namespace corvane {

namespace {

QString text(std::string_view utf8) { return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())); }

QToolButton* toggle(const QString& label, const QString& name, QWidget* parent) {
  auto* button = new QToolButton(parent);
  button->setObjectName(name);
  button->setText(label);
  button->setCheckable(true);
  return button;
}

}  // namespace

TransportBar::TransportBar(Transport& transport, CommandTable& commands, QWidget* parent)
    : QWidget(parent), _transport(transport) {
  setObjectName(QStringLiteral("transportBar"));
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(8, 4, 8, 4);
  layout->setSpacing(4);
  for (const char* id : {"view.skipBack5", "view.playPause", "view.stop", "view.skipForward5"}) {
    QToolButton* button = commands.makeToolButton(QString::fromLatin1(id), this);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    layout->addWidget(button);
  }
  // The buttons show symbols; their actions keep the titles for menus and tool tips.
  const auto symbol = [&](const char* id, const QString& glyph) {
    if (auto* b = findChild<QToolButton*>(QStringLiteral("button.%1").arg(QLatin1String(id)))) {
      connect(b->defaultAction(), &QAction::changed, b, [b, glyph] { b->setText(glyph); });
      b->setText(glyph);
    }
  };
  symbol("view.skipBack5", QStringLiteral("\u25C0\u25C0"));
  symbol("view.stop", QStringLiteral("\u25A0"));
  symbol("view.skipForward5", QStringLiteral("\u25B6\u25B6"));
  if (auto* play = findChild<QToolButton*>(QStringLiteral("button.view.playPause"))) {
    const auto glyph = [this, play] { play->setText(_transport.isPlaying() ? QStringLiteral("\u275A\u275A") : QStringLiteral("\u25B6")); };
    connect(play->defaultAction(), &QAction::changed, play, glyph);
    connect(&_transport, &Transport::isPlayingChanged, play, glyph);
    glyph();
  }

  _time = new QLabel(this);
  _time->setObjectName(QStringLiteral("transport.time"));
  QFont mono = _time->font();
  mono.setFamily(QStringLiteral("DejaVu Sans Mono"));
  mono.setStyleHint(QFont::Monospace);
  mono.setPointSizeF(mono.pointSizeF() * 1.2);
  _time->setFont(mono);
  _time->setMinimumWidth(_time->fontMetrics().horizontalAdvance(QStringLiteral("00:00:00.00 / 00:00:00.00")));
  layout->addSpacing(8);
  layout->addWidget(_time);
  layout->addSpacing(8);

  _rate = new QToolButton(this);
  _rate->setObjectName(QStringLiteral("transport.rate"));
  _rate->setToolTip(QStringLiteral("Playback speed ([ slower, ] faster, \\ back to 1\u00D7)"));
  _rate->setPopupMode(QToolButton::InstantPopup);
  auto* rates = new QMenu(_rate);
  for (double rate : kPlaybackRateChoices) {
    QAction* action = rates->addAction(QString::fromStdString(playbackRateLabel(rate)));
    connect(action, &QAction::triggered, this, [this, rate] { _transport.setPlaybackRate(rate); });
  }
  _rate->setMenu(rates);
  layout->addWidget(_rate);

  _hold = toggle(QStringLiteral("Hold"), QStringLiteral("transport.hold"), this);
  _loop = toggle(QStringLiteral("Loop"), QStringLiteral("transport.loop"), this);
  _pitch = toggle(QStringLiteral("Pitch"), QStringLiteral("transport.pitch"), this);
  layout->addWidget(_hold);
  layout->addWidget(_loop);
  layout->addWidget(_pitch);
  connect(_hold, &QToolButton::clicked, this, [this] { _transport.setHoldsPlayStart(!_transport.holdsPlayStart()); });
  connect(_loop, &QToolButton::clicked, this, [this] { _transport.setIsLooping(!_transport.isLooping()); });
  connect(_pitch, &QToolButton::clicked, this, [this] { _transport.setPreservePitch(!_transport.preservePitch()); });
  _trailing = new QHBoxLayout;
  layout->addStretch(1);
  layout->addLayout(_trailing);

  connect(&_transport, &Transport::currentTimeChanged, this, &TransportBar::refreshTime);
  connect(&_transport, &Transport::durationChanged, this, &TransportBar::refreshTime);
  for (auto signal : {&Transport::holdsPlayStartChanged, &Transport::isLoopingChanged, &Transport::preservePitchChanged,
                      &Transport::playbackRateChanged}) {
    connect(&_transport, signal, this, &TransportBar::refreshSwitches);
  }
  refreshTime();
  refreshSwitches();
}

void TransportBar::addTrailingWidget(QWidget* widget) { _trailing->addWidget(widget); }

void TransportBar::refreshTime() {
  _time->setText(QStringLiteral("%1 / %2")
                     .arg(QString::fromStdString(formatTime(_transport.currentTime(), 0.01)),
                          QString::fromStdString(formatTime(_transport.duration(), 0.01))));
}

void TransportBar::refreshSwitches() {
  _hold->setChecked(_transport.holdsPlayStart());
  _hold->setToolTip(text(_transport.holdsPlayStart() ? transport_text::kHoldPlayStartOn : transport_text::kHoldPlayStartOff));
  _loop->setChecked(_transport.isLooping());
  _loop->setToolTip(text(_transport.isLooping() ? transport_text::kLoopOn : transport_text::kLoopOff));
  _pitch->setChecked(_transport.preservePitch());
  _pitch->setToolTip(text(_transport.preservePitch() ? transport_text::kPitchOn : transport_text::kPitchOff));
  _rate->setText(QString::fromStdString(playbackRateLabel(_transport.playbackRate())));
}

}  // namespace corvane
