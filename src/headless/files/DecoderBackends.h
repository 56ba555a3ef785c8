// The two decoders behind AudioFileReader. Internal to the file layer.
//
// Each takes the open descriptor (and owns it from then on) and gives a reader, or nullptr
// when its library doesn't recognise the bytes. A file it recognises but can't use
// (zero channels, no audio stream) also gives nullptr, so the other decoder gets its turn.
#pragma once

#include <memory>

#include "headless/files/AudioFileReader.h"
#include "headless/files/ContainerProbe.h"
#include "headless/files/FileDescriptor.h"

namespace corvane::detail {

// `probe` (may be null) supplies channel positions where libsndfile reports none.
std::unique_ptr<AudioFileReader> openWithSndfile(UniqueFd fd, const ContainerProbe* probe);

std::unique_ptr<AudioFileReader> openWithFFmpeg(UniqueFd fd);

// Native FLAC streams only; `probe` (may be null) supplies the channel positions.
std::unique_ptr<AudioFileReader> openWithLibFlac(UniqueFd fd, const ContainerProbe* probe);

}  // namespace corvane::detail
