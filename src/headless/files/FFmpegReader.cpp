// The FFmpeg decoder behind AudioFileReader, for what libsndfile can't read (AAC and ALAC in
// MP4, BW64, WMA, ...).
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include "headless/files/AudioError.h"
#include "headless/files/DecoderBackends.h"

namespace corvane::detail {

namespace {

using P = ChannelPosition;

constexpr int kIOBufferBytes = 64 * 1024;
constexpr int kMaxProbeBytes = 1 << 20;

void quietFFmpeg() {
  // FFmpeg's log goes to stderr; damaged files would fill a terminal. Corvane reports its own
  // errors in the user's words instead.
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

// Reads the descriptor with pread at our own offset, so that no other holder of the file's
// offset can disturb the demuxer.
struct FileSource {
  int fd = -1;
  std::int64_t offset = 0;
  std::int64_t size = 0;
};

int readPacket(void* opaque, std::uint8_t* buffer, int size) {
  auto* source = static_cast<FileSource*>(opaque);
  while (true) {
    const ssize_t got = ::pread(source->fd, buffer, static_cast<std::size_t>(size), static_cast<off_t>(source->offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return AVERROR(errno);
    if (got == 0) return AVERROR_EOF;
    source->offset += got;
    return static_cast<int>(got);
  }
}

std::int64_t seekSource(void* opaque, std::int64_t offset, int whence) {
  auto* source = static_cast<FileSource*>(opaque);
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE: return source->size;
    case SEEK_SET: break;
    case SEEK_CUR: offset += source->offset; break;
    case SEEK_END: offset += source->size; break;
    default: return AVERROR(EINVAL);
  }
  if (offset < 0) return AVERROR(EINVAL);
  source->offset = offset;
  return offset;
}

P positionFromFFmpeg(AVChannel channel) {
  switch (channel) {
    case AV_CHAN_FRONT_LEFT:
    case AV_CHAN_STEREO_LEFT: return P::FrontLeft;
    case AV_CHAN_FRONT_RIGHT:
    case AV_CHAN_STEREO_RIGHT: return P::FrontRight;
    case AV_CHAN_FRONT_CENTER: return P::FrontCenter;
    case AV_CHAN_LOW_FREQUENCY: return P::LowFrequency;
    case AV_CHAN_BACK_LEFT: return P::BackLeft;
    case AV_CHAN_BACK_RIGHT: return P::BackRight;
    case AV_CHAN_FRONT_LEFT_OF_CENTER: return P::FrontLeftOfCenter;
    case AV_CHAN_FRONT_RIGHT_OF_CENTER: return P::FrontRightOfCenter;
    case AV_CHAN_BACK_CENTER: return P::BackCenter;
    case AV_CHAN_SIDE_LEFT: return P::SideLeft;
    case AV_CHAN_SIDE_RIGHT: return P::SideRight;
    case AV_CHAN_TOP_CENTER: return P::TopCenter;
    case AV_CHAN_TOP_FRONT_LEFT: return P::TopFrontLeft;
    case AV_CHAN_TOP_FRONT_CENTER: return P::TopFrontCenter;
    case AV_CHAN_TOP_FRONT_RIGHT: return P::TopFrontRight;
    case AV_CHAN_TOP_BACK_LEFT: return P::TopBackLeft;
    case AV_CHAN_TOP_BACK_CENTER: return P::TopBackCenter;
    case AV_CHAN_TOP_BACK_RIGHT: return P::TopBackRight;
    default: return P::Unknown;
  }
}

std::vector<ChannelPosition> positionsFromLayout(const AVChannelLayout& layout) {
  if (layout.order != AV_CHANNEL_ORDER_NATIVE && layout.order != AV_CHANNEL_ORDER_CUSTOM) return {};
  std::vector<ChannelPosition> positions;
  for (int i = 0; i < layout.nb_channels; ++i) {
    positions.push_back(positionFromFFmpeg(av_channel_layout_channel_from_index(&layout, static_cast<unsigned>(i))));
  }
  if (std::all_of(positions.begin(), positions.end(), [](P p) { return p == P::Unknown; })) return {};
  return positions;
}

struct EncodingInfo {
  std::optional<PCMEncoding> encoding;
  std::optional<int> bits;
};

EncodingInfo encodingOf(const AVCodecParameters& parameters) {
  switch (parameters.codec_id) {
    case AV_CODEC_ID_PCM_U8:
    case AV_CODEC_ID_PCM_S8: return {PCMEncoding::int8, 8};
    case AV_CODEC_ID_PCM_S16LE:
    case AV_CODEC_ID_PCM_S16BE: return {PCMEncoding::int16, 16};
    case AV_CODEC_ID_PCM_S24LE:
    case AV_CODEC_ID_PCM_S24BE: return {PCMEncoding::int24, 24};
    case AV_CODEC_ID_PCM_S32LE:
    case AV_CODEC_ID_PCM_S32BE: return {PCMEncoding::int32, 32};
    case AV_CODEC_ID_PCM_F32LE:
    case AV_CODEC_ID_PCM_F32BE: return {PCMEncoding::float32, 32};
    case AV_CODEC_ID_PCM_F64LE:
    case AV_CODEC_ID_PCM_F64BE: return {PCMEncoding::float64, 64};
    case AV_CODEC_ID_FLAC:
    case AV_CODEC_ID_ALAC:
    case AV_CODEC_ID_WAVPACK:
    case AV_CODEC_ID_TTA:
    case AV_CODEC_ID_APE: {
      const int bits = parameters.bits_per_raw_sample;
      if (bits <= 0) return {};
      return {pcmEncodingFor(bits <= 8 ? 8 : bits <= 16 ? 16 : bits <= 24 ? 24 : 32, false), bits};
    }
    default: return {};
  }
}

class FFmpegReader final : public AudioFileReader {
 public:
  explicit FFmpegReader(UniqueFd fd) : AudioFileReader(Decoder::ffmpeg), _fd(std::move(fd)) {}

  ~FFmpegReader() override {
    av_frame_free(&_frame);
    av_packet_free(&_packet);
    avcodec_free_context(&_codec);
    avformat_close_input(&_format);
    if (_io) {
      av_freep(&_io->buffer);
      avio_context_free(&_io);
    }
  }

  // False when FFmpeg can't be confident about the bytes or finds no decodable audio.
  bool open() {
    quietFFmpeg();
    struct stat info {};
    if (::fstat(_fd.get(), &info) != 0) return false;
    _source = {_fd.get(), 0, static_cast<std::int64_t>(info.st_size)};
    const AVInputFormat* inputFormat = probe();
    if (!inputFormat) return false;

    auto* ioBuffer = static_cast<unsigned char*>(av_malloc(kIOBufferBytes));
    if (!ioBuffer) return false;
    _io = avio_alloc_context(ioBuffer, kIOBufferBytes, 0, &_source, readPacket, nullptr, seekSource);
    if (!_io) {
      av_free(ioBuffer);
      return false;
    }
    _format = avformat_alloc_context();
    if (!_format) return false;
    _format->pb = _io;
    _format->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (avformat_open_input(&_format, "", inputFormat, nullptr) < 0) {
      _format = nullptr;  // freed by avformat_open_input on failure
      return false;
    }
    if (avformat_find_stream_info(_format, nullptr) < 0) return false;
    const AVCodec* decoder = nullptr;
    _streamIndex = av_find_best_stream(_format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (_streamIndex < 0 || !decoder) return false;
    for (unsigned i = 0; i < _format->nb_streams; ++i) {
      if (static_cast<int>(i) != _streamIndex) _format->streams[i]->discard = AVDISCARD_ALL;
    }
    AVStream* stream = _format->streams[_streamIndex];
    _codec = avcodec_alloc_context3(decoder);
    if (!_codec || avcodec_parameters_to_context(_codec, stream->codecpar) < 0) return false;
    _codec->thread_count = 1;
    if (avcodec_open2(_codec, decoder, nullptr) < 0) return false;
    _frame = av_frame_alloc();
    _packet = av_packet_alloc();
    if (!_frame || !_packet) return false;

    _sampleRate = _codec->sample_rate;
    _channelCount = _codec->ch_layout.nb_channels;
    if (_sampleRate <= 0 || _channelCount <= 0) return false;
    _positions = positionsFromLayout(_codec->ch_layout);
    const auto encoding = encodingOf(*stream->codecpar);
    _pcmEncoding = encoding.encoding;
    _bitDepth = encoding.bits;

    const AVRational perFrame{1, static_cast<int>(_sampleRate)};
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
      _length = av_rescale_q(stream->duration, stream->time_base, perFrame);
      // A duration the container states (MP4's sample tables, a WAV data size) is exact and
      // also trims the encoder's padding at the end; one from the bit rate is a guess.
      _lengthIsExact = _format->duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
    } else if (_format->duration != AV_NOPTS_VALUE && _format->duration > 0) {
      _length = av_rescale_q(_format->duration, AV_TIME_BASE_Q, perFrame);
      _lengthIsExact = false;
    } else {
      _length = 0;
      _lengthIsExact = false;
    }
    return true;
  }

  FrameCount read(float* const* channels, FrameCount frames) override {
    FrameCount done = 0;
    while (done < frames) {
      if (_frameOffset < _frameSamples) {
        const FrameCount n = std::min<FrameCount>(frames - done, _frameSamples - _frameOffset);
        convert(channels, done, n);
        _frameOffset += n;
        done += n;
        continue;
      }
      if (!nextFrame()) break;
    }
    return done;
  }

 private:
  // A probe over growing prefixes of the file, as FFmpeg's own does, but refusing a guess of
  // AVPROBE_SCORE_RETRY or less instead of taking it.
  const AVInputFormat* probe() {
    std::vector<unsigned char> buffer;
    for (int size = 2048; size <= kMaxProbeBytes; size *= 2) {
      const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size, _source.size));
      buffer.assign(wanted + AVPROBE_PADDING_SIZE, 0);
      std::size_t got = 0;
      while (got < wanted) {
        const ssize_t n = ::pread(_fd.get(), buffer.data() + got, wanted - got, static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
      }
      if (got == 0) return nullptr;
      AVProbeData data{};
      data.filename = "";
      data.buf = buffer.data();
      data.buf_size = static_cast<int>(got);
      int score = 0;
      const AVInputFormat* format = av_probe_input_format3(&data, 1, &score);
      if (format && score > AVPROBE_SCORE_RETRY) return format;
      if (static_cast<std::int64_t>(got) >= _source.size) break;
    }
    return nullptr;
  }

  bool nextFrame() {
    while (true) {
      const int received = avcodec_receive_frame(_codec, _frame);
      if (received == 0) {
        if (_frame->ch_layout.nb_channels != _channelCount) {
          throw AudioDecodeError("The audio changes its channel count partway through; Corvane can't load it.");
        }
        _frameSamples = _frame->nb_samples;
        _frameOffset = 0;
        if (_frameSamples > 0) return true;
        continue;
      }
      if (received == AVERROR_EOF) return false;
      if (received != AVERROR(EAGAIN)) throw AudioDecodeError("The audio data couldn't be decoded.");
      if (_flushed) return false;
      const int read = av_read_frame(_format, _packet);
      if (read < 0) {
        avcodec_send_packet(_codec, nullptr);
        _flushed = true;
        continue;
      }
      if (_packet->stream_index == _streamIndex) {
        const int sent = avcodec_send_packet(_codec, _packet);
        // A damaged packet costs its own samples only; the stream goes on after it.
        if (sent < 0 && sent != AVERROR_INVALIDDATA && sent != AVERROR(EAGAIN)) {
          av_packet_unref(_packet);
          throw AudioDecodeError("The audio data couldn't be decoded.");
        }
      }
      av_packet_unref(_packet);
    }
  }

  void convert(float* const* channels, FrameCount at, FrameCount count) {
    const auto format = static_cast<AVSampleFormat>(_frame->format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const int stride = planar ? 1 : _channelCount;
    for (int c = 0; c < _channelCount; ++c) {
      const std::uint8_t* base = _frame->extended_data[planar ? c : 0];
      float* out = channels[c] + at;
      const std::size_t first = static_cast<std::size_t>(_frameOffset) * static_cast<std::size_t>(stride) +
                                (planar ? 0 : static_cast<std::size_t>(c));
      switch (av_get_packed_sample_fmt(format)) {
        case AV_SAMPLE_FMT_U8: {
          const auto* in = base + first;
          for (FrameCount i = 0; i < count; ++i) out[i] = (static_cast<float>(in[i * stride]) - 128.0f) * (1.0f / 128.0f);
          break;
        }
        case AV_SAMPLE_FMT_S16: {
          const auto* in = reinterpret_cast<const std::int16_t*>(base) + first;
          for (FrameCount i = 0; i < count; ++i) out[i] = static_cast<float>(in[i * stride]) * (1.0f / 32768.0f);
          break;
        }
        case AV_SAMPLE_FMT_S32: {
          const auto* in = reinterpret_cast<const std::int32_t*>(base) + first;
          for (FrameCount i = 0; i < count; ++i) {
            out[i] = static_cast<float>(static_cast<double>(in[i * stride]) * (1.0 / 2147483648.0));
          }
          break;
        }
        case AV_SAMPLE_FMT_S64: {
          const auto* in = reinterpret_cast<const std::int64_t*>(base) + first;
          for (FrameCount i = 0; i < count; ++i) {
            out[i] = static_cast<float>(static_cast<double>(in[i * stride]) * (1.0 / 9223372036854775808.0));
          }
          break;
        }
        case AV_SAMPLE_FMT_FLT: {
          const auto* in = reinterpret_cast<const float*>(base) + first;
          for (FrameCount i = 0; i < count; ++i) out[i] = in[i * stride];
          break;
        }
        case AV_SAMPLE_FMT_DBL: {
          const auto* in = reinterpret_cast<const double*>(base) + first;
          for (FrameCount i = 0; i < count; ++i) out[i] = static_cast<float>(in[i * stride]);
          break;
        }
        default: throw AudioDecodeError("The audio uses a sample format Corvane can't convert.");
      }
    }
  }

  UniqueFd _fd;
  FileSource _source;
  AVIOContext* _io = nullptr;
  AVFormatContext* _format = nullptr;
  AVCodecContext* _codec = nullptr;
  AVFrame* _frame = nullptr;
  AVPacket* _packet = nullptr;
  int _streamIndex = -1;
  FrameCount _frameSamples = 0;
  FrameCount _frameOffset = 0;
  bool _flushed = false;
};

}  // namespace

std::unique_ptr<AudioFileReader> openWithFFmpeg(UniqueFd fd) {
  if (!fd) return nullptr;
  auto reader = std::make_unique<FFmpegReader>(std::move(fd));
  if (!reader->open()) return nullptr;
  return reader;
}

}  // namespace corvane::detail
