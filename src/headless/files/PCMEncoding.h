// PCMEncoding: the sample encodings Corvane writes, and reads back as "the file's own".
//
// A loaded file remembers its encoding (AudioFileModel::pcmEncoding) so that Save and Save As
// write an edited 24-bit file back as 24-bit. Compressed sources (FLAC, ALAC) report the
// integer encoding of their decoded samples; lossy sources (MP3, AAC, Vorbis, Opus) have none,
// and are written as float32.
//
// Thread class: plain values and pure functions; any thread.
#pragma once

#include <optional>
#include <string_view>

namespace corvane {

enum class PCMEncoding { int8, int16, int24, int32, float32, float64 };

// Bits per sample: 8, 16, 24, 32, 32, 64.
int bitDepth(PCMEncoding encoding);
bool isFloat(PCMEncoding encoding);

// "8-bit integer", "16-bit integer", "24-bit integer", "32-bit integer", "32-bit float",
// "64-bit float".
std::string_view label(PCMEncoding encoding);

// The encoding of linear samples of that width and kind; none for widths Corvane can't write
// (12-bit, 20-bit, 16-bit float ...).
std::optional<PCMEncoding> pcmEncodingFor(int bitsPerSample, bool floatingPoint);

}  // namespace corvane
