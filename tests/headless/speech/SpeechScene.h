// A test recording with speech at known times: espeak-ng phrases (their leading and trailing
// silence cut off by sox) between digital silence, loud pink noise, a 60 ms click and a loud
// chord, at 48 kHz stereo. The noise and the chord are several LU louder than the speech, so
// the programme loudness and the loudness of the speech alone differ clearly.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "SpeechTestSupport.h"

namespace corvane::test {

struct SpeechScene {
  static constexpr double kRate = 48000;
  SharedAudioBuffer audio;  // stereo, both channels equal
  struct Span {
    FrameCount start;
    FrameCount end;
  };
  std::vector<Span> phrases;  // where each phrase sounds, in frames
  Span click;
  Span noise;
  Span chord;
  // The two phrases placed 0.5 s apart are phrases[2] and phrases[3].

  // Builds it in `folder` with espeak-ng and sox (a second or so).
  static SpeechScene build(const std::filesystem::path& folder);
};

}  // namespace corvane::test
