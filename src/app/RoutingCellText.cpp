#include "app/RoutingCellText.h"

#include "playback/RoutingGain.h"

namespace corvane {

namespace {

QString phaseLabel(RoutingPhase phase) { return QString::fromUtf8(routingPhaseLabel(phase).data()); }

const QString kArrow = QStringLiteral(" \u2192 ");

}  // namespace

QString emptyCellToolTip(const QString& src, const QString& out) {
  return QStringLiteral("Click to enable: route %1%2%3 at unity (0 dB).").arg(src, kArrow, out);
}

QString dotToolTip(const QString& src, const QString& out) {
  return QStringLiteral("Disable: remove %1%2%3").arg(src, kArrow, out);
}

QString phasorToolTip(RoutingPhase phase) {
  if (phase == RoutingPhase::inPhase) {
    return QStringLiteral("Phase 0\u00B0: click to cycle +90\u00B0 \u2192 \u221290\u00B0 \u2192 180\u00B0. \u00B190\u00B0 is "
                          "a broadband Hilbert shift; 180\u00B0 is polarity invert.");
  }
  return QStringLiteral("Phase %1: click to cycle. \u00B190\u00B0 is a broadband Hilbert shift; 180\u00B0 is polarity invert.")
      .arg(phaseLabel(phase));
}

QString routedCellToolTip(const QString& src, const QString& out, float gain, RoutingPhase phase) {
  QString level = isUnityRoutingGain(gain) ? QStringLiteral("unity")
                                           : QString::fromStdString(formatRoutingGainValue(gain)) + QStringLiteral(" dB");
  if (phase != RoutingPhase::inPhase) level += QStringLiteral(", phase ") + phaseLabel(phase);
  return QStringLiteral("%1%2%3 (%4). Click the dot to disable; click the phasor to cycle phase; click the value to "
                        "edit; drag the value vertically to adjust. Right-click for reset / remove.")
      .arg(src, kArrow, out, level);
}

QStringList routedCellMenu(RoutingPhase phase) {
  return {QStringLiteral("Cycle phase (%1%2%3)").arg(phaseLabel(phase), kArrow, phaseLabel(nextRoutingPhase(phase))),
          QStringLiteral("Reset to unity (0 dB)"), QStringLiteral("Remove route")};
}

QStringList emptyCellMenu() { return {QStringLiteral("Add route at unity (0 dB)")}; }

QString matrixToggleToolTip(bool matrixShown, bool forMatrixSegment) {
  if (forMatrixSegment) return matrixShown ? QStringLiteral("Matrix view active") : QStringLiteral("Switch to Matrix view");
  return matrixShown ? QStringLiteral("Switch to List view") : QStringLiteral("List view active");
}

}  // namespace corvane
