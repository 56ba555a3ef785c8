#include "headless/files/AudioFileWriter.h"

#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "core/ChannelOrder.h"
#include "headless/files/DecoderBackends.h"
#include "headless/files/FileDescriptor.h"
#include "headless/files/UserText.h"

namespace corvane {

namespace {

// Frames converted per step: the interleaved scratch stays in cache.
constexpr FrameCount kChunkFrames = 4096;
// AIFF and a plain RIFF WAV count bytes in 32 bits.
constexpr std::int64_t kMax32BitDataBytes = 0xFFFFFFFFll - (1 << 20);

AudioWriteError aiffTooLarge(const std::filesystem::path& url) {
  return AudioWriteError(detail::displayFileName(url) +
                         " would hold more than 4 GB of audio, which AIFF can't. Save it as RF64, Wave64 or CAF.");
}

// ---- libsndfile-backed containers -------------------------------------------------------------

int sndfileChannel(ChannelPosition position) {
  switch (position) {
    // libsndfile's WAV channel masks know the front speakers only by these names.
    case ChannelPosition::FrontLeft: return SF_CHANNEL_MAP_LEFT;
    case ChannelPosition::FrontRight: return SF_CHANNEL_MAP_RIGHT;
    case ChannelPosition::FrontCenter:
    case ChannelPosition::Mono: return SF_CHANNEL_MAP_CENTER;
    case ChannelPosition::LowFrequency: return SF_CHANNEL_MAP_LFE;
    case ChannelPosition::BackLeft: return SF_CHANNEL_MAP_REAR_LEFT;
    case ChannelPosition::BackRight: return SF_CHANNEL_MAP_REAR_RIGHT;
    case ChannelPosition::FrontLeftOfCenter: return SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER;
    case ChannelPosition::FrontRightOfCenter: return SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER;
    case ChannelPosition::BackCenter: return SF_CHANNEL_MAP_REAR_CENTER;
    case ChannelPosition::SideLeft: return SF_CHANNEL_MAP_SIDE_LEFT;
    case ChannelPosition::SideRight: return SF_CHANNEL_MAP_SIDE_RIGHT;
    case ChannelPosition::TopCenter: return SF_CHANNEL_MAP_TOP_CENTER;
    case ChannelPosition::TopFrontLeft: return SF_CHANNEL_MAP_TOP_FRONT_LEFT;
    case ChannelPosition::TopFrontCenter: return SF_CHANNEL_MAP_TOP_FRONT_CENTER;
    case ChannelPosition::TopFrontRight: return SF_CHANNEL_MAP_TOP_FRONT_RIGHT;
    case ChannelPosition::TopBackLeft: return SF_CHANNEL_MAP_TOP_REAR_LEFT;
    case ChannelPosition::TopBackCenter: return SF_CHANNEL_MAP_TOP_REAR_CENTER;
    case ChannelPosition::TopBackRight: return SF_CHANNEL_MAP_TOP_REAR_RIGHT;
    case ChannelPosition::Unknown: return SF_CHANNEL_MAP_INVALID;
  }
  return SF_CHANNEL_MAP_INVALID;
}

int sndfileSubtype(const PCMWriteSettings& settings) {
  switch (settings.encoding) {
    case PCMEncoding::int8:
      // WAV-family 8-bit samples are unsigned by definition, AIFF's signed.
      return settings.container == AudioContainer::aiff || settings.container == AudioContainer::aiffc
                 ? SF_FORMAT_PCM_S8
                 : SF_FORMAT_PCM_U8;
    case PCMEncoding::int16: return SF_FORMAT_PCM_16;
    case PCMEncoding::int24: return SF_FORMAT_PCM_24;
    case PCMEncoding::int32: return SF_FORMAT_PCM_32;
    case PCMEncoding::float32: return SF_FORMAT_FLOAT;
    case PCMEncoding::float64: return SF_FORMAT_DOUBLE;
  }
  return SF_FORMAT_FLOAT;
}

class SndfileWriter final : public AudioFileWriter {
 public:
  SndfileWriter(const PCMWriteSettings& settings, std::filesystem::path url, detail::UniqueFd owned, int fd)
      : AudioFileWriter(settings, std::move(url)), _owned(std::move(owned)) {
    // -1 when the caller doesn't know how much it will write.
    const std::int64_t dataBytes =
        settings.expectedFrames ? *settings.expectedFrames * settings.bytesPerSample() * settings.format.channelCount : -1;
    const bool aiff = settings.container == AudioContainer::aiff || settings.container == AudioContainer::aiffc;
    if (aiff && dataBytes > kMax32BitDataBytes) {
      throw aiffTooLarge(_url);
    }
    const auto& positions = settings.format.channelPositions;
    const bool maskable = !positions.empty() && ChannelOrder::wavPreservesChannelOrder(positions) &&
                          std::none_of(positions.begin(), positions.end(),
                                       [](ChannelPosition p) { return p == ChannelPosition::Unknown; });
    const bool extensible = settings.format.channelCount > 2 || maskable;
    int major = SF_FORMAT_WAV;
    _autoDowngrade = false;
    switch (settings.container) {
      case AudioContainer::wav:
        if (dataBytes >= 0 && dataBytes <= kMax32BitDataBytes) {
          major = extensible ? SF_FORMAT_WAVEX : SF_FORMAT_WAV;
        } else {
          // Begun as RF64 (room for 64-bit sizes) and turned back into a WAV at the end if it
          // stayed below 4 GiB.
          major = SF_FORMAT_RF64;
          _autoDowngrade = dataBytes < 0;
        }
        break;
      case AudioContainer::rf64: major = SF_FORMAT_RF64; break;
      case AudioContainer::wave64: major = SF_FORMAT_W64; break;
      case AudioContainer::aiff:
      case AudioContainer::aiffc: major = SF_FORMAT_AIFF; break;
      default: throw AudioWriteError("Corvane can't write this container.");
    }
    _aiffLimit = aiff;
    SF_INFO info{};
    info.samplerate = static_cast<int>(settings.format.sampleRate);
    info.channels = settings.format.channelCount;
    // Integer AIFF is plain AIFF (AIFF-C integers have their own writer); float AIFF and
    // AIFF-C are libsndfile's AIFF-C 'fl32'/'fl64'.
    info.format = major | sndfileSubtype(settings);
    if (!sf_format_check(&info)) {
      throw AudioWriteError("Corvane can't write " + std::string(label(settings.encoding)) + " samples into a " +
                            std::string(corvane::displayName(settings.container)) + " file.");
    }
    int error = 0;
    std::string reason;
    {
      const std::lock_guard lock(detail::sndfileOpenMutex());
      errno = 0;
      _file = sf_open_fd(fd, SFM_WRITE, &info, SF_FALSE);
      error = errno;
      if (!_file) reason = sf_strerror(nullptr);
    }
    if (!_file) {
      if (error != 0) failWrite(error);
      throw AudioWriteError("Couldn't start writing " + detail::displayFileName(_url) + ": " + reason + ".");
    }
    if (_autoDowngrade) sf_command(_file, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    const bool storesMask = major == SF_FORMAT_WAVEX || major == SF_FORMAT_RF64;
    if (storesMask && maskable) {
      std::vector<int> map;
      for (auto position : positions) map.push_back(sndfileChannel(position));
      if (sf_command(_file, SFC_SET_CHANNEL_MAP_INFO, map.data(), static_cast<int>(map.size() * sizeof(int))) != SF_TRUE) {
        std::printf("[Files] %s: libsndfile refused the channel layout; the file is written without it\n",
                    detail::displayFileName(_url).c_str());
      }
    }
  }

  ~SndfileWriter() override {
    if (_file) sf_close(_file);
  }

  void updateHeader() override {
    if (_file && !_finished) sf_command(_file, SFC_UPDATE_HEADER_NOW, nullptr, 0);
  }

  void finish() override {
    if (_finished) return;
    _finished = true;
    errno = 0;
    const int result = sf_close(_file);
    _file = nullptr;
    if (result != 0) {
      const int error = errno;
      if (error != 0) failWrite(error);
      throw AudioWriteError("Couldn't complete " + detail::displayFileName(_url) + ": " + sf_error_number(result) + ".");
    }
  }

 protected:
  void appendInt32(const std::int32_t* interleaved, FrameCount frames) override {
    guardAiffSize(frames);
    errno = 0;
    check(sf_writef_int(_file, interleaved, frames), frames);
  }
  void appendFloat(const float* interleaved, FrameCount frames) override {
    guardAiffSize(frames);
    errno = 0;
    check(sf_writef_float(_file, interleaved, frames), frames);
  }
  void appendDouble(const double* interleaved, FrameCount frames) override {
    guardAiffSize(frames);
    errno = 0;
    check(sf_writef_double(_file, interleaved, frames), frames);
  }

 private:
  void guardAiffSize(FrameCount frames) const {
    if (!_aiffLimit) return;
    const std::int64_t bytes = (_framesWritten + frames) * _settings.bytesPerSample() * _settings.format.channelCount;
    if (bytes > kMax32BitDataBytes) {
      throw aiffTooLarge(_url);
    }
  }

  void check(sf_count_t written, FrameCount wanted) const {
    if (written == wanted) return;
    const int error = errno;
    if (error != 0) failWrite(error);
    throw AudioWriteError("Couldn't write " + detail::displayFileName(_url) + ": " + sf_strerror(_file) + ".");
  }

  detail::UniqueFd _owned;
  SNDFILE* _file = nullptr;
  bool _autoDowngrade = false;
  bool _aiffLimit = false;
};

// ---- CAF, written here ------------------------------------------------------------------------

void putBE16(std::vector<unsigned char>& out, std::uint16_t v) {
  out.push_back(static_cast<unsigned char>(v >> 8));
  out.push_back(static_cast<unsigned char>(v));
}
void putBE32(std::vector<unsigned char>& out, std::uint32_t v) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<unsigned char>(v >> shift));
}
void putBE64(std::vector<unsigned char>& out, std::uint64_t v) {
  putBE32(out, static_cast<std::uint32_t>(v >> 32));
  putBE32(out, static_cast<std::uint32_t>(v));
}
void putTag(std::vector<unsigned char>& out, const char* tag) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(tag[i]));
}

// Core Audio channel labels (kAudioChannelLabel_*) for WAV-style positions: the rear pair is
// "Left/Right Surround", the side pair "Left/Right Surround Direct", as in WAV's mask.
std::uint32_t coreAudioLabel(ChannelPosition position) {
  switch (position) {
    case ChannelPosition::FrontLeft: return 1;
    case ChannelPosition::FrontRight: return 2;
    case ChannelPosition::FrontCenter: return 3;
    case ChannelPosition::LowFrequency: return 4;
    case ChannelPosition::BackLeft: return 5;
    case ChannelPosition::BackRight: return 6;
    case ChannelPosition::FrontLeftOfCenter: return 7;
    case ChannelPosition::FrontRightOfCenter: return 8;
    case ChannelPosition::BackCenter: return 9;
    case ChannelPosition::SideLeft: return 10;
    case ChannelPosition::SideRight: return 11;
    case ChannelPosition::TopCenter: return 12;
    case ChannelPosition::TopFrontLeft: return 13;
    case ChannelPosition::TopFrontCenter: return 14;
    case ChannelPosition::TopFrontRight: return 15;
    case ChannelPosition::TopBackLeft: return 16;
    case ChannelPosition::TopBackCenter: return 17;
    case ChannelPosition::TopBackRight: return 18;
    case ChannelPosition::Mono: return 42;
    case ChannelPosition::Unknown: return 0xFFFFFFFFu;  // kAudioChannelLabel_Unknown
  }
  return 0xFFFFFFFFu;
}

// The 'chan' chunk body. Layouts that every reader knows by tag get their tag (libsndfile
// reads CAF layouts only as tags); other ordered layouts a channel bitmap (WAV's mask bits),
// any other order one description per channel.
std::vector<unsigned char> cafChannelLayout(const std::vector<ChannelPosition>& positions) {
  using P = ChannelPosition;
  std::vector<unsigned char> body;
  auto tagged = [&](std::uint32_t tag) {
    putBE32(body, tag);
    putBE32(body, 0);
    putBE32(body, 0);
    return body;
  };
  const std::vector<std::pair<std::uint32_t, std::vector<P>>> kTags{
      {(100u << 16) | 1, {P::Mono}},
      {(100u << 16) | 1, {P::FrontCenter}},
      {(101u << 16) | 2, {P::FrontLeft, P::FrontRight}},
      {(113u << 16) | 3, {P::FrontLeft, P::FrontRight, P::FrontCenter}},
      {(108u << 16) | 4, {P::FrontLeft, P::FrontRight, P::BackLeft, P::BackRight}},
      {(117u << 16) | 5, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::BackLeft, P::BackRight}},
      {(121u << 16) | 6, {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight}},
  };
  for (const auto& [tag, layout] : kTags) {
    if (layout == positions) return tagged(tag);
  }
  const bool allKnown = std::none_of(positions.begin(), positions.end(), [](P p) { return p == P::Unknown || p == P::Mono; });
  if (allKnown && ChannelOrder::wavPreservesChannelOrder(positions)) {
    static const P kBits[18] = {P::FrontLeft, P::FrontRight, P::FrontCenter, P::LowFrequency, P::BackLeft, P::BackRight,
                                P::FrontLeftOfCenter, P::FrontRightOfCenter, P::BackCenter, P::SideLeft, P::SideRight,
                                P::TopCenter, P::TopFrontLeft, P::TopFrontCenter, P::TopFrontRight, P::TopBackLeft,
                                P::TopBackCenter, P::TopBackRight};
    std::uint32_t bitmap = 0;
    for (auto position : positions) {
      for (std::uint32_t bit = 0; bit < 18; ++bit) {
        if (kBits[bit] == position) bitmap |= 1u << bit;
      }
    }
    putBE32(body, 0x10000);  // kAudioChannelLayoutTag_UseChannelBitmap
    putBE32(body, bitmap);
    putBE32(body, 0);
    return body;
  }
  putBE32(body, 0);  // kAudioChannelLayoutTag_UseChannelDescriptions
  putBE32(body, 0);
  putBE32(body, static_cast<std::uint32_t>(positions.size()));
  for (auto position : positions) {
    putBE32(body, coreAudioLabel(position));
    putBE32(body, 0);  // flags
    for (int i = 0; i < 3; ++i) putBE32(body, 0);  // coordinates
  }
  return body;
}

// Containers whose headers Corvane writes itself: the samples go out as bytes in the
// container's byte order.
class ByteStreamWriter : public AudioFileWriter {
 protected:
  ByteStreamWriter(const PCMWriteSettings& settings, std::filesystem::path url, detail::UniqueFd owned, int fd,
                   bool bigEndianSamples)
      : AudioFileWriter(settings, std::move(url)), _owned(std::move(owned)), _fd(fd), _bigEndian(bigEndianSamples) {}

  void appendInt32(const std::int32_t* interleaved, FrameCount frames) override {
    const std::size_t samples = sampleCount(frames);
    const int bytes = _settings.bytesPerSample();
    _bytes.resize(samples * static_cast<std::size_t>(bytes));
    unsigned char* out = _bytes.data();
    for (std::size_t i = 0; i < samples; ++i) {
      // Left-aligned int32: the stored sample is its top `bytes` bytes.
      const auto value = static_cast<std::uint32_t>(interleaved[i]);
      for (int b = 0; b < bytes; ++b) {
        const int byte = _bigEndian ? bytes - 1 - b : b;
        *out++ = static_cast<unsigned char>(value >> (8 * (4 - bytes + byte)));
      }
    }
    writeAll(_bytes.data(), _bytes.size());
  }
  void appendFloat(const float* interleaved, FrameCount frames) override {
    const std::size_t samples = sampleCount(frames);
    _bytes.resize(samples * 4);
    for (std::size_t i = 0; i < samples; ++i) {
      std::uint32_t bits;
      std::memcpy(&bits, &interleaved[i], 4);
      storeBytes(&_bytes[4 * i], bits, 4);
    }
    writeAll(_bytes.data(), _bytes.size());
  }
  void appendDouble(const double* interleaved, FrameCount frames) override {
    const std::size_t samples = sampleCount(frames);
    _bytes.resize(samples * 8);
    for (std::size_t i = 0; i < samples; ++i) {
      std::uint64_t bits;
      std::memcpy(&bits, &interleaved[i], 8);
      storeBytes(&_bytes[8 * i], bits, 8);
    }
    writeAll(_bytes.data(), _bytes.size());
  }

  void writeAll(const unsigned char* data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
      const ssize_t n = ::write(_fd, data + done, size - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) failWrite(n < 0 ? errno : EIO);
      done += static_cast<std::size_t>(n);
    }
  }

  void writeAt(std::int64_t offset, const std::vector<unsigned char>& data) {
    std::size_t done = 0;
    while (done < data.size()) {
      const ssize_t n = ::pwrite(_fd, data.data() + done, data.size() - done, static_cast<off_t>(offset) + static_cast<off_t>(done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) failWrite(n < 0 ? errno : EIO);
      done += static_cast<std::size_t>(n);
    }
  }

  std::int64_t dataBytes() const {
    return _framesWritten * _settings.bytesPerSample() * _settings.format.channelCount;
  }

 private:
  std::size_t sampleCount(FrameCount frames) const {
    return static_cast<std::size_t>(frames) * static_cast<std::size_t>(_settings.format.channelCount);
  }
  void storeBytes(unsigned char* out, std::uint64_t bits, int width) const {
    for (int b = 0; b < width; ++b) {
      out[_bigEndian ? width - 1 - b : b] = static_cast<unsigned char>(bits >> (8 * b));
    }
  }

  detail::UniqueFd _owned;
  int _fd;
  bool _bigEndian;
  std::vector<unsigned char> _bytes;
};

// CAF, little-endian, with its channel layout. The data chunk is declared as running to the
// end of the file until finish() records its size.
class CafWriter final : public ByteStreamWriter {
 public:
  CafWriter(const PCMWriteSettings& settings, std::filesystem::path url, detail::UniqueFd owned, int fd)
      : ByteStreamWriter(settings, std::move(url), std::move(owned), fd, false) {
    std::vector<unsigned char> header;
    putTag(header, "caff");
    putBE16(header, 1);
    putBE16(header, 0);
    putTag(header, "desc");
    putBE64(header, 32);
    std::uint64_t rateBits;
    const double rate = settings.format.sampleRate;
    std::memcpy(&rateBits, &rate, sizeof rate);
    putBE64(header, rateBits);
    putTag(header, "lpcm");
    putBE32(header, (isFloat(settings.encoding) ? 1u : 0u) | 2u);  // float flag, little-endian flag
    putBE32(header, static_cast<std::uint32_t>(settings.bytesPerSample() * settings.format.channelCount));
    putBE32(header, 1);
    putBE32(header, static_cast<std::uint32_t>(settings.format.channelCount));
    putBE32(header, static_cast<std::uint32_t>(bitDepth(settings.encoding)));
    if (!settings.format.channelPositions.empty()) {
      const auto layout = cafChannelLayout(settings.format.channelPositions);
      putTag(header, "chan");
      putBE64(header, layout.size());
      header.insert(header.end(), layout.begin(), layout.end());
    }
    putTag(header, "data");
    _dataSizeOffset = static_cast<std::int64_t>(header.size());
    putBE64(header, 0xFFFFFFFFFFFFFFFFull);  // -1: the data runs to the end of the file
    putBE32(header, 0);                      // edit count
    writeAll(header.data(), header.size());
  }

  void updateHeader() override {}

  void finish() override {
    if (_finished) return;
    _finished = true;
    std::vector<unsigned char> size;
    putBE64(size, static_cast<std::uint64_t>(4 + dataBytes()));
    writeAt(_dataSizeOffset, size);
  }

 private:
  std::int64_t _dataSizeOffset = 0;
};

// The 80-bit IEEE extended number of a whole positive rate, as AIFF stores it.
void putExtended80(std::vector<unsigned char>& out, double rate) {
  auto value = static_cast<std::uint64_t>(rate);
  int exponent = 63;
  while (value && !(value & (1ull << 63))) {
    value <<= 1;
    --exponent;
  }
  putBE16(out, static_cast<std::uint16_t>(value ? 16383 + exponent : 0));
  putBE64(out, value);
}

// AIFF-C holding big-endian integers, compression type 'NONE': the one AIFF-C integer form
// every reader takes (libsndfile itself writes AIFF-C integers as 'twos'/'in24'/'in32', and
// sox reads no 'in24').
class AifcWriter final : public ByteStreamWriter {
 public:
  AifcWriter(const PCMWriteSettings& settings, std::filesystem::path url, detail::UniqueFd owned, int fd)
      : ByteStreamWriter(settings, std::move(url), std::move(owned), fd, true) {
    if (settings.expectedFrames && *settings.expectedFrames * settings.bytesPerSample() * settings.format.channelCount >
                                       kMax32BitDataBytes) {
      throw aiffTooLarge(_url);
    }
    writeAll(header(0).data(), header(0).size());
  }

  void updateHeader() override {
    if (!_finished) writeAt(0, header(_framesWritten));
  }

  void finish() override {
    if (_finished) return;
    _finished = true;
    if (dataBytes() & 1) {
      const unsigned char pad = 0;
      writeAll(&pad, 1);
    }
    writeAt(0, header(_framesWritten));
  }

 protected:
  void appendInt32(const std::int32_t* interleaved, FrameCount frames) override {
    if ((_framesWritten + frames) * _settings.bytesPerSample() * _settings.format.channelCount > kMax32BitDataBytes) {
      throw aiffTooLarge(_url);
    }
    ByteStreamWriter::appendInt32(interleaved, frames);
  }

 private:
  std::vector<unsigned char> header(FrameCount frames) const {
    const std::int64_t bytes = frames * _settings.bytesPerSample() * _settings.format.channelCount;
    static const char kName[] = "\x0Enot compressed";  // Pascal string, padded to even below
    std::vector<unsigned char> out;
    putTag(out, "FORM");
    putBE32(out, static_cast<std::uint32_t>(4 + 12 + (8 + 38) + (8 + 8 + bytes) + (bytes & 1)));
    putTag(out, "AIFC");
    putTag(out, "FVER");
    putBE32(out, 4);
    putBE32(out, 0xA2805140u);  // AIFF-C version 1
    putTag(out, "COMM");
    putBE32(out, 38);
    putBE16(out, static_cast<std::uint16_t>(_settings.format.channelCount));
    putBE32(out, static_cast<std::uint32_t>(frames));
    putBE16(out, static_cast<std::uint16_t>(bitDepth(_settings.encoding)));
    putExtended80(out, _settings.format.sampleRate);
    putTag(out, "NONE");
    for (int i = 0; i < 15; ++i) out.push_back(static_cast<unsigned char>(kName[i]));
    out.push_back(0);
    putTag(out, "SSND");
    putBE32(out, static_cast<std::uint32_t>(8 + bytes));
    putBE32(out, 0);  // offset
    putBE32(out, 0);  // block size
    return out;
  }
};

std::unique_ptr<AudioFileWriter> makeWriter(const PCMWriteSettings& settings, const std::filesystem::path& url,
                                            detail::UniqueFd owned, int fd) {
  if (settings.container == AudioContainer::caf) return std::make_unique<CafWriter>(settings, url, std::move(owned), fd);
  if (settings.container == AudioContainer::aiffc && !isFloat(settings.encoding)) {
    return std::make_unique<AifcWriter>(settings, url, std::move(owned), fd);
  }
  return std::make_unique<SndfileWriter>(settings, url, std::move(owned), fd);
}

}  // namespace

std::int32_t floatToInteger(float x, int bits) {
  if (bits >= 32) {
    const double v = static_cast<double>(x) * 2147483648.0;
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
    if (v <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(std::nearbyint(v));
  }
  // Below 32 bits every step is exact in float: scaling by a power of two, and the limits.
  const float scale = std::ldexp(1.0f, bits - 1);
  const float v = x * scale;
  if (!(v == v)) return 0;
  const float high = scale - 1.0f;
  const float low = -scale;
  if (v >= high) return static_cast<std::int32_t>(high);
  if (v <= low) return static_cast<std::int32_t>(low);
  return static_cast<std::int32_t>(std::nearbyint(v));
}

void AudioFileWriter::failWrite(int error) const {
  if (error == ENOSPC || error == EDQUOT) {
    throw AudioWriteError("There isn't enough space on the disk to write " + detail::displayFileName(_url) + ".");
  }
  if (error == EFBIG) {
    throw AudioWriteError(detail::displayFileName(_url) + " would be larger than this disk or this system allows.");
  }
  throw AudioWriteError("Couldn't write " + detail::displayFileName(_url) + ": " + std::strerror(error) + ".");
}

std::unique_ptr<AudioFileWriter> AudioFileWriter::create(const std::filesystem::path& url, const PCMWriteSettings& settings) {
  detail::UniqueFd fd(::open(url.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!fd) {
    const int error = errno;
    throw AudioWriteError("Couldn't create " + detail::displayFileName(url) + ": " + std::strerror(error) + ".");
  }
  const int raw = fd.get();
  return makeWriter(settings, url, std::move(fd), raw);
}

std::unique_ptr<AudioFileWriter> AudioFileWriter::create(int fd, const PCMWriteSettings& settings,
                                                         const std::filesystem::path& url) {
  return makeWriter(settings, url, detail::UniqueFd(), fd);
}

void AudioFileWriter::write(const float* const* channels, FrameCount frames) {
  if (_finished) throw AudioWriteError("Couldn't write " + detail::displayFileName(_url) + ": the file is already complete.");
  const int count = _settings.format.channelCount;
  const int bits = bitDepth(_settings.encoding);
  std::vector<std::int32_t> integers;
  std::vector<float> floats;
  std::vector<double> doubles;
  for (FrameCount done = 0; done < frames;) {
    const FrameCount n = std::min(kChunkFrames, frames - done);
    const auto samples = static_cast<std::size_t>(n) * static_cast<std::size_t>(count);
    switch (_settings.encoding) {
      case PCMEncoding::float32:
        floats.resize(samples);
        for (int c = 0; c < count; ++c) {
          const float* in = channels[c] + done;
          for (FrameCount i = 0; i < n; ++i) floats[static_cast<std::size_t>(i * count + c)] = in[i];
        }
        appendFloat(floats.data(), n);
        break;
      case PCMEncoding::float64:
        doubles.resize(samples);
        for (int c = 0; c < count; ++c) {
          const float* in = channels[c] + done;
          for (FrameCount i = 0; i < n; ++i) doubles[static_cast<std::size_t>(i * count + c)] = in[i];
        }
        appendDouble(doubles.data(), n);
        break;
      default: {
        integers.resize(samples);
        const int shift = 32 - bits;
        for (int c = 0; c < count; ++c) {
          const float* in = channels[c] + done;
          for (FrameCount i = 0; i < n; ++i) {
            // Left-aligned in 32 bits: libsndfile keeps the top `bits` of an int exactly.
            const auto value = static_cast<std::uint32_t>(floatToInteger(in[i], bits)) << shift;
            integers[static_cast<std::size_t>(i * count + c)] = static_cast<std::int32_t>(value);
          }
        }
        appendInt32(integers.data(), n);
        break;
      }
    }
    done += n;
    _framesWritten += n;
  }
}

void AudioFileWriter::write(const AudioBuffer& buffer) {
  if (buffer.channelCount() != _settings.format.channelCount) {
    throw AudioWriteError("Couldn't write " + detail::displayFileName(_url) + ": the audio has " +
                          std::to_string(buffer.channelCount()) + " channels, the file " +
                          std::to_string(_settings.format.channelCount) + ".");
  }
  write(buffer.channels(), buffer.frameLength());
}

}  // namespace corvane
