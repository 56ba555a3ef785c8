#include "headless/files/AudioContainer.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace corvane {

std::string normalizedExtension(std::string_view extension) {
  if (!extension.empty() && extension.front() == '.') extension.remove_prefix(1);
  std::string result(extension);
  for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return result;
}

std::optional<AudioContainer> audioContainer(std::string_view extension) {
  const std::string ext = normalizedExtension(extension);
  if (ext == "wav" || ext == "wave" || ext == "bwf") return AudioContainer::wav;
  if (ext == "rf64") return AudioContainer::rf64;
  if (ext == "bw64") return AudioContainer::bw64;
  if (ext == "w64") return AudioContainer::wave64;
  if (ext == "aif" || ext == "aiff") return AudioContainer::aiff;
  if (ext == "aifc") return AudioContainer::aiffc;
  if (ext == "caf") return AudioContainer::caf;
  return std::nullopt;
}

std::string_view displayName(AudioContainer container) {
  switch (container) {
    case AudioContainer::wav: return "WAV";
    case AudioContainer::rf64: return "RF64";
    case AudioContainer::bw64: return "BW64";
    case AudioContainer::wave64: return "Wave64";
    case AudioContainer::aiff: return "AIFF";
    case AudioContainer::aiffc: return "AIFF-C";
    case AudioContainer::caf: return "CAF";
  }
  return "WAV";
}

std::string_view preferredExtension(AudioContainer container) {
  switch (container) {
    case AudioContainer::wav: return "wav";
    case AudioContainer::rf64: return "rf64";
    case AudioContainer::bw64: return "bw64";
    case AudioContainer::wave64: return "w64";
    case AudioContainer::aiff: return "aif";
    case AudioContainer::aiffc: return "aifc";
    case AudioContainer::caf: return "caf";
  }
  return "wav";
}

bool isWritable(AudioContainer container) { return container != AudioContainer::bw64; }

bool isAudioFileExtension(std::string_view extension) {
  static constexpr std::array<std::string_view, 41> kAudioExtensions{
      "wav", "wave", "bwf", "rf64", "bw64", "w64", "aif", "aiff", "aifc", "caf", "flac",
      "mp3", "mp2", "mpa", "m4a", "m4b", "aac", "adts", "ogg", "oga", "opus", "spx", "wma",
      "ac3", "ec3", "dts", "amr", "awb", "au", "snd", "ape", "wv", "tta", "mka", "dsf",
      "dff", "voc", "sd2", "alac", "m4r", "3ga"};
  const std::string ext = normalizedExtension(extension);
  if (ext.empty()) return false;
  return std::find(kAudioExtensions.begin(), kAudioExtensions.end(), ext) != kAudioExtensions.end();
}

}  // namespace corvane
