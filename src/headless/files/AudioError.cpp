#include "headless/files/AudioError.h"

namespace corvane {

AudioError::AudioError(Kind kind) : std::runtime_error(std::string(text(kind))), _kind(kind) {}

std::string_view AudioError::text(Kind kind) {
  switch (kind) {
    case Kind::formatNotSupported: return "Audio format not supported";
    case Kind::bufferCreationFailed: return "Failed to allocate audio buffer";
    case Kind::deviceNotFound: return "Output device not found";
    case Kind::engineSetupFailed: return "Failed to set up audio engine";
    case Kind::fileTooLarge: return "Audio file is too large or its header is invalid";
  }
  return "Audio format not supported";
}

}  // namespace corvane
