#include "displays/LoudnessTargetsView.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "core/LoudnessTargetSelection.h"
#include "core/NumberFormat.h"

namespace corvane {

namespace {

QString text(std::string_view utf8) { return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())); }

float readingOf(const LoudnessTarget& target, const LoudnessMeasurement& m) {
  switch (target.source) {
    case LoudnessSource::integrated: return m.integratedLUFS;
    case LoudnessSource::dialogGated: return m.dialogGatedLUFS;
    case LoudnessSource::rms: return m.rmsDBFS;
  }
  return LoudnessMeasurement::kNoReading;
}

QColor dotColour(LoudnessStatusDot dot) {
  switch (dot) {
    case LoudnessStatusDot::green: return QColor(0x5b, 0xd4, 0x6a);
    case LoudnessStatusDot::yellow: return QColor(0xe8, 0xd4, 0x4d);
    case LoudnessStatusDot::orange: return QColor(0xf0, 0x99, 0x3a);
    case LoudnessStatusDot::red: return QColor(0xee, 0x5a, 0x5a);
    case LoudnessStatusDot::dim: break;
  }
  return QColor(0x6a, 0x70, 0x78);
}

}  // namespace

QString noTargetsText(int limit) {
  return QStringLiteral("No targets selected. Pick up to %1 in Settings \u2192 Targets.").arg(limit);
}

TargetRowTexts targetRowTexts(const LoudnessTarget& target, const LoudnessMeasurement& measurement,
                              const std::optional<std::string>& activeMatchTargetID, float matchGainDB) {
  TargetRowTexts row;
  const LoudnessTargetEvaluation evaluation = LoudnessTargetEvaluator::evaluate(target, measurement);
  row.name = QString::fromStdString(target.displayName);
  row.referenceLine = QString::fromStdString(referenceLine(target));
  row.verdict = QString::fromStdString(evaluation.verdictText());
  row.warning = evaluation.isFlagged();
  row.dot = evaluation.statusDot();
  row.verdictToolTip = QString::fromStdString(LoudnessTargetEvaluator::tooltipText(target, measurement));

  const float reading = readingOf(target, measurement);
  const bool finite = std::isfinite(reading);
  const bool rms = target.source == LoudnessSource::rms;
  const bool dialog = target.source == LoudnessSource::dialogGated;
  row.matchActive = activeMatchTargetID && *activeMatchTargetID == target.id;
  row.matchEnabled = finite && !rms;
  if (row.matchActive) {
    row.matchToolTip = QStringLiteral("Matched: playing at %1 dB into %2's brickwall limiter. Click to release.")
                           .arg(QString::fromStdString(formatSigned(matchGainDB, 1)), row.name);
  } else if (row.matchEnabled) {
    row.matchToolTip = QStringLiteral("Match playback to %1 (against %2). Non-destructive; the buffer is untouched.")
                           .arg(row.name, dialog ? QStringLiteral("dialog-gated LUFS") : QStringLiteral("integrated LUFS"));
  } else if (rms) {
    row.matchToolTip = QStringLiteral(
        "ACX is a fixed RMS delivery spec, not a playback-normalization target, so Match doesn't apply.");
  } else if (dialog) {
    row.matchToolTip =
        QStringLiteral("Dialog-gated match needs a speech-gated LUFS reading; this file has no detected speech.");
  } else {
    row.matchToolTip = QStringLiteral("Loudness reading not available yet.");
  }

  row.normalizeShown = !rms;
  row.normalizeEnabled = !rms && finite;
  if (row.normalizeEnabled) {
    row.normalizeToolTip =
        QStringLiteral("Normalize so the file's %1 loudness hits %2 %3 (%4), true-peak limited at %5 dBTP. Opens Edit "
                       "mode pre-filled; undoable, saves as a new file.")
            .arg(dialog ? QStringLiteral("dialog-gated") : QStringLiteral("integrated"),
                 QString::fromStdString(formatFixed(target.referenceLevel, 0)), text(levelUnit(target.source)), row.name,
                 QString::fromStdString(formatFixed(target.truePeakCeilingDBTP, 0)));
  } else if (dialog) {
    row.normalizeToolTip = QStringLiteral("Needs a dialog-gated reading; this file has no detected speech.");
  } else {
    row.normalizeToolTip = QStringLiteral("Loudness reading not available yet.");
  }

  row.limitShown = std::isfinite(measurement.truePeakDBTP) && measurement.truePeakDBTP > target.truePeakCeilingDBTP;
  if (row.limitShown) {
    row.limitToolTip =
        QStringLiteral("True peak %1 dBTP is over %2's %3 dBTP ceiling. Limit caps inter-sample peaks at the ceiling; "
                       "loudness unchanged. Opens Edit mode pre-filled; undoable, saves as a new file.")
            .arg(QString::fromStdString(formatFixed(measurement.truePeakDBTP, 1)), row.name,
                 QString::fromStdString(formatFixed(target.truePeakCeilingDBTP, 0)));
  }
  return row;
}

LoudnessTargetsView::LoudnessTargetsView(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(4);
  auto* header = new QHBoxLayout;
  auto* heading = new QLabel(QStringLiteral("Loudness Targets"), this);
  heading->setObjectName(QStringLiteral("targets.heading"));
  QFont bold = heading->font();
  bold.setBold(true);
  heading->setFont(bold);
  _modePicker = new QComboBox(this);
  _modePicker->setObjectName(QStringLiteral("targets.mode"));
  for (LoudnessTargetMode mode : kAllLoudnessTargetModes) {
    _modePicker->addItem(text(shortLabel(mode)), static_cast<int>(mode));
    _modePicker->setItemData(_modePicker->count() - 1, text(label(mode)), Qt::ToolTipRole);
  }
  connect(_modePicker, &QComboBox::activated, this, [this](int index) {
    const auto mode = static_cast<LoudnessTargetMode>(_modePicker->itemData(index).toInt());
    emit modeChosen(mode);
  });
  header->addWidget(heading);
  header->addStretch(1);
  header->addWidget(_modePicker);
  layout->addLayout(header);
  _rowsHost = new QWidget(this);
  _rowsLayout = new QVBoxLayout(_rowsHost);
  _rowsLayout->setContentsMargins(0, 0, 0, 0);
  _rowsLayout->setSpacing(6);
  layout->addWidget(_rowsHost);
  rebuild();
}

void LoudnessTargetsView::setMode(LoudnessTargetMode mode) {
  _mode = mode;
  _modePicker->setCurrentIndex(_modePicker->findData(static_cast<int>(mode)));
}

void LoudnessTargetsView::setTargets(std::vector<LoudnessTarget> targets) {
  if (targets == _targets) return;
  _targets = std::move(targets);
  rebuild();
}

void LoudnessTargetsView::setMeasurement(const LoudnessMeasurement& m) {
  const auto same = [](float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  if (same(m.integratedLUFS, _measurement.integratedLUFS) && same(m.dialogGatedLUFS, _measurement.dialogGatedLUFS) &&
      m.speechPercentage == _measurement.speechPercentage && same(m.truePeakDBTP, _measurement.truePeakDBTP) &&
      same(m.maxShortTermLUFS, _measurement.maxShortTermLUFS) && same(m.rmsDBFS, _measurement.rmsDBFS) &&
      same(m.speechGatedNoiseFloorDBRMS, _measurement.speechGatedNoiseFloorDBRMS)) {
    return;
  }
  _measurement = m;
  rebuild();
}

void LoudnessTargetsView::setMatch(std::optional<std::string> activeMatchTargetID, float matchGainDB) {
  _activeMatchTargetID = std::move(activeMatchTargetID);
  _matchGainDB = matchGainDB;
  rebuild();
}

void LoudnessTargetsView::setActions(TargetAction onToggleMatch, TargetAction onNormalizeToTarget,
                                     TargetAction onLimitTPToTarget) {
  _onToggleMatch = std::move(onToggleMatch);
  _onNormalize = std::move(onNormalizeToTarget);
  _onLimit = std::move(onLimitTPToTarget);
  rebuild();
}

void LoudnessTargetsView::rebuild() {
  while (QLayoutItem* item = _rowsLayout->takeAt(0)) {
    delete item->widget();
    delete item;
  }
  _rows.clear();
  if (_targets.empty()) {
    auto* empty = new QLabel(noTargetsText(LoudnessTargetSelection::maxTargetsPerMode), _rowsHost);
    empty->setObjectName(QStringLiteral("targets.empty"));
    empty->setWordWrap(true);
    _rowsLayout->addWidget(empty);
    return;
  }
  for (std::size_t i = 0; i < _targets.size(); ++i) {
    const LoudnessTarget& target = _targets[i];
    TargetRowTexts texts = targetRowTexts(target, _measurement, _activeMatchTargetID, _matchGainDB);
    auto* rowWidget = new QWidget(_rowsHost);
    rowWidget->setObjectName(QStringLiteral("target.%1").arg(QString::fromStdString(target.id)));
    auto* grid = new QVBoxLayout(rowWidget);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(1);
    auto* top = new QHBoxLayout;
    auto* dot = new QLabel(QStringLiteral("\u25CF"), rowWidget);
    dot->setStyleSheet(QStringLiteral("color: %1;").arg(dotColour(texts.dot).name()));
    auto* name = new QLabel(texts.name, rowWidget);
    auto* verdict = new QLabel((texts.warning ? QStringLiteral("\u26A0 ") : QString()) + texts.verdict, rowWidget);
    verdict->setObjectName(QStringLiteral("verdict"));
    verdict->setToolTip(texts.verdictToolTip);
    name->setToolTip(texts.verdictToolTip);
    top->addWidget(dot);
    top->addWidget(name, 1);
    top->addWidget(verdict);
    grid->addLayout(top);
    auto* reference = new QLabel(texts.referenceLine, rowWidget);
    reference->setObjectName(QStringLiteral("reference"));
    reference->setStyleSheet(QStringLiteral("color: palette(mid);"));
    grid->addWidget(reference);
    const auto button = [&](const QString& title, const QString& tip, bool enabled, const TargetAction& action) {
      auto* b = new QToolButton(rowWidget);
      b->setText(title);
      b->setObjectName(title.toLower());
      b->setToolTip(tip);
      b->setEnabled(enabled);
      connect(b, &QToolButton::clicked, this, [action, target] { action(target); });
      return b;
    };
    if (_onToggleMatch || _onNormalize || (_onLimit && texts.limitShown)) {
      auto* actions = new QHBoxLayout;
      if (_onToggleMatch) {
        QToolButton* match = button(QStringLiteral("Match"), texts.matchToolTip, texts.matchEnabled || texts.matchActive,
                                    _onToggleMatch);
        match->setCheckable(true);
        match->setChecked(texts.matchActive);
        actions->addWidget(match);
      }
      if (_onNormalize && texts.normalizeShown) {
        actions->addWidget(button(QStringLiteral("Normalize"), texts.normalizeToolTip, texts.normalizeEnabled, _onNormalize));
      }
      if (_onLimit && texts.limitShown) actions->addWidget(button(QStringLiteral("Limit"), texts.limitToolTip, true, _onLimit));
      actions->addStretch(1);
      grid->addLayout(actions);
    }
    _rowsLayout->addWidget(rowWidget);
    _rows.push_back(std::move(texts));
  }
}

}  // namespace corvane
