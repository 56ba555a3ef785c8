// Which panels the main view's stack shows, and how tall the waveform's section is: the state
// the View menu's toggles and focus commands act on, apart from any widget.
//
// Six panels: waveform, loudness curve, spectrogram, FFT, stereo width, chapter ribbon. Toggle
// flips one. Focus on X: if X is on and every other one off, all six turn on (leaving focus);
// otherwise X turns on and the other five off. The set shown before focusing is not
// remembered, so leaving focus always shows all six.
//
// Thread class: a plain value; any thread.
#pragma once

#include <array>
#include <QString>

namespace corvane {

enum class ContentPanel { waveform, loudnessCurve, spectrogram, fft, stereoWidth, chapterRibbon };
inline constexpr std::array<ContentPanel, 6> kAllContentPanels{ContentPanel::waveform,    ContentPanel::loudnessCurve,
                                                               ContentPanel::spectrogram, ContentPanel::fft,
                                                               ContentPanel::stereoWidth, ContentPanel::chapterRibbon};

// "Waveform", "Loudness Curve", "Spectrogram", "FFT", "Stereo Width", "Chapter Ribbon".
QString panelTitle(ContentPanel panel);

struct PanelLayout {
  std::array<bool, 6> shown{true, true, true, true, true, true};

  bool isShown(ContentPanel panel) const { return shown[static_cast<std::size_t>(panel)]; }
  void setShown(ContentPanel panel, bool on) { shown[static_cast<std::size_t>(panel)] = on; }
  void toggle(ContentPanel panel) { setShown(panel, !isShown(panel)); }
  void focus(ContentPanel panel);
  // Exactly one panel is shown.
  bool isFocusMode() const;

  friend bool operator==(const PanelLayout&, const PanelLayout&) = default;
};

// The waveform section's height for a file of `channels` channels (1 with no file) after the
// user dragged `heightDelta` onto it: 350 held to 24·n + 52 ... 144·n + 52, plus the delta, and
// at least 80 and 24·n + 52.
double waveformSectionHeight(int channels, double heightDelta);

}  // namespace corvane
