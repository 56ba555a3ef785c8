#include "headless/files/AudioFileModel.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "core/ChannelOrder.h"
#include "headless/files/AudioContainer.h"
#include "headless/files/AudioError.h"
#include "headless/files/AudioFileReader.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/UserText.h"
#include "headless/files/RawPCMReader.h"

namespace corvane {

namespace {

// The scratch buffer of the continued read, in frames.
constexpr FrameCount kScratchFrames = 65536;

std::string uppercase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The extension as the name spells it, without the dot.
std::string extensionOf(const std::filesystem::path& url) {
  std::string ext = url.extension().string();
  if (!ext.empty() && ext.front() == '.') ext.erase(0, 1);
  return ext;
}

std::int64_t fileSizeAttribute(const std::filesystem::path& url) {
  struct stat info {};
  if (::stat(url.c_str(), &info) != 0) return 0;
  return static_cast<std::int64_t>(info.st_size);
}

SharedAudioBuffer allocate(int channels, FrameCount frames, double sampleRate) {
  try {
    return AudioBuffer::create(channels, frames, sampleRate);
  } catch (const std::bad_alloc&) {
    throw AudioError(AudioError::Kind::bufferCreationFailed);
  }
}

// A buffer with room for `capacity` frames holding the first `filled` frames of `buffer`.
SharedAudioBuffer grow(const SharedAudioBuffer& buffer, FrameCount filled, FrameCount capacity) {
  if (!AudioLoadLimits::isWithinLimits(capacity, buffer->channelCount())) throw AudioError(AudioError::Kind::fileTooLarge);
  auto larger = allocate(buffer->channelCount(), capacity, buffer->sampleRate());
  for (int c = 0; c < buffer->channelCount(); ++c) {
    std::memcpy(larger->channel(c), buffer->channel(c), static_cast<std::size_t>(filled) * sizeof(float));
  }
  return larger;
}

// Faults a large buffer's pages in on a second thread while the decoder fills it from the
// start. The first write to each fresh page costs about as much as decoding into it (an hour
// of stereo is 1.4 GB of new memory), so on two cores this takes that cost off the decoder.
// MADV_POPULATE_WRITE maps the pages without changing their contents, so it may run beside
// the decoder's writes; on kernels without it (before 5.14) it does nothing.
class PagePrefaulter {
 public:
  explicit PagePrefaulter(const AudioBuffer& buffer) {
    constexpr std::size_t kWorthIt = std::size_t{64} << 20;
    if (static_cast<std::size_t>(buffer.frameCapacity()) * sizeof(float) * static_cast<std::size_t>(buffer.channelCount()) <
        kWorthIt) {
      return;
    }
    try {
      _thread = std::thread([&buffer] { populate(buffer); });
    } catch (const std::system_error&) {
      // No thread to spare: the decoder faults the pages in itself, as it would anyway.
    }
  }
  ~PagePrefaulter() {
    if (_thread.joinable()) _thread.join();
  }
  PagePrefaulter(const PagePrefaulter&) = delete;
  PagePrefaulter& operator=(const PagePrefaulter&) = delete;

 private:
  static void populate(const AudioBuffer& buffer) {
#ifdef MADV_POPULATE_WRITE
    constexpr std::size_t kSlice = std::size_t{16} << 20;
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    for (int c = 0; c < buffer.channelCount(); ++c) {
      const auto begin = reinterpret_cast<std::uintptr_t>(buffer.channel(c));
      const auto end = begin + static_cast<std::size_t>(buffer.frameCapacity()) * sizeof(float);
      for (std::uintptr_t at = begin & ~(page - 1); at < end; at += kSlice) {
        if (::madvise(reinterpret_cast<void*>(at), std::min<std::uintptr_t>(kSlice, end - at), MADV_POPULATE_WRITE) != 0) {
          return;
        }
      }
    }
#else
    (void)buffer;
#endif
  }

  std::thread _thread;
};

// Fills `buffer` from the reader: one read of the whole capacity, then, if that gave fewer
// frames, reads through a scratch buffer until the capacity is reached or a read gives
// nothing. A reader whose length is only an estimate is read to its end, the buffer growing
// as needed. Sets the frame length to what was read and returns the (possibly new) buffer.
SharedAudioBuffer fill(AudioFileReader& reader, SharedAudioBuffer buffer) {
  FrameCount filled = 0;
  {
    const PagePrefaulter prefaulter(*buffer);
    filled = reader.read(buffer->channels(), buffer->frameCapacity());
  }
  const int channels = buffer->channelCount();
  if (filled < buffer->frameCapacity() || !reader.lengthIsExact()) {
    std::vector<std::vector<float>> scratch(static_cast<std::size_t>(channels),
                                            std::vector<float>(static_cast<std::size_t>(kScratchFrames)));
    std::vector<float*> scratchPointers;
    for (auto& channel : scratch) scratchPointers.push_back(channel.data());
    while (filled < buffer->frameCapacity() || !reader.lengthIsExact()) {
      const FrameCount want = reader.lengthIsExact() ? std::min(kScratchFrames, buffer->frameCapacity() - filled)
                                                     : kScratchFrames;
      const FrameCount got = reader.read(scratchPointers.data(), want);
      if (got <= 0) break;
      if (filled + got > buffer->frameCapacity()) {
        buffer = grow(buffer, filled, std::max(filled + got, buffer->frameCapacity() + buffer->frameCapacity() / 4 + kScratchFrames));
      }
      for (int c = 0; c < channels; ++c) {
        std::memcpy(buffer->channel(c) + filled, scratchPointers[static_cast<std::size_t>(c)],
                    static_cast<std::size_t>(got) * sizeof(float));
      }
      filled += got;
    }
  }
  buffer->setFrameLength(filled);
  return buffer;
}

// The first buffer for a reader: its length, or room to start reading a stream of unknown
// length.
SharedAudioBuffer firstBuffer(const AudioFileReader& reader) {
  if (!(reader.sampleRate() > 0.0) || !std::isfinite(reader.sampleRate()) || reader.channelCount() < 1) {
    throw AudioError(AudioError::Kind::formatNotSupported);
  }
  const FrameCount capacity = reader.lengthIsExact() ? reader.length() : std::max(reader.length(), kScratchFrames);
  if (!AudioLoadLimits::isWithinLimits(reader.length(), reader.channelCount()) ||
      !AudioLoadLimits::isWithinLimits(capacity, reader.channelCount())) {
    throw AudioError(AudioError::Kind::fileTooLarge);
  }
  auto buffer = allocate(reader.channelCount(), capacity, reader.sampleRate());
  buffer->setChannelPositions(reader.channelPositions());
  return buffer;
}

struct Decoded {
  std::unique_ptr<AudioFileReader> reader;  // the decoder that produced the samples
  SharedAudioBuffer buffer;                 // channels in canonical order
  FrameCount totalFrames = 0;               // the header's count (what was read, for estimates)
};

// The decoding half of the load: the whole file, the second decoder after a failing read,
// canonical channel order.
Decoded decodeFile(const std::filesystem::path& url) {
  Decoded decoded;
  decoded.reader = AudioFileReader::open(url);
  try {
    decoded.buffer = fill(*decoded.reader, firstBuffer(*decoded.reader));
  } catch (const AudioDecodeError&) {
    // The read failed partway: start over from frame 0 with the other decoder, which may read
    // what the first one couldn't (FFmpeg recovers from damaged packets, for one).
    decoded.buffer.reset();
    const auto other = decoded.reader->decoder() == AudioFileReader::Decoder::ffmpeg ? AudioFileReader::Decoder::libsndfile
                                                                                     : AudioFileReader::Decoder::ffmpeg;
    try {
      decoded.reader = AudioFileReader::open(url, other);
    } catch (const AudioDecodeError&) {
      throw AudioError(AudioError::Kind::formatNotSupported);
    }
    decoded.buffer = fill(*decoded.reader, firstBuffer(*decoded.reader));
  }
  decoded.totalFrames = decoded.reader->lengthIsExact() ? decoded.reader->length() : decoded.buffer->frameLength();
  decoded.buffer = ChannelOrder::canonicalize(std::move(decoded.buffer));
  return decoded;
}

void fillFromHeader(AudioFileModel& model, const std::filesystem::path& url, const AudioFileReader& reader,
                    FrameCount totalFrames) {
  model.url = url;
  model.name = url.stem().string();
  model.sampleRate = reader.sampleRate();
  model.channelCount = reader.channelCount();
  model.bitDepth = reader.bitDepth().value_or(24);
  model.fileSize = fileSizeAttribute(url);
  model.totalFrames = totalFrames;
  model.duration = static_cast<double>(totalFrames) / model.sampleRate;
  model.pcmEncoding = reader.pcmEncoding();
  model.identity = AudioFileIdentity::inspect(url);
  model.fileFormat = model.identity ? model.identity->formatLabel : uppercase(extensionOf(url));
}

}  // namespace

std::string AudioFileModel::fileSizeFormatted() const {
  const double megabytes = static_cast<double>(fileSize) / 1048576.0;
  if (megabytes < 1000.0) return detail::formatFixed(megabytes, 1) + " MB";
  return detail::formatFixed(megabytes / 1024.0, 2) + " GB";
}

std::string AudioFileModel::sampleRateFormatted() const {
  if (sampleRate >= 1000.0) return detail::formatFixed(sampleRate / 1000.0, 1) + " kHz";
  return std::to_string(static_cast<long long>(sampleRate)) + " Hz";
}

ChannelLayout AudioFileModel::channelLayout() const { return ChannelLayout(channelCount); }

std::vector<std::string> AudioFileModel::channelLabels() const {
  if (pcmBuffer) {
    auto names = ChannelOrder::displayShortNames(pcmBuffer->channelPositions());
    if (static_cast<int>(names.size()) == channelCount) return names;
  }
  return channelLayout().channelLabels();
}

std::string AudioFileModel::encodingLabel() const {
  if (rawFormat) {
    const std::string bits = std::to_string(rawFormat->bitDepth());
    return rawFormat->isFloat() ? bits + "-bit float, declared" : bits + "-bit integer, declared";
  }
  if (identity) return identity->encodingName;
  if (pcmEncoding) return std::string(label(*pcmEncoding));
  return std::string(label(PCMEncoding::float32));
}

std::optional<std::string> AudioFileModel::formatHelp() const {
  if (!identity || !identity->isMisnamed) return std::nullopt;
  const std::string extension = extensionOf(url);
  const std::string& header = identity->formatLabel;
  const std::string opening = "The file's header says " + header + "; its name says ." + extension + ". ";
  if (identity->isRewritableInPlace) {
    const auto named = audioContainer(extension);
    const std::string container = named ? std::string(displayName(*named)) : uppercase(extension);
    return opening + "Save keeps it a " + header + " file. Use Save As to write a " + container + ".";
  }
  return opening + "It can't be rewritten in place; Save As writes a new PCM file.";
}

AudioFileModel AudioFileModel::fromBuffer(SharedAudioBuffer buffer, const AudioFileModel& replacing) {
  AudioFileModel model;
  model.url = replacing.url;
  model.name = replacing.name;
  model.bitDepth = replacing.bitDepth;
  model.fileFormat = replacing.fileFormat;
  model.fileSize = replacing.fileSize;
  model.rawFormat = replacing.rawFormat;
  model.pcmEncoding = replacing.pcmEncoding;
  model.identity = replacing.identity;
  if (buffer) {
    model.sampleRate = buffer->sampleRate();
    model.channelCount = buffer->channelCount();
    model.totalFrames = buffer->frameLength();
    model.duration = static_cast<double>(model.totalFrames) / model.sampleRate;
    model.waveformPeaks = computeWaveformPeaks(*buffer, kWaveformPeakResolution);
    model.clipRegions = computeClipRegions(*buffer, kClipThreshold);
  }
  model.pcmBuffer = std::move(buffer);
  return model;
}

namespace {

// Recomputes bins first ... last (inclusive, clamped to the bins there are) of one channel's
// peaks, bins of `framesPerBin` frames from frame 0; a bin that would hold no frame of the
// buffer is left alone.
void patchBins(ChannelPeaks& bins, const float* data, FrameCount totalFrames, FrameCount framesPerBin,
               FrameCount first, FrameCount last) {
  last = std::min(last, static_cast<FrameCount>(bins.size()) - 1);
  for (FrameCount bin = first; bin <= last; ++bin) {
    const FrameCount start = bin * framesPerBin;
    const FrameCount count = std::min(totalFrames - start, framesPerBin);
    if (count < 1) continue;
    bins[static_cast<std::size_t>(bin)] = peakOfFrames(data + start, count);
  }
}

// The clipped run around an edit of [start, upper): the lowest frame of a run that reaches
// start - 1, and the first unclipped frame from upper on.
std::pair<FrameCount, FrameCount> widenedToClippedRuns(const float* data, FrameCount totalFrames, FrameCount start,
                                                       FrameCount upper, float threshold) {
  FrameCount left = start;
  while (left > 0 && std::fabs(data[left - 1]) >= threshold) --left;
  FrameCount right = upper;
  while (right < totalFrames && std::fabs(data[right]) >= threshold) ++right;
  return {left, right};
}

}  // namespace

AudioFileModel AudioFileModel::refreshedAfterInPlaceEdit(SharedAudioBuffer buffer, FrameCount startFrame,
                                                         FrameCount endFrame, float threshold) const& {
  return AudioFileModel(*this).refreshedAfterInPlaceEdit(std::move(buffer), startFrame, endFrame, threshold);
}

AudioFileModel AudioFileModel::refreshedAfterInPlaceEdit(SharedAudioBuffer buffer, FrameCount startFrame,
                                                         FrameCount endFrame, float threshold) && {
  AudioFileModel model = std::move(*this);
  if (!buffer || buffer->channelCount() < 1) return model;
  const FrameCount total = buffer->frameLength();
  const FrameCount start = std::clamp<FrameCount>(startFrame, 0, total);
  const FrameCount end = std::clamp<FrameCount>(endFrame, 0, total);
  const FrameCount upper = std::max(end, start);
  model.pcmBuffer = buffer;
  if (end <= start) return model;

  const FrameCount binSize = std::max<FrameCount>(total / kWaveformPeakResolution, 1);
  const int peakChannels = std::min(buffer->channelCount(), static_cast<int>(model.waveformPeaks.size()));
  for (int c = 0; c < peakChannels; ++c) {
    patchBins(model.waveformPeaks[static_cast<std::size_t>(c)], buffer->channel(c), total, binSize, start / binSize,
              (upper - 1) / binSize);
  }

  const int clipChannels = std::min(buffer->channelCount(), static_cast<int>(model.clipRegions.size()));
  for (int c = 0; c < clipChannels; ++c) {
    const float* data = buffer->channel(c);
    const auto [left, right] = widenedToClippedRuns(data, total, start, upper, threshold);
    ChannelClipRegions& regions = model.clipRegions[static_cast<std::size_t>(c)];
    ChannelClipRegions patched;
    patched.reserve(regions.size() + 1);
    for (const ClipRegion& region : regions) {
      if (region.last < left) patched.push_back(region);
    }
    const ChannelClipRegions scanned = scanClipRegions(data, left, right, threshold);
    patched.insert(patched.end(), scanned.begin(), scanned.end());
    for (const ClipRegion& region : regions) {
      if (region.first >= right) patched.push_back(region);
    }
    regions = std::move(patched);
  }

  for (WaveformPyramidLevel& level : model.waveformPyramid) {
    const int levelChannels = std::min(buffer->channelCount(), static_cast<int>(level.peaks.size()));
    for (int c = 0; c < levelChannels; ++c) {
      ChannelPeaks& bins = level.peaks[static_cast<std::size_t>(c)];
      const FrameCount first = start / level.framesPerBin;
      if (first >= static_cast<FrameCount>(bins.size())) continue;
      patchBins(bins, buffer->channel(c), total, level.framesPerBin, first, (upper - 1) / level.framesPerBin);
    }
  }
  return model;
}

AudioFileModel::Loaded AudioFileModel::load(const std::filesystem::path& url, const std::optional<RawPCMFormat>& rawFormat) {
  AudioFileModel model;
  if (rawFormat) {
    auto buffer = RawPCMReader::read(url, *rawFormat);
    model.url = url;
    model.name = url.stem().string();
    model.sampleRate = rawFormat->sampleRate;
    model.channelCount = rawFormat->channelCount;
    model.bitDepth = rawFormat->bitDepth();
    model.fileFormat = rawFormat->fileFormatLabel();
    model.fileSize = fileSizeAttribute(url);
    model.totalFrames = buffer->frameLength();
    model.duration = static_cast<double>(model.totalFrames) / model.sampleRate;
    model.rawFormat = rawFormat;
    model.waveformPeaks = computeWaveformPeaks(*buffer, kWaveformPeakResolution);
    model.clipRegions = computeClipRegions(*buffer, kClipThreshold);
    model.pcmBuffer = buffer;
    return {std::move(model), std::move(buffer)};
  }

  auto decoded = decodeFile(url);
  fillFromHeader(model, url, *decoded.reader, decoded.totalFrames);
  model.waveformPeaks = computeWaveformPeaks(*decoded.buffer, kWaveformPeakResolution);
  model.clipRegions = computeClipRegions(*decoded.buffer, kClipThreshold);
  model.pcmBuffer = decoded.buffer;
  return {std::move(model), std::move(decoded.buffer)};
}

SharedAudioBuffer AudioFileModel::decode(const std::filesystem::path& url) { return decodeFile(url).buffer; }

AudioFileModel AudioFileModel::describe(const std::filesystem::path& url) {
  auto reader = AudioFileReader::open(url);
  if (!(reader->sampleRate() > 0.0) || reader->channelCount() < 1) throw AudioError(AudioError::Kind::formatNotSupported);
  AudioFileModel model;
  fillFromHeader(model, url, *reader, reader->length());
  auto empty = AudioBuffer::create(reader->channelCount(), 0, reader->sampleRate());
  empty->setChannelPositions(reader->channelPositions());
  model.pcmBuffer = ChannelOrder::canonicalize(std::move(empty));
  return model;
}

std::optional<std::int64_t> regularFileSize(const std::filesystem::path& url) {
  struct stat info {};
  if (::stat(url.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 1) return std::nullopt;
  return static_cast<std::int64_t>(info.st_size);
}

std::optional<std::string> rawImportNote(const std::filesystem::path& url) {
  const std::string extension = extensionOf(url);
  if (extension.empty() || !isAudioFileExtension(extension)) return std::nullopt;
  return "The file couldn't be read as " + uppercase(extension) +
         " audio; it may be damaged. If it is actually headerless PCM, declare the format below.";
}

}  // namespace corvane
