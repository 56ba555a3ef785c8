#include "displays/InfoPanel.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariantAnimation>
#include <cmath>

#include "core/NumberFormat.h"
#include "displays/ChannelColors.h"
#include "displays/LoudnessTargetsView.h"
#include "displays/SectionHeading.h"
#include "displays/SegmentedControl.h"

namespace corvane {

namespace {

void clearGrid(QGridLayout* grid) {
  while (QLayoutItem* item = grid->takeAt(0)) {
    delete item->widget();
    delete item;
  }
}

QLabel* dimLabel(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setStyleSheet(QStringLiteral("color: palette(mid);"));
  return label;
}

QString loudnessKey(const LUFSRow& row) { return QStringLiteral("loudness.%1.%2").arg(row.label, row.sublabel); }

constexpr const char* kLoudColour = "#f0993a";

}  // namespace

InfoPanel::InfoPanel(QWidget* parent) : QWidget(parent) {
  setObjectName(QStringLiteral("infoPanel"));
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(10, 10, 10, 10);
  outer->setSpacing(8);

  _empty = new QWidget(this);
  auto* emptyLayout = new QVBoxLayout(_empty);
  auto* emptyTitle = sectionHeading(QStringLiteral("No file loaded"), _empty);
  emptyTitle->setObjectName(QStringLiteral("empty.title"));
  auto* emptyText = dimLabel(QStringLiteral("Open an audio file, or drop one on the window, to see its details and "
                                            "loudness here."),
                             _empty);
  emptyText->setWordWrap(true);
  emptyLayout->addWidget(emptyTitle);
  emptyLayout->addWidget(emptyText);
  emptyLayout->addStretch(1);
  outer->addWidget(_empty);

  _content = new QWidget(this);
  auto* content = new QVBoxLayout(_content);
  content->setContentsMargins(0, 0, 0, 0);
  content->setSpacing(6);

  content->addWidget(sectionHeading(QStringLiteral("File"), _content));
  _fileGrid = new QGridLayout;
  _fileGrid->setHorizontalSpacing(8);
  _fileGrid->setVerticalSpacing(2);
  content->addLayout(_fileGrid);

  auto* channelHeader = new QHBoxLayout;
  _channelsTitle = sectionHeading(QStringLiteral("Channels"), _content);
  _channelsTitle->setObjectName(QStringLiteral("channels.title"));
  _monitorSwitch = new SegmentedControl({QStringLiteral("PRE"), QStringLiteral("POST")}, _content);
  _monitorSwitch->setObjectName(QStringLiteral("channels.monitorMode"));
  _statsButton = new QToolButton(_content);
  _statsButton->setObjectName(QStringLiteral("channels.stats"));
  _statsButton->setText(QStringLiteral("\u2637"));
  _statsButton->setToolTip(QString::fromUtf8(kChannelStatsButtonTip));
  channelHeader->addWidget(_channelsTitle);
  channelHeader->addStretch(1);
  channelHeader->addWidget(_monitorSwitch);
  channelHeader->addWidget(_statsButton);
  content->addLayout(channelHeader);
  _channelGrid = new QGridLayout;
  _channelGrid->setHorizontalSpacing(8);
  _channelGrid->setVerticalSpacing(2);
  content->addLayout(_channelGrid);

  auto* loudnessHeader = new QHBoxLayout;
  loudnessHeader->addWidget(sectionHeading(QStringLiteral("Loudness"), _content));
  loudnessHeader->addStretch(1);
  _displaySwitch = new SegmentedControl({QStringLiteral("Live"), QStringLiteral("Offline")}, _content);
  _displaySwitch->setObjectName(QStringLiteral("loudness.displayMode"));
  loudnessHeader->addWidget(_displaySwitch);
  content->addLayout(loudnessHeader);
  _note = dimLabel(QString(), _content);
  _note->setObjectName(QStringLiteral("loudness.note"));
  _note->hide();
  content->addWidget(_note);
  _loudnessGrid = new QGridLayout;
  _loudnessGrid->setHorizontalSpacing(8);
  _loudnessGrid->setVerticalSpacing(2);
  content->addLayout(_loudnessGrid);
  _extrasGrid = new QGridLayout;
  _extrasGrid->setHorizontalSpacing(8);
  _extrasGrid->setVerticalSpacing(2);
  content->addLayout(_extrasGrid);

  _targets = new LoudnessTargetsView(_content);
  content->addSpacing(6);
  content->addWidget(_targets);
  content->addStretch(1);
  outer->addWidget(_content);

  connect(_monitorSwitch, &SegmentedControl::activated, this,
          [this](int index) { emit monitorModeChosen(index == 0 ? MonitorMode::pre : MonitorMode::post); });
  connect(_displaySwitch, &SegmentedControl::activated, this, [this](int index) {
    emit loudnessDisplayModeChosen(index == 0 ? LoudnessDisplayMode::live : LoudnessDisplayMode::offline);
  });
  connect(_statsButton, &QToolButton::clicked, this, &InfoPanel::channelStatsRequested);

  setReadings(_readings);
}

void InfoPanel::setTextScale(CorvaneTextScale scale) {
  const double factor = scale == CorvaneTextScale::standard ? 1.0 : scale == CorvaneTextScale::large ? 1.15 : 1.3;
  QFont base = QWidget::font();
  base.setPointSizeF(QFont().pointSizeF() * factor);
  setFont(base);
}

void InfoPanel::setReadings(const InfoPanelReadings& readings) {
  _readings = readings;
  const bool hasFile = static_cast<bool>(_readings.file);
  _empty->setVisible(!hasFile);
  _content->setVisible(hasFile);
  _monitorSwitch->setCurrentIndex(_readings.monitorMode == MonitorMode::pre ? 0 : 1);
  _displaySwitch->setCurrentIndex(_readings.loudnessDisplayMode == LoudnessDisplayMode::live ? 0 : 1);
  if (!hasFile) return;
  rebuildFileSection();
  rebuildChannelSection();
  rebuildLoudnessSection();
}

void InfoPanel::rebuildFileSection() {
  const std::vector<InfoRow> rows = fileInfoRows(*_readings.file);
  QStringList signature;
  for (const InfoRow& row : rows) signature << row.label;
  if (signature != _fileSignature) {
    clearGrid(_fileGrid);
    for (int i = 0; i < static_cast<int>(rows.size()); ++i) {
      _fileGrid->addWidget(dimLabel(rows[static_cast<std::size_t>(i)].label, _content), i, 0);
      auto* value = new QLabel(_content);
      value->setObjectName(QStringLiteral("file.%1").arg(rows[static_cast<std::size_t>(i)].label));
      value->setTextInteractionFlags(Qt::TextSelectableByMouse);
      value->setWordWrap(true);
      _fileGrid->addWidget(value, i, 1);
    }
    _fileGrid->setColumnStretch(1, 1);
    _fileSignature = signature;
  }
  for (const InfoRow& row : rows) {
    if (auto* value = _content->findChild<QLabel*>(QStringLiteral("file.%1").arg(row.label))) value->setText(row.value);
  }
}

void InfoPanel::rebuildChannelSection() {
  const ChannelSection section = channelSection(_readings);
  _channelsTitle->setText(section.title);
  QStringList signature;
  for (const ChannelLevelRow& row : section.rows) signature << row.label + QString::number(static_cast<int>(row.color));
  if (signature != _channelSignature) {
    clearGrid(_channelGrid);
    for (int i = 0; i < static_cast<int>(section.rows.size()); ++i) {
      const ChannelLevelRow& row = section.rows[static_cast<std::size_t>(i)];
      auto* label = new QLabel(row.label, _content);
      label->setObjectName(QStringLiteral("channel.%1.label").arg(i));
      label->setStyleSheet(QStringLiteral("color: %1; font-weight: bold;").arg(channelQColor(row.color).name()));
      auto* value = new QLabel(_content);
      value->setObjectName(QStringLiteral("channel.%1.value").arg(i));
      value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
      _channelGrid->addWidget(label, i, 0);
      _channelGrid->addWidget(value, i, 1);
    }
    _channelGrid->setColumnStretch(1, 1);
    _channelSignature = signature;
  }
  for (int i = 0; i < static_cast<int>(section.rows.size()); ++i) {
    if (auto* value = _content->findChild<QLabel*>(QStringLiteral("channel.%1.value").arg(i))) {
      value->setText(section.rows[static_cast<std::size_t>(i)].value);
    }
  }
}

void InfoPanel::rebuildLoudnessSection() {
  const LoudnessSection section = loudnessSection(_readings);
  _note->setVisible(section.note.has_value());
  _note->setText(section.note.value_or(QString()));

  QStringList signature;
  for (const LUFSRow& row : section.rows) signature << loudnessKey(row) + row.heading;
  if (signature != _loudnessSignature) {
    clearGrid(_loudnessGrid);
    _levelLabels.clear();
    int line = 0;
    for (const LUFSRow& row : section.rows) {
      if (!row.heading.isEmpty()) {
        auto* head = dimLabel(row.heading, _content);
        head->setObjectName(QStringLiteral("loudness.heading.%1").arg(row.heading));
        _loudnessGrid->addWidget(head, line++, 0, 1, 3);
      }
      _loudnessGrid->addWidget(new QLabel(row.label, _content), line, 0);
      _loudnessGrid->addWidget(dimLabel(row.sublabel, _content), line, 1);
      auto* value = new QLabel(_content);
      value->setObjectName(loudnessKey(row));
      value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
      QFont font = value->font();
      font.setBold(true);
      font.setStyleHint(QFont::Monospace);
      value->setFont(font);
      _loudnessGrid->addWidget(value, line, 2);
      _levelLabels[loudnessKey(row)] = RollingLabel{value, InfoPanelReadings::kNone, nullptr};
      ++line;
    }
    _loudnessGrid->setColumnStretch(2, 1);
    _loudnessSignature = signature;
  }
  for (const LUFSRow& row : section.rows) {
    RollingLabel& rolling = _levelLabels[loudnessKey(row)];
    rolling.label->setStyleSheet(row.isAboveThreshold() ? QStringLiteral("color: %1;").arg(QLatin1String(kLoudColour))
                                                        : QString());
    showLevel(rolling, row.level, row.value);
  }

  QStringList extrasSignature;
  for (const InfoRow& row : section.extras) extrasSignature << row.label;
  if (extrasSignature != _extrasSignature) {
    clearGrid(_extrasGrid);
    for (int i = 0; i < static_cast<int>(section.extras.size()); ++i) {
      const InfoRow& row = section.extras[static_cast<std::size_t>(i)];
      if (row.value.isEmpty()) {
        auto* head = sectionHeading(row.label, _content);
        head->setObjectName(QStringLiteral("extra.%1").arg(row.label));
        _extrasGrid->addWidget(head, i, 0, 1, 2);
        continue;
      }
      _extrasGrid->addWidget(dimLabel(row.label, _content), i, 0);
      auto* value = new QLabel(_content);
      value->setObjectName(QStringLiteral("extra.%1").arg(row.label));
      value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
      _extrasGrid->addWidget(value, i, 1);
    }
    _extrasGrid->setColumnStretch(1, 1);
    _extrasSignature = extrasSignature;
  }
  for (const InfoRow& row : section.extras) {
    if (row.value.isEmpty()) continue;
    if (auto* value = _content->findChild<QLabel*>(QStringLiteral("extra.%1").arg(row.label))) value->setText(row.value);
  }
}

void InfoPanel::showLevel(RollingLabel& rolling, float level, const QString& text) {
  const float from = rolling.shown;
  rolling.shown = level;
  if (!_rollAnimated || !std::isfinite(from) || !std::isfinite(level) || from == level) {
    if (rolling.animation) rolling.animation->stop();
    rolling.label->setText(text);
    return;
  }
  if (!rolling.animation) {
    rolling.animation = new QVariantAnimation(rolling.label);
    rolling.animation->setDuration(kRollMs);
    QLabel* label = rolling.label;
    connect(rolling.animation, &QVariantAnimation::valueChanged, label, [label](const QVariant& value) {
      label->setText(QString::fromStdString(formatFixed(value.toDouble(), 1)));
    });
  }
  rolling.animation->stop();
  rolling.animation->setStartValue(static_cast<double>(from));
  rolling.animation->setEndValue(static_cast<double>(level));
  rolling.animation->start();
}

}  // namespace corvane
