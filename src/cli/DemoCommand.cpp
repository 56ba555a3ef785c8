// corvane demo OUT.wav: writes Corvane's demo recording, 30 s of programme-like stereo at
// 48 kHz (music with dynamics, speech-like passages with pauses, a fade), as 32-bit float WAV
// so that what is measured afterwards is exactly what was synthesised.
#include <sndfile.h>

#include <iostream>
#include <string>
#include <vector>

#include "cli/CliCommands.h"
#include "cli/CliSupport.h"
#include "core/ProgrammeSignal.h"

namespace corvane::cli {

int runDemoCommand(const std::vector<std::string>& args) {
  if (args.size() != 1 || args[0].empty() || args[0][0] == '-') {
    printError("usage: corvane demo OUT.wav");
    return kExitUsage;
  }
  const std::string& path = args[0];
  const SharedAudioBuffer programme = synthesiseProgramme({48000.0, 2, 30.0, 1});

  SF_INFO info{};
  info.samplerate = static_cast<int>(programme->sampleRate());
  info.channels = programme->channelCount();
  info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file == nullptr) {
    printError("Could not write " + path + ": " + sf_strerror(nullptr));
    return kExitNamedError;
  }
  // No PEAK chunk: it carries a time stamp, and the demo should be the same file every time.
  sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
  const int channels = programme->channelCount();
  const FrameCount frames = programme->frameLength();
  std::vector<float> interleaved(static_cast<std::size_t>(frames * channels));
  for (FrameCount i = 0; i < frames; ++i) {
    for (int c = 0; c < channels; ++c) {
      interleaved[static_cast<std::size_t>(i * channels + c)] = programme->channel(c)[i];
    }
  }
  const sf_count_t written = sf_writef_float(file, interleaved.data(), frames);
  const std::string writeError = sf_strerror(file);
  if (sf_close(file) != 0 || written != frames) {
    printError("Could not write " + path + ": " + writeError);
    return kExitNamedError;
  }
  return kExitSuccess;
}

}  // namespace corvane::cli
