#include "headless/files/RawPCMReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "headless/files/AudioError.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/UserText.h"

namespace corvane {

namespace {

using Encoding = RawPCMFormat::Encoding;

class FileHandle {
 public:
  explicit FileHandle(const std::filesystem::path& path) : _fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~FileHandle() {
    if (_fd >= 0) ::close(_fd);
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  int fd() const { return _fd; }

 private:
  int _fd;
};

void readExactly(int fd, std::int64_t offset, unsigned char* destination, std::size_t n, const std::filesystem::path& url) {
  std::size_t done = 0;
  while (done < n) {
    const ssize_t got = ::pread(fd, destination + done, n - done, static_cast<off_t>(offset + static_cast<std::int64_t>(done)));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw RawPCMReadError(detail::displayFileName(url) + " couldn't be read: " + std::strerror(errno) + ".");
    if (got == 0) throw RawPCMReadError(detail::displayFileName(url) + " ended before the declared audio did.");
    done += static_cast<std::size_t>(got);
  }
}

template <int Bytes>
std::uint32_t gather(const unsigned char* p, bool bigEndian) {
  std::uint32_t value = 0;
  if (bigEndian) {
    for (int i = 0; i < Bytes; ++i) value = (value << 8) | p[i];
  } else {
    for (int i = Bytes - 1; i >= 0; --i) value = (value << 8) | p[i];
  }
  return value;
}

// Decodes `count` samples that lie `stride` bytes apart.
void decode(const unsigned char* source, std::size_t stride, float* out, std::size_t count, Encoding encoding,
            bool bigEndian) {
  switch (encoding) {
    case Encoding::u8:
      for (std::size_t i = 0; i < count; ++i) out[i] = (static_cast<float>(source[i * stride]) - 128.0f) * (1.0f / 128.0f);
      break;
    case Encoding::s16:
      for (std::size_t i = 0; i < count; ++i) {
        out[i] = static_cast<float>(static_cast<std::int16_t>(gather<2>(source + i * stride, bigEndian))) * (1.0f / 32768.0f);
      }
      break;
    case Encoding::s24:
      for (std::size_t i = 0; i < count; ++i) {
        const auto value = static_cast<std::int32_t>(gather<3>(source + i * stride, bigEndian) << 8) >> 8;
        out[i] = static_cast<float>(value) * (1.0f / 8388608.0f);
      }
      break;
    case Encoding::s24in32:
      for (std::size_t i = 0; i < count; ++i) {
        // The low three bytes of the four: the first three little-endian, the last three big-endian.
        const unsigned char* p = source + i * stride + (bigEndian ? 1 : 0);
        const auto value = static_cast<std::int32_t>(gather<3>(p, bigEndian) << 8) >> 8;
        out[i] = static_cast<float>(value) * (1.0f / 8388608.0f);
      }
      break;
    case Encoding::s32:
      for (std::size_t i = 0; i < count; ++i) {
        const auto value = static_cast<std::int32_t>(gather<4>(source + i * stride, bigEndian));
        out[i] = static_cast<float>(static_cast<double>(value) * (1.0 / 2147483648.0));
      }
      break;
    case Encoding::f32:
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t bits = gather<4>(source + i * stride, bigEndian);
        float value;
        std::memcpy(&value, &bits, sizeof value);
        out[i] = value;
      }
      break;
    case Encoding::f64:
      for (std::size_t i = 0; i < count; ++i) {
        const unsigned char* p = source + i * stride;
        const std::uint64_t high = gather<4>(bigEndian ? p : p + 4, bigEndian);
        const std::uint64_t low = gather<4>(bigEndian ? p + 4 : p, bigEndian);
        const std::uint64_t bits = (high << 32) | low;
        double value;
        std::memcpy(&value, &bits, sizeof value);
        out[i] = static_cast<float>(value);
      }
      break;
  }
}

}  // namespace

SharedAudioBuffer RawPCMReader::read(const std::filesystem::path& url, const RawPCMFormat& format,
                                     std::optional<FrameCount> maxFrames) {
  if (!format.isValid()) {
    throw RawPCMReadError(
        "The declared format is incomplete: the sample rate must be a positive number, the channel count "
        "1 to 64, and the byte counts not negative.");
  }
  FileHandle file(url);
  if (file.fd() < 0) throw RawPCMReadError(detail::displayFileName(url) + " couldn't be opened: " + std::strerror(errno) + ".");
  struct stat info {};
  if (::fstat(file.fd(), &info) != 0 || !S_ISREG(info.st_mode)) {
    throw RawPCMReadError(detail::displayFileName(url) + " is not a regular file.");
  }
  const auto fileSize = static_cast<std::int64_t>(info.st_size);
  const auto frames = format.frameCount(fileSize);
  if (!frames) {
    if (format.headerSkip > fileSize) {
      throw RawPCMReadError("The header skip of " + std::to_string(format.headerSkip) + " bytes passes the end of the " +
                            std::to_string(fileSize) + "-byte file.");
    }
    throw RawPCMReadError(format.planar
                              ? "The payload doesn't divide into " + std::to_string(format.channelCount) +
                                    " equal channel sections of whole samples."
                              : "The payload doesn't divide into whole " + std::to_string(format.channelCount) +
                                    "-channel frames — check channels, format, and header skip.");
  }
  const FrameCount wanted = maxFrames ? std::clamp<FrameCount>(*maxFrames, 0, *frames) : *frames;
  if (!AudioLoadLimits::isWithinLimits(wanted, format.channelCount)) throw AudioError(AudioError::Kind::fileTooLarge);

  SharedAudioBuffer buffer;
  try {
    buffer = AudioBuffer::create(format.channelCount, wanted, format.sampleRate);
  } catch (const std::bad_alloc&) {
    throw AudioError(AudioError::Kind::bufferCreationFailed);
  }

  const int bytesPerSample = format.bytesPerSample();
  const bool bigEndian = format.endianness == RawPCMFormat::Endianness::big;
  const int channels = format.channelCount;
  constexpr std::size_t kChunkBytes = 1 << 20;
  std::vector<unsigned char> chunk;
  if (!format.planar) {
    const std::size_t frameBytes = static_cast<std::size_t>(bytesPerSample) * static_cast<std::size_t>(channels);
    const FrameCount framesPerChunk = std::max<FrameCount>(1, static_cast<FrameCount>(kChunkBytes / frameBytes));
    chunk.resize(static_cast<std::size_t>(framesPerChunk) * frameBytes);
    for (FrameCount done = 0; done < wanted;) {
      const FrameCount n = std::min(framesPerChunk, wanted - done);
      readExactly(file.fd(), format.headerSkip + done * static_cast<std::int64_t>(frameBytes), chunk.data(),
                  static_cast<std::size_t>(n) * frameBytes, url);
      for (int c = 0; c < channels; ++c) {
        decode(chunk.data() + static_cast<std::size_t>(c) * static_cast<std::size_t>(bytesPerSample), frameBytes,
               buffer->channel(c) + done, static_cast<std::size_t>(n), format.encoding, bigEndian);
      }
      done += n;
    }
  } else {
    const FrameCount samplesPerChunk = static_cast<FrameCount>(kChunkBytes / static_cast<std::size_t>(bytesPerSample));
    chunk.resize(static_cast<std::size_t>(samplesPerChunk) * static_cast<std::size_t>(bytesPerSample));
    for (int c = 0; c < channels; ++c) {
      const std::int64_t section = format.headerSkip + static_cast<std::int64_t>(c) * *frames * bytesPerSample;
      for (FrameCount done = 0; done < wanted;) {
        const FrameCount n = std::min(samplesPerChunk, wanted - done);
        readExactly(file.fd(), section + done * bytesPerSample, chunk.data(),
                    static_cast<std::size_t>(n) * static_cast<std::size_t>(bytesPerSample), url);
        decode(chunk.data(), static_cast<std::size_t>(bytesPerSample), buffer->channel(c) + done,
               static_cast<std::size_t>(n), format.encoding, bigEndian);
        done += n;
      }
    }
  }
  return buffer;
}

}  // namespace corvane
