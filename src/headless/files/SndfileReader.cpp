// The libsndfile decoder behind AudioFileReader.
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "headless/files/AudioError.h"
#include "headless/files/DecoderBackends.h"

namespace corvane::detail {

namespace {

using P = ChannelPosition;

// Frames per sf_readf_float call: small enough that the interleaved scratch stays in cache
// while it is spread over the channels.
constexpr FrameCount kChunkFrames = 4096;

P positionFromSndfile(int channel) {
  switch (channel) {
    case SF_CHANNEL_MAP_MONO: return P::Mono;
    case SF_CHANNEL_MAP_LEFT:
    case SF_CHANNEL_MAP_FRONT_LEFT: return P::FrontLeft;
    case SF_CHANNEL_MAP_RIGHT:
    case SF_CHANNEL_MAP_FRONT_RIGHT: return P::FrontRight;
    case SF_CHANNEL_MAP_CENTER:
    case SF_CHANNEL_MAP_FRONT_CENTER: return P::FrontCenter;
    case SF_CHANNEL_MAP_REAR_CENTER: return P::BackCenter;
    case SF_CHANNEL_MAP_REAR_LEFT: return P::BackLeft;
    case SF_CHANNEL_MAP_REAR_RIGHT: return P::BackRight;
    case SF_CHANNEL_MAP_LFE: return P::LowFrequency;
    case SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER: return P::FrontLeftOfCenter;
    case SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER: return P::FrontRightOfCenter;
    case SF_CHANNEL_MAP_SIDE_LEFT: return P::SideLeft;
    case SF_CHANNEL_MAP_SIDE_RIGHT: return P::SideRight;
    case SF_CHANNEL_MAP_TOP_CENTER: return P::TopCenter;
    case SF_CHANNEL_MAP_TOP_FRONT_LEFT: return P::TopFrontLeft;
    case SF_CHANNEL_MAP_TOP_FRONT_RIGHT: return P::TopFrontRight;
    case SF_CHANNEL_MAP_TOP_FRONT_CENTER: return P::TopFrontCenter;
    case SF_CHANNEL_MAP_TOP_REAR_LEFT: return P::TopBackLeft;
    case SF_CHANNEL_MAP_TOP_REAR_RIGHT: return P::TopBackRight;
    case SF_CHANNEL_MAP_TOP_REAR_CENTER: return P::TopBackCenter;
    default: return P::Unknown;
  }
}

struct SubtypeInfo {
  std::optional<PCMEncoding> encoding;
  std::optional<int> bits;
};

SubtypeInfo subtypeInfo(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8: return {PCMEncoding::int8, 8};
    case SF_FORMAT_PCM_16: return {PCMEncoding::int16, 16};
    case SF_FORMAT_PCM_24: return {PCMEncoding::int24, 24};
    case SF_FORMAT_PCM_32: return {PCMEncoding::int32, 32};
    case SF_FORMAT_FLOAT: return {PCMEncoding::float32, 32};
    case SF_FORMAT_DOUBLE: return {PCMEncoding::float64, 64};
    case SF_FORMAT_ALAC_16: return {PCMEncoding::int16, 16};
    case SF_FORMAT_ALAC_20: return {PCMEncoding::int24, 20};
    case SF_FORMAT_ALAC_24: return {PCMEncoding::int24, 24};
    case SF_FORMAT_ALAC_32: return {PCMEncoding::int32, 32};
    case SF_FORMAT_DWVW_12: return {PCMEncoding::int16, 12};
    case SF_FORMAT_DWVW_16: return {PCMEncoding::int16, 16};
    case SF_FORMAT_DWVW_24: return {PCMEncoding::int24, 24};
    case SF_FORMAT_DPCM_8: return {PCMEncoding::int8, 8};
    case SF_FORMAT_DPCM_16: return {PCMEncoding::int16, 16};
    default: return {};
  }
}

class SndfileReader final : public AudioFileReader {
 public:
  SndfileReader(UniqueFd fd, SNDFILE* file, const SF_INFO& info)
      : AudioFileReader(Decoder::libsndfile), _fd(std::move(fd)), _file(file) {
    _sampleRate = info.samplerate;
    _channelCount = info.channels;
    _length = info.frames;
    _lengthIsExact = true;
    const auto subtype = subtypeInfo(info.format);
    _pcmEncoding = subtype.encoding;
    _bitDepth = subtype.bits;
    _interleaved.resize(static_cast<std::size_t>(kChunkFrames) * static_cast<std::size_t>(info.channels));
  }

  ~SndfileReader() override { sf_close(_file); }

  void setPositions(std::vector<ChannelPosition> positions) { _positions = std::move(positions); }

  FrameCount read(float* const* channels, FrameCount frames) override {
    const int count = _channelCount;
    FrameCount done = 0;
    while (done < frames) {
      const FrameCount want = std::min(kChunkFrames, frames - done);
      sf_count_t got = sf_readf_float(_file, _interleaved.data(), want);
      if (got < 0) got = 0;
      const float* source = _interleaved.data();
      if (count == 1) {
        std::copy(source, source + got, channels[0] + done);
      } else if (count == 2) {
        float* left = channels[0] + done;
        float* right = channels[1] + done;
        for (sf_count_t i = 0; i < got; ++i) {
          left[i] = source[2 * i];
          right[i] = source[2 * i + 1];
        }
      } else {
        for (int c = 0; c < count; ++c) {
          float* out = channels[c] + done;
          for (sf_count_t i = 0; i < got; ++i) out[i] = source[i * count + c];
        }
      }
      done += got;
      if (got < want) {
        // A short read is the end of the data; an error with nothing read is a failed read.
        if (got == 0 && done == 0 && sf_error(_file) != SF_ERR_NO_ERROR) {
          throw AudioDecodeError(std::string("The audio data couldn't be decoded: ") + sf_strerror(_file) + ".");
        }
        break;
      }
    }
    return done;
  }

 private:
  UniqueFd _fd;
  SNDFILE* _file;
  std::vector<float> _interleaved;
};

}  // namespace

std::mutex& sndfileOpenMutex() {
  static std::mutex mutex;
  return mutex;
}

std::unique_ptr<AudioFileReader> openWithSndfile(UniqueFd fd, const ContainerProbe* probe) {
  if (!fd || ::lseek(fd.get(), 0, SEEK_SET) != 0) return nullptr;
  SF_INFO info{};
  SNDFILE* file = nullptr;
  {
    const std::lock_guard lock(sndfileOpenMutex());
    file = sf_open_fd(fd.get(), SFM_READ, &info, SF_FALSE);
  }
  if (!file) return nullptr;
  // A RAW "container" is libsndfile's guess from a name or a headerless stream: never ours.
  if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_RAW || info.channels < 1 || info.samplerate < 1 ||
      info.frames < 0 || info.frames == SF_COUNT_MAX) {
    sf_close(file);
    return nullptr;
  }
  std::vector<int> map(static_cast<std::size_t>(info.channels), SF_CHANNEL_MAP_INVALID);
  std::vector<ChannelPosition> positions;
  if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(), static_cast<int>(map.size() * sizeof(int))) == SF_TRUE) {
    for (int channel : map) positions.push_back(positionFromSndfile(channel));
    if (std::all_of(positions.begin(), positions.end(), [](P p) { return p == P::Unknown; })) positions.clear();
  }
  if (positions.empty() && probe && probe->channels == info.channels &&
      static_cast<int>(probe->positions.size()) == info.channels) {
    positions = probe->positions;
  }
  auto reader = std::make_unique<SndfileReader>(std::move(fd), file, info);
  reader->setPositions(std::move(positions));
  return reader;
}

}  // namespace corvane::detail
