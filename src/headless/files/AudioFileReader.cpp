#include "headless/files/AudioFileReader.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "headless/files/AudioError.h"
#include "headless/files/DecoderBackends.h"
#include "headless/files/UserText.h"

namespace corvane {

namespace detail {

UniqueFd openAudioFileForReading(const std::filesystem::path& url) {
  struct stat info {};
  if (::stat(url.c_str(), &info) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) throw AudioDecodeError("There is no file at " + url.string() + ".");
    throw AudioDecodeError(displayFileName(url) + " couldn't be read: " + std::strerror(errno) + ".");
  }
  if (S_ISDIR(info.st_mode)) throw AudioDecodeError(displayFileName(url) + " is a folder, not an audio file.");
  if (!S_ISREG(info.st_mode)) throw AudioDecodeError(displayFileName(url) + " is not a regular file.");
  UniqueFd fd(::open(url.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) throw AudioDecodeError(displayFileName(url) + " couldn't be read: " + std::strerror(errno) + ".");
  // Checked again on the open file: the name may have been replaced in between.
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    throw AudioDecodeError(displayFileName(url) + " is not a regular file.");
  }
  if (info.st_size == 0) throw AudioDecodeError(displayFileName(url) + " is empty (0 bytes).");
  return fd;
}

}  // namespace detail

std::unique_ptr<AudioFileReader> AudioFileReader::open(const std::filesystem::path& url) {
  auto fd = detail::openAudioFileForReading(url);
  const auto probe = detail::probeContainer(fd.get());
  if (probe && probe->container == detail::ContainerKind::flac) {
    detail::UniqueFd flac(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
    if (auto reader = detail::openWithLibFlac(std::move(flac), &*probe)) return reader;
  }
  detail::UniqueFd second(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
  if (auto reader = detail::openWithSndfile(std::move(fd), probe ? &*probe : nullptr)) return reader;
  if (second) {
    if (auto reader = detail::openWithFFmpeg(std::move(second))) return reader;
  }
  throw AudioDecodeError(detail::displayFileName(url) + " is not a recognised audio file.");
}

std::unique_ptr<AudioFileReader> AudioFileReader::open(const std::filesystem::path& url, Decoder decoder) {
  auto fd = detail::openAudioFileForReading(url);
  std::unique_ptr<AudioFileReader> reader;
  if (decoder == Decoder::libflac) {
    const auto probe = detail::probeContainer(fd.get());
    if (probe && probe->container == detail::ContainerKind::flac) reader = detail::openWithLibFlac(std::move(fd), &*probe);
  } else if (decoder == Decoder::libsndfile) {
    const auto probe = detail::probeContainer(fd.get());
    reader = detail::openWithSndfile(std::move(fd), probe ? &*probe : nullptr);
  } else {
    reader = detail::openWithFFmpeg(std::move(fd));
  }
  if (!reader) throw AudioDecodeError(detail::displayFileName(url) + " is not a recognised audio file.");
  return reader;
}

}  // namespace corvane
