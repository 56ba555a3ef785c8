// A file descriptor owned by one object, closed when it goes.
//
// Internal to the file layer. Thread class: one owner at a time.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <utility>

namespace corvane::detail {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : _fd(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset();
      _fd = std::exchange(other._fd, -1);
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return _fd; }
  explicit operator bool() const { return _fd >= 0; }
  int release() { return std::exchange(_fd, -1); }
  void reset() {
    if (_fd >= 0) ::close(_fd);
    _fd = -1;
  }

 private:
  int _fd = -1;
};

// Opens an audio file for reading. Throws AudioDecodeError, in the user's words, when there is
// no such file, it is a folder or not a regular file, it is empty, or it can't be read.
UniqueFd openAudioFileForReading(const std::filesystem::path& url);

}  // namespace corvane::detail
