// The errors of loading a file, as the user reads them.
//
// AudioError: the five failures of a load and of building the playback graph, each with its
// fixed text. AudioDecodeError: the decoder's own account of why a file couldn't be opened or
// read ("x.wav is empty (0 bytes)."); a load passes it on unchanged.
//
// Thread class: plain values; any thread.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace corvane {

class AudioError : public std::runtime_error {
 public:
  enum class Kind { formatNotSupported, bufferCreationFailed, deviceNotFound, engineSetupFailed, fileTooLarge };

  explicit AudioError(Kind kind);

  Kind kind() const { return _kind; }

  // "Audio format not supported", "Failed to allocate audio buffer", "Output device not
  // found", "Failed to set up audio engine", "Audio file is too large or its header is
  // invalid".
  static std::string_view text(Kind kind);

 private:
  Kind _kind;
};

class AudioDecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace corvane
