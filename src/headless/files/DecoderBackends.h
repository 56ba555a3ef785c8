// The two decoders behind AudioFileReader. Internal to the file layer.
//
// Each takes the open descriptor (and owns it from then on) and gives a reader, or nullptr
// when its library doesn't recognise the bytes. A file it recognises but can't use
// (zero channels, no audio stream) also gives nullptr, so the other decoder gets its turn.
#pragma once

#include <memory>
#include <mutex>

#include "headless/files/AudioFileReader.h"
#include "headless/files/ContainerProbe.h"
#include "headless/files/FileDescriptor.h"

namespace corvane::detail {

// libsndfile keeps the text of its last open error in process-wide buffers, written by every
// sf_open_fd and read by sf_strerror(nullptr): files opened on two threads at once race on
// them. Everything that opens a file with libsndfile, or reads that text, holds this lock.
std::mutex& sndfileOpenMutex();

// `probe` (may be null) supplies channel positions where libsndfile reports none.
std::unique_ptr<AudioFileReader> openWithSndfile(UniqueFd fd, const ContainerProbe* probe);

std::unique_ptr<AudioFileReader> openWithFFmpeg(UniqueFd fd);

// Native FLAC streams only; `probe` (may be null) supplies the channel positions.
std::unique_ptr<AudioFileReader> openWithLibFlac(UniqueFd fd, const ContainerProbe* probe);

}  // namespace corvane::detail
