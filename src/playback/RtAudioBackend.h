// The RtAudio API behind each backend of the device catalog. Internal to the playback
// library: the public headers stay free of RtAudio.
#pragma once

#include <rtaudio/RtAudio.h>

#include "playback/AudioDeviceCatalog.h"

namespace corvane {

inline RtAudio::Api rtAudioApiOf(AudioBackend backend) {
  switch (backend) {
    case AudioBackend::jack: return RtAudio::UNIX_JACK;
    case AudioBackend::pulse: return RtAudio::LINUX_PULSE;
    case AudioBackend::alsa: return RtAudio::LINUX_ALSA;
  }
  return RtAudio::UNSPECIFIED;
}

}  // namespace corvane
