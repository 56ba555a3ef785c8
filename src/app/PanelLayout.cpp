#include "app/PanelLayout.h"

#include <algorithm>

namespace corvane {

QString panelTitle(ContentPanel panel) {
  switch (panel) {
    case ContentPanel::waveform: return QStringLiteral("Waveform");
    case ContentPanel::loudnessCurve: return QStringLiteral("Loudness Curve");
    case ContentPanel::spectrogram: return QStringLiteral("Spectrogram");
    case ContentPanel::fft: return QStringLiteral("FFT");
    case ContentPanel::stereoWidth: return QStringLiteral("Stereo Width");
    case ContentPanel::chapterRibbon: return QStringLiteral("Chapter Ribbon");
  }
  return {};
}

void PanelLayout::focus(ContentPanel panel) {
  bool othersOff = true;
  for (ContentPanel other : kAllContentPanels) {
    if (other != panel && isShown(other)) othersOff = false;
  }
  const bool leaving = isShown(panel) && othersOff;
  for (ContentPanel other : kAllContentPanels) setShown(other, leaving || other == panel);
}

bool PanelLayout::isFocusMode() const { return std::count(shown.begin(), shown.end(), true) == 1; }

double waveformSectionHeight(int channels, double heightDelta) {
  const int n = std::max(channels, 1);
  const double low = 24.0 * n + 52.0;
  const double high = 144.0 * n + 52.0;
  const double automatic = std::clamp(350.0, low, high);
  return std::max({automatic + heightDelta, 80.0, low});
}

}  // namespace corvane
