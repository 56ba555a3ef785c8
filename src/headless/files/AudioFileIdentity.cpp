#include "headless/files/AudioFileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "headless/files/ContainerProbe.h"

namespace corvane {

namespace {

using detail::ContainerKind;
using detail::ContainerProbe;
using detail::SampleCodec;

std::string formatLabelOf(const ContainerProbe& probe) {
  switch (probe.container) {
    case ContainerKind::wav: return "WAV";
    case ContainerKind::rifx: return "RIFX";
    case ContainerKind::rf64: return "RF64";
    case ContainerKind::bw64: return "BW64";
    case ContainerKind::wave64: return "Wave64";
    case ContainerKind::aiff: return "AIFF";
    case ContainerKind::aiffc: return "AIFF-C";
    case ContainerKind::caf: return "CAF";
    case ContainerKind::flac: return "FLAC";
    case ContainerKind::ogg:
      switch (probe.codec) {
        case SampleCodec::vorbis: return "Ogg Vorbis";
        case SampleCodec::opus: return "Opus";
        case SampleCodec::flac: return "Ogg FLAC";
        case SampleCodec::speex: return "Ogg Speex";
        default: return "Ogg";
      }
    case ContainerKind::mpegAudio:
      return probe.codec == SampleCodec::mp1 ? "MP1" : probe.codec == SampleCodec::mp2 ? "MP2" : "MP3";
    case ContainerKind::adts: return "AAC (ADTS)";
    case ContainerKind::mp4: return "MPEG-4";
    case ContainerKind::au: return "AU";
    case ContainerKind::wavpack: return "WavPack";
    case ContainerKind::ape: return "Monkey's Audio";
    case ContainerKind::amr: return "AMR";
    case ContainerKind::dsf: return "DSF";
    case ContainerKind::dsdiff: return "DSDIFF";
    case ContainerKind::tta: return "TTA";
    case ContainerKind::voc: return "VOC";
    case ContainerKind::asf: return "ASF";
    case ContainerKind::matroska: return "Matroska";
  }
  return "unknown";
}

std::string encodingNameOf(const ContainerProbe& probe) {
  const std::string bits = std::to_string(probe.bitsPerSample);
  switch (probe.codec) {
    case SampleCodec::pcmSigned:
      return probe.bitsPerSample > 0 ? bits + "-bit integer" : "integer PCM";
    case SampleCodec::pcmUnsigned:
      return probe.bitsPerSample > 0 ? bits + "-bit unsigned integer" : "unsigned PCM";
    case SampleCodec::pcmFloat:
      return probe.bitsPerSample > 0 ? bits + "-bit float" : "float PCM";
    case SampleCodec::ulaw: return "µ-law";
    case SampleCodec::alaw: return "A-law";
    case SampleCodec::imaAdpcm: return "IMA ADPCM";
    case SampleCodec::msAdpcm: return "MS ADPCM";
    case SampleCodec::gsm610: return "GSM 6.10";
    case SampleCodec::mp1: return "MP1";
    case SampleCodec::mp2: return "MP2";
    case SampleCodec::mp3: return "MP3";
    case SampleCodec::aac: return "AAC";
    case SampleCodec::alac: return probe.bitsPerSample > 0 ? "ALAC (" + bits + "-bit)" : "ALAC";
    case SampleCodec::flac: return probe.bitsPerSample > 0 ? "FLAC (" + bits + "-bit)" : "FLAC";
    case SampleCodec::vorbis: return "Vorbis";
    case SampleCodec::opus: return "Opus";
    case SampleCodec::speex: return "Speex";
    case SampleCodec::ac3: return "AC-3";
    case SampleCodec::eac3: return "E-AC-3";
    case SampleCodec::other: return probe.codecName.empty() ? "unknown" : probe.codecName;
    case SampleCodec::unknown: return "unknown";
  }
  return "unknown";
}

std::optional<AudioContainer> containerOf(ContainerKind kind) {
  switch (kind) {
    case ContainerKind::wav: return AudioContainer::wav;
    case ContainerKind::rf64: return AudioContainer::rf64;
    case ContainerKind::bw64: return AudioContainer::bw64;
    case ContainerKind::wave64: return AudioContainer::wave64;
    case ContainerKind::aiff: return AudioContainer::aiff;
    case ContainerKind::aiffc: return AudioContainer::aiffc;
    case ContainerKind::caf: return AudioContainer::caf;
    default: return std::nullopt;
  }
}

// Files that one name may rightly hold. An RF64 or BW64 file named .wav is no lie (EBU and
// ITU recommend the .wav name for them), nor is AIFF-C named .aif.
enum class Family { wave, wave64, aiff, caf, flac, ogg, mpeg, adts, mp4, au, wavpack, ape, amr, dsf, dsdiff, tta, voc, asf, matroska };

std::optional<Family> familyOfExtension(const std::string& ext) {
  static const std::array<std::pair<std::string_view, Family>, 40> kTable{{
      {"wav", Family::wave},     {"wave", Family::wave},   {"bwf", Family::wave},     {"rf64", Family::wave},
      {"bw64", Family::wave},    {"w64", Family::wave64},  {"aif", Family::aiff},     {"aiff", Family::aiff},
      {"aifc", Family::aiff},    {"caf", Family::caf},     {"flac", Family::flac},    {"ogg", Family::ogg},
      {"oga", Family::ogg},      {"opus", Family::ogg},    {"spx", Family::ogg},      {"mp3", Family::mpeg},
      {"mp2", Family::mpeg},     {"mpa", Family::mpeg},    {"mp1", Family::mpeg},     {"aac", Family::adts},
      {"adts", Family::adts},    {"m4a", Family::mp4},     {"m4b", Family::mp4},      {"m4r", Family::mp4},
      {"mp4", Family::mp4},      {"mov", Family::mp4},     {"3gp", Family::mp4},      {"au", Family::au},
      {"snd", Family::au},       {"wv", Family::wavpack},  {"ape", Family::ape},      {"amr", Family::amr},
      {"dsf", Family::dsf},      {"dff", Family::dsdiff},  {"tta", Family::tta},      {"voc", Family::voc},
      {"wma", Family::asf},      {"mka", Family::matroska}, {"mkv", Family::matroska}, {"webm", Family::matroska},
  }};
  for (const auto& [extension, family] : kTable) {
    if (extension == ext) return family;
  }
  return std::nullopt;
}

Family familyOf(ContainerKind kind) {
  switch (kind) {
    case ContainerKind::wav:
    case ContainerKind::rifx:
    case ContainerKind::rf64:
    case ContainerKind::bw64: return Family::wave;
    case ContainerKind::wave64: return Family::wave64;
    case ContainerKind::aiff:
    case ContainerKind::aiffc: return Family::aiff;
    case ContainerKind::caf: return Family::caf;
    case ContainerKind::flac: return Family::flac;
    case ContainerKind::ogg: return Family::ogg;
    case ContainerKind::mpegAudio: return Family::mpeg;
    case ContainerKind::adts: return Family::adts;
    case ContainerKind::mp4: return Family::mp4;
    case ContainerKind::au: return Family::au;
    case ContainerKind::wavpack: return Family::wavpack;
    case ContainerKind::ape: return Family::ape;
    case ContainerKind::amr: return Family::amr;
    case ContainerKind::dsf: return Family::dsf;
    case ContainerKind::dsdiff: return Family::dsdiff;
    case ContainerKind::tta: return Family::tta;
    case ContainerKind::voc: return Family::voc;
    case ContainerKind::asf: return Family::asf;
    case ContainerKind::matroska: return Family::matroska;
  }
  return Family::wave;
}

}  // namespace

std::optional<AudioFileIdentity> AudioFileIdentity::inspect(int fd, const std::filesystem::path& url) {
  struct stat info {};
  if (fd < 0 || ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  const auto probe = detail::probeContainer(fd);
  if (!probe) return std::nullopt;

  AudioFileIdentity identity;
  identity.formatLabel = formatLabelOf(*probe);
  identity.encodingName = encodingNameOf(*probe);
  identity.nameExtension = normalizedExtension(url.extension().string());
  identity.channelCount = probe->channels;
  identity.sampleRate = probe->sampleRate;
  identity.isBigEndian = probe->bigEndian;
  identity.container = containerOf(probe->container);
  const bool linear = probe->codec == SampleCodec::pcmSigned || probe->codec == SampleCodec::pcmUnsigned ||
                      probe->codec == SampleCodec::pcmFloat;
  if (linear) {
    identity.pcmEncoding = pcmEncodingFor(probe->bitsPerSample, probe->codec == SampleCodec::pcmFloat);
  }
  if (const auto named = familyOfExtension(identity.nameExtension)) {
    identity.isMisnamed = *named != familyOf(probe->container);
  }
  identity.isRewritableInPlace = identity.container && isWritable(*identity.container) && identity.pcmEncoding &&
                                 probe->channels > 0 && probe->sampleRate > 0.0;
  return identity;
}

std::optional<AudioFileIdentity> AudioFileIdentity::inspect(const std::filesystem::path& url) {
  const int fd = ::open(url.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  auto identity = inspect(fd, url);
  ::close(fd);
  return identity;
}

}  // namespace corvane
