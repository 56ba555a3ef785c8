#include "displays/WaveformSection.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QToolButton>
#include <QVBoxLayout>

#include "displays/ChannelColors.h"
#include "displays/TimeZoomState.h"

namespace corvane {

namespace {

QToolButton* smallButton(const QString& text, const QString& tip, QWidget* parent) {
  auto* button = new QToolButton(parent);
  button->setText(text);
  button->setToolTip(tip);
  button->setAutoRaise(true);
  return button;
}

// Reports a double click on a label (the zoom labels reset on one).
class DoubleClickFilter : public QObject {
 public:
  DoubleClickFilter(QObject* parent, std::function<void()> action) : QObject(parent), _action(std::move(action)) {}
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::MouseButtonDblClick) {
      _action();
      return true;
    }
    return QObject::eventFilter(watched, event);
  }

 private:
  std::function<void()> _action;
};

QString legendHtml() {
  QString html = QStringLiteral("<b>%1</b><table>").arg(QString::fromUtf8(kWaveformGestureLegendTitle));
  for (const GestureLegendRow& row : waveformGestureLegend()) {
    html += QStringLiteral("<tr><td>%1</td><td>&nbsp;&nbsp;%2</td></tr>")
                .arg(QString::fromUtf8(row.gesture).toHtmlEscaped(), QString::fromUtf8(row.action).toHtmlEscaped());
  }
  return html + QStringLiteral("</table>");
}

}  // namespace

WaveformSection::WaveformSection(TimeZoomState* timeZoom, QWidget* parent) : QWidget(parent), _timeZoom(timeZoom) {
  setObjectName(QStringLiteral("waveformSection"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(2);

  auto* strip = new QHBoxLayout;
  strip->setContentsMargins(6, 2, 6, 0);
  strip->setSpacing(4);
  _chipRow = new QHBoxLayout;
  _chipRow->setSpacing(2);
  strip->addLayout(_chipRow);
  _speechToggle = smallButton(QStringLiteral("Speech"), QStringLiteral("Show the detected speech"), this);
  _speechToggle->setObjectName(QStringLiteral("waveform.speech"));
  _speechToggle->setCheckable(true);
  _speechToggle->setChecked(true);
  strip->addWidget(_speechToggle);
  strip->addStretch(1);
  _rulerToggle = smallButton(QStringLiteral("0:00"), QStringLiteral("Switch to sample ruler"), this);
  _rulerToggle->setObjectName(QStringLiteral("waveform.ruler"));
  strip->addWidget(_rulerToggle);
  _zoomOut = smallButton(QStringLiteral("\u2212"), QStringLiteral("Time zoom \u00B7 Double-click to fit"), this);
  _zoomLabel = new QLabel(this);
  _zoomLabel->setObjectName(QStringLiteral("waveform.zoom"));
  _zoomLabel->setToolTip(QStringLiteral("Time zoom \u00B7 Double-click to fit"));
  _zoomLabel->setMinimumWidth(44);
  _zoomLabel->setAlignment(Qt::AlignCenter);
  _zoomIn = smallButton(QStringLiteral("+"), QStringLiteral("Time zoom \u00B7 Double-click to fit"), this);
  strip->addWidget(_zoomOut);
  strip->addWidget(_zoomLabel);
  strip->addWidget(_zoomIn);
  _ampDown = smallButton(QStringLiteral("\u2212"), QStringLiteral("Amplitude zoom (Alt scroll)"), this);
  _amplitudeLabel = new QLabel(this);
  _amplitudeLabel->setObjectName(QStringLiteral("waveform.amplitude"));
  _amplitudeLabel->setToolTip(QStringLiteral("Amplitude zoom \u00B7 Double-click to reset"));
  _amplitudeLabel->setMinimumWidth(44);
  _amplitudeLabel->setAlignment(Qt::AlignCenter);
  _ampUp = smallButton(QStringLiteral("+"), QStringLiteral("Amplitude zoom (Alt scroll)"), this);
  strip->addWidget(_ampDown);
  strip->addWidget(_amplitudeLabel);
  strip->addWidget(_ampUp);
  _legend = smallButton(QStringLiteral("?"), legendHtml(), this);
  _legend->setObjectName(QStringLiteral("waveform.legend"));
  _legend->setAccessibleName(QString::fromUtf8(kWaveformGestureLegendTitle));
  strip->addWidget(_legend);
  layout->addLayout(strip);

  _view = new WaveformView(timeZoom, this);
  layout->addWidget(_view, 1);

  auto* bar = new QHBoxLayout;
  bar->setContentsMargins(6, 0, 6, 2);
  bar->setSpacing(4);
  const auto addField = [&](const QString& name) {
    auto* label = new QLabel(name, this);
    label->setStyleSheet(QStringLiteral("color: palette(mid);"));
    auto* edit = new QLineEdit(this);
    edit->setObjectName(QStringLiteral("selection.%1").arg(name));
    edit->setFixedWidth(96);
    bar->addWidget(label);
    bar->addWidget(edit);
    return edit;
  };
  _in = addField(QStringLiteral("IN"));
  _out = addField(QStringLiteral("OUT"));
  _length = addField(QStringLiteral("LEN"));
  bar->addStretch(1);
  _analyse = smallButton(QStringLiteral("Analyse"), QStringLiteral("Analyse the selection, or the whole file (Ctrl+Return)"),
                         this);
  _analyse->setObjectName(QStringLiteral("selection.analyse"));
  _analyse->hide();
  bar->addWidget(_analyse);
  layout->addLayout(bar);

  connect(_zoomOut, &QToolButton::clicked, this, [this] {
    if (_view->source()) _timeZoom->setZoomScroll(adjustZoom(_view->timeAxis(), _view->source()->frameCount(), 2.0 / 3.0));
  });
  connect(_zoomIn, &QToolButton::clicked, this, [this] {
    if (_view->source()) _timeZoom->setZoomScroll(adjustZoom(_view->timeAxis(), _view->source()->frameCount(), 1.5));
  });
  _zoomLabel->installEventFilter(new DoubleClickFilter(this, [this] { _timeZoom->reset(); }));
  connect(_ampDown, &QToolButton::clicked, this, [this] { _view->setAmplitudeZoom(stepAmplitudeZoom(_view->amplitudeZoom(), false)); });
  connect(_ampUp, &QToolButton::clicked, this, [this] { _view->setAmplitudeZoom(stepAmplitudeZoom(_view->amplitudeZoom(), true)); });
  _amplitudeLabel->installEventFilter(new DoubleClickFilter(this, [this] { _view->setAmplitudeZoom(1.0); }));
  connect(_rulerToggle, &QToolButton::clicked, this, [this] {
    _view->setRulerMode(_view->rulerMode() == RulerMode::time ? RulerMode::samples : RulerMode::time);
    refreshControls();
    refreshFields();
  });
  connect(_speechToggle, &QToolButton::toggled, this, [this](bool on) {
    _showSpeechRanges = on;
    applySpeechRanges();
  });
  connect(_legend, &QToolButton::clicked, this, [this] {
    QMenu menu(this);
    menu.setTitle(QString::fromUtf8(kWaveformGestureLegendTitle));
    menu.addSection(QString::fromUtf8(kWaveformGestureLegendTitle));
    for (const GestureLegendRow& row : waveformGestureLegend()) {
      menu.addAction(QStringLiteral("%1\t%2").arg(QString::fromUtf8(row.gesture), QString::fromUtf8(row.action)))->setEnabled(false);
    }
    menu.exec(_legend->mapToGlobal(QPoint(0, _legend->height())));
  });
  connect(_analyse, &QToolButton::clicked, this, [this] {
    if (_analyseAction) _analyseAction();
  });
  connect(_in, &QLineEdit::editingFinished, this, [this] { commit(SelectionField::in); });
  connect(_out, &QLineEdit::editingFinished, this, [this] { commit(SelectionField::out); });
  connect(_length, &QLineEdit::editingFinished, this, [this] { commit(SelectionField::length); });
  connect(_timeZoom, &TimeZoomState::changed, this, &WaveformSection::refreshControls);
  connect(_view, &WaveformView::amplitudeZoomChanged, this, &WaveformSection::refreshControls);
  connect(_view, &WaveformView::selectionChanged, this, &WaveformSection::refreshFields);
  connect(_view, &WaveformView::mutedChannelsChanged, this, [this] {
    for (std::size_t c = 0; c < _chips.size(); ++c) _chips[c]->setChecked(_view->mutedChannels().count(static_cast<int>(c)) == 0);
  });
  refreshControls();
  refreshFields();
  applySpeechRanges();
}

QLineEdit* WaveformSection::field(SelectionField which) const {
  switch (which) {
    case SelectionField::in: return _in;
    case SelectionField::out: return _out;
    case SelectionField::length: return _length;
  }
  return _in;
}

void WaveformSection::setSource(std::shared_ptr<const WaveformSource> source) {
  const int before = _view->source() ? _view->source()->channelCount() : -1;
  _view->setSource(std::move(source));
  const int after = _view->source() ? _view->source()->channelCount() : -1;
  if (before != after || _chips.empty()) rebuildChips();
  refreshControls();
  refreshFields();
}

void WaveformSection::rebuildChips() {
  for (QToolButton* chip : _chips) delete chip;
  _chips.clear();
  const WaveformSource* source = _view->source();
  if (!source) return;
  for (int c = 0; c < source->channelCount(); ++c) {
    const QString label = QString::fromStdString(source->channelLabel(c));
    auto* chip = smallButton(label, QStringLiteral("Mute or unmute %1").arg(label), this);
    chip->setObjectName(QStringLiteral("waveform.chip.%1").arg(c));
    chip->setCheckable(true);
    chip->setChecked(_view->mutedChannels().count(c) == 0);
    chip->setStyleSheet(QStringLiteral("QToolButton:checked { color: %1; font-weight: bold; }")
                            .arg(channelQColor(source->channelColor(c)).name()));
    connect(chip, &QToolButton::clicked, this, [this, c] {
      std::set<int> muted = _view->mutedChannels();
      if (!muted.erase(c)) muted.insert(c);
      _view->setMutedChannels(std::move(muted));
    });
    _chipRow->addWidget(chip);
    _chips.push_back(chip);
  }
}

void WaveformSection::setSpeechRanges(std::vector<SecondsRange> ranges, bool forceShow) {
  _speechRanges = std::move(ranges);
  _forceShowSpeechRanges = forceShow;
  applySpeechRanges();
}

void WaveformSection::applySpeechRanges() {
  _speechToggle->setVisible(!_speechRanges.empty());
  _view->setSpeechRanges(_speechRanges, DisplayPalette::speechRange(), _showSpeechRanges || _forceShowSpeechRanges);
}

void WaveformSection::setAnalyseAction(std::function<void()> action) {
  _analyseAction = std::move(action);
  _analyse->setVisible(static_cast<bool>(_analyseAction));
}

void WaveformSection::setAnalysing(bool analysing) { _analyse->setEnabled(!analysing); }

void WaveformSection::refreshControls() {
  _zoomLabel->setText(QString::fromStdString(corvane::zoomLabel(_timeZoom->zoom())));
  _amplitudeLabel->setText(QString::fromStdString(amplitudeZoomLabel(_view->amplitudeZoom())));
  const bool samples = _view->rulerMode() == RulerMode::samples;
  _rulerToggle->setText(samples ? QStringLiteral("#") : QStringLiteral("0:00"));
  _rulerToggle->setToolTip(samples ? QStringLiteral("Switch to time ruler") : QStringLiteral("Switch to sample ruler"));
  const bool hasSource = _view->source() != nullptr;
  for (QToolButton* b : {_zoomOut, _zoomIn, _ampDown, _ampUp}) b->setEnabled(hasSource);
}

void WaveformSection::refreshFields() {
  const double rate = _view->source() ? _view->source()->sampleRate() : 48000.0;
  const SelectionFieldTexts texts = selectionFieldTexts(_view->selection(), _view->rulerMode(), rate);
  // A field being typed in keeps what the user typed.
  if (!_in->hasFocus()) _in->setText(QString::fromStdString(texts.in));
  if (!_out->hasFocus()) _out->setText(QString::fromStdString(texts.out));
  if (!_length->hasFocus()) _length->setText(QString::fromStdString(texts.length));
  for (QLineEdit* edit : {_in, _out, _length}) edit->setEnabled(_view->source() != nullptr);
}

void WaveformSection::commit(SelectionField which) {
  const WaveformSource* source = _view->source();
  QLineEdit* edit = field(which);
  if (source) {
    const auto next = commitSelectionField(which, edit->text().toStdString(), _view->selection(), source->duration(),
                                           source->sampleRate(), _view->rulerMode());
    if (next) _view->setSelection(next);
  }
  edit->clearFocus();
  refreshFields();
}

}  // namespace corvane
