// libFuzzer over everything that reads untrusted bytes in the file layer: the container probe
// behind AudioFileIdentity, the whole load (libsndfile, then FFmpeg, the continued read,
// canonical ordering, peaks and clip scan), and the raw-PCM reader under a declaration taken
// from the input's first bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include "headless/files/AudioFileIdentity.h"
#include "headless/files/AudioFileModel.h"
#include "headless/files/AudioLoadLimits.h"
#include "headless/files/RawPCMReader.h"

namespace {

// Bogus headers may claim billions of frames; the limits must refuse them before any
// allocation, and a budget of 128 MB keeps the fuzzer's memory bounded when they don't.
struct Setup {
  Setup() {
    corvane::AudioLoadLimits::setFiguresForTesting(corvane::MemoryFigures{128 << 20, 128 << 20});
    // The decoders' "⚠️" and "[Files]" lines would drown the fuzzer's own output.
    std::freopen("/dev/null", "w", stdout);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Setup setup;
  const int fd = ::memfd_create("corvane-fuzz", MFD_CLOEXEC);
  if (fd < 0) return 0;
  std::size_t written = 0;
  while (written < size) {
    const ssize_t n = ::write(fd, data + written, size - written);
    if (n <= 0) break;
    written += static_cast<std::size_t>(n);
  }
  const std::string path = "/proc/self/fd/" + std::to_string(fd);

  (void)corvane::AudioFileIdentity::inspect(path);
  try {
    const auto loaded = corvane::AudioFileModel::load(path);
    (void)loaded.model.channelLabels();
    (void)loaded.model.encodingLabel();
  } catch (const std::exception&) {
  }
  if (size >= 4) {
    corvane::RawPCMFormat format;
    format.encoding = static_cast<corvane::RawPCMFormat::Encoding>(data[0] % 7);
    format.endianness = (data[0] & 0x80) ? corvane::RawPCMFormat::Endianness::big : corvane::RawPCMFormat::Endianness::little;
    format.channelCount = 1 + data[1] % 8;
    format.planar = (data[1] & 0x80) != 0;
    format.headerSkip = data[2];
    format.tolerance = data[3];
    try {
      (void)corvane::RawPCMReader::read(path, format, 1 << 16);
    } catch (const std::exception&) {
    }
  }
  ::close(fd);
  return 0;
}
