// The libFLAC decoder behind AudioFileReader, for native FLAC streams.
//
// libsndfile decodes FLAC through libFLAC too, then converts each block into its own
// interleaved buffer and again into float; here libFLAC's per-channel integers are scaled
// straight into the caller's planar arrays, which decodes at libFLAC's own speed. Samples are
// the same as libsndfile's: integers × 1 / 2^(bits − 1).
#include <FLAC/stream_decoder.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "headless/files/AudioError.h"
#include "headless/files/DecoderBackends.h"

namespace corvane::detail {

namespace {

class FlacReader final : public AudioFileReader {
 public:
  FlacReader(UniqueFd fd, const ContainerProbe* probe)
      : AudioFileReader(Decoder::libflac), _fd(std::move(fd)), _probe(probe ? *probe : ContainerProbe{}) {}

  ~FlacReader() override {
    if (_decoder) FLAC__stream_decoder_delete(_decoder);
  }

  bool open() {
    struct stat info {};
    if (::fstat(_fd.get(), &info) != 0) return false;
    _fileSize = info.st_size;
    _decoder = FLAC__stream_decoder_new();
    if (!_decoder) return false;
    if (FLAC__stream_decoder_init_stream(_decoder, readCallback, seekCallback, tellCallback, lengthCallback, eofCallback,
                                         writeCallback, metadataCallback, errorCallback,
                                         this) != FLAC__STREAM_DECODER_INIT_STATUS_OK) {
      return false;
    }
    if (!FLAC__stream_decoder_process_until_end_of_metadata(_decoder) || !_haveStreamInfo) return false;
    if (_channelCount < 1 || _sampleRate <= 0.0 || _bits < 4 || _bits > 32) return false;
    _scale = 1.0f / static_cast<float>(std::int64_t{1} << (_bits - 1));
    if (static_cast<int>(_probe.positions.size()) == _channelCount) _positions = _probe.positions;
    _pcmEncoding = pcmEncodingFor(_bits <= 8 ? 8 : _bits <= 16 ? 16 : _bits <= 24 ? 24 : 32, false);
    _bitDepth = _bits;
    _pending.resize(static_cast<std::size_t>(_channelCount));
    return true;
  }

  FrameCount read(float* const* channels, FrameCount frames) override {
    _destination = channels;
    _written = 0;
    _wanted = frames;
    // Frames of the last block that didn't fit into the previous call.
    if (_pendingOffset < _pendingFrames) {
      const FrameCount n = std::min(frames, _pendingFrames - _pendingOffset);
      for (int c = 0; c < _channelCount; ++c) {
        const auto& source = _pending[static_cast<std::size_t>(c)];
        std::copy(source.begin() + _pendingOffset, source.begin() + _pendingOffset + n, channels[c]);
      }
      _pendingOffset += n;
      _written = n;
    }
    while (_written < _wanted && !_ended) {
      if (!FLAC__stream_decoder_process_single(_decoder)) {
        // A damaged stream ends here; what was decoded before stands.
        _ended = true;
        break;
      }
      const auto state = FLAC__stream_decoder_get_state(_decoder);
      if (state == FLAC__STREAM_DECODER_END_OF_STREAM || state == FLAC__STREAM_DECODER_ABORTED) _ended = true;
    }
    _destination = nullptr;
    if (_written == 0 && _failed) throw AudioDecodeError("The FLAC data couldn't be decoded.");
    return _written;
  }

 private:
  static FlacReader& self(void* data) { return *static_cast<FlacReader*>(data); }

  static FLAC__StreamDecoderReadStatus readCallback(const FLAC__StreamDecoder*, FLAC__byte buffer[], size_t* bytes,
                                                    void* data) {
    auto& reader = self(data);
    while (true) {
      const ssize_t got = ::pread(reader._fd.get(), buffer, *bytes, static_cast<off_t>(reader._offset));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) {
        *bytes = 0;
        return FLAC__STREAM_DECODER_READ_STATUS_ABORT;
      }
      *bytes = static_cast<size_t>(got);
      reader._offset += got;
      return got == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
    }
  }
  static FLAC__StreamDecoderSeekStatus seekCallback(const FLAC__StreamDecoder*, FLAC__uint64 offset, void* data) {
    self(data)._offset = static_cast<std::int64_t>(offset);
    return FLAC__STREAM_DECODER_SEEK_STATUS_OK;
  }
  static FLAC__StreamDecoderTellStatus tellCallback(const FLAC__StreamDecoder*, FLAC__uint64* offset, void* data) {
    *offset = static_cast<FLAC__uint64>(self(data)._offset);
    return FLAC__STREAM_DECODER_TELL_STATUS_OK;
  }
  static FLAC__StreamDecoderLengthStatus lengthCallback(const FLAC__StreamDecoder*, FLAC__uint64* length, void* data) {
    *length = static_cast<FLAC__uint64>(self(data)._fileSize);
    return FLAC__STREAM_DECODER_LENGTH_STATUS_OK;
  }
  static FLAC__bool eofCallback(const FLAC__StreamDecoder*, void* data) {
    return self(data)._offset >= self(data)._fileSize;
  }

  static void metadataCallback(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* metadata, void* data) {
    if (metadata->type != FLAC__METADATA_TYPE_STREAMINFO) return;
    auto& reader = self(data);
    const auto& info = metadata->data.stream_info;
    reader._haveStreamInfo = true;
    reader._sampleRate = info.sample_rate;
    reader._channelCount = static_cast<int>(info.channels);
    reader._bits = static_cast<int>(info.bits_per_sample);
    // STREAMINFO's total is 0 when the encoder didn't know it (a stream written on the fly).
    reader._length = static_cast<FrameCount>(info.total_samples);
    reader._lengthIsExact = info.total_samples > 0;
  }

  static FLAC__StreamDecoderWriteStatus writeCallback(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                                      const FLAC__int32* const buffer[], void* data) {
    auto& reader = self(data);
    const auto blockSize = static_cast<FrameCount>(frame->header.blocksize);
    if (static_cast<int>(frame->header.channels) != reader._channelCount || !reader._destination) {
      reader._failed = true;
      return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
    }
    const FrameCount direct = std::min(blockSize, reader._wanted - reader._written);
    const float scale = reader._scale;
    for (int c = 0; c < reader._channelCount; ++c) {
      const FLAC__int32* in = buffer[c];
      float* out = reader._destination[c] + reader._written;
      for (FrameCount i = 0; i < direct; ++i) out[i] = static_cast<float>(in[i]) * scale;
      auto& pending = reader._pending[static_cast<std::size_t>(c)];
      pending.resize(static_cast<std::size_t>(blockSize - direct));
      for (FrameCount i = direct; i < blockSize; ++i) pending[static_cast<std::size_t>(i - direct)] = static_cast<float>(in[i]) * scale;
    }
    reader._written += direct;
    reader._pendingFrames = blockSize - direct;
    reader._pendingOffset = 0;
    return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
  }

  static void errorCallback(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void* data) {
    // libFLAC resynchronises after a damaged frame by itself; a damaged frame costs its own
    // samples only.
    (void)data;
  }

  UniqueFd _fd;
  ContainerProbe _probe;
  FLAC__StreamDecoder* _decoder = nullptr;
  std::int64_t _offset = 0;
  std::int64_t _fileSize = 0;
  bool _haveStreamInfo = false;
  int _bits = 0;
  float _scale = 1.0f;
  float* const* _destination = nullptr;
  FrameCount _wanted = 0;
  FrameCount _written = 0;
  std::vector<std::vector<float>> _pending;
  FrameCount _pendingFrames = 0;
  FrameCount _pendingOffset = 0;
  bool _ended = false;
  bool _failed = false;
};

}  // namespace

std::unique_ptr<AudioFileReader> openWithLibFlac(UniqueFd fd, const ContainerProbe* probe) {
  if (!fd) return nullptr;
  auto reader = std::make_unique<FlacReader>(std::move(fd), probe);
  if (!reader->open()) return nullptr;
  return reader;
}

}  // namespace corvane::detail
