// AudioContainer: the file containers Corvane can name as a save target, and the table of
// file-name extensions that say "audio" on this system.
//
// Thread class: plain values and pure functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// By ordinal: 0 WAV, 1 RF64, 2 BW64, 3 Wave64, 4 AIFF, 5 AIFF-C, 6 CAF.
enum class AudioContainer { wav, rf64, bw64, wave64, aiff, aiffc, caf };

// The case a file-name extension names, compared without regard to case and with or without
// its leading dot: wav/wave/bwf → WAV, rf64, bw64, w64 → Wave64, aif/aiff → AIFF,
// aifc → AIFF-C, caf. Any other extension names none.
std::optional<AudioContainer> audioContainer(std::string_view extension);

// "WAV", "RF64", "BW64", "Wave64", "AIFF", "AIFF-C", "CAF": the text Corvane shows as a
// written file's format.
std::string_view displayName(AudioContainer container);

// The extension a new file of this container gets, without the dot ("wav", "aif", ...).
std::string_view preferredExtension(AudioContainer container);

// Whether Corvane's writers can produce this container (all but BW64: no writer here makes
// its header, so such a file is never rewritten in place).
bool isWritable(AudioContainer container);

// Whether an extension names an audio file type, compared without regard to case and with or
// without its dot. This stands in for "the file type conforms to audio" of desktop type
// systems: Linux has no such hierarchy that every machine carries (shared-mime-info is
// optional and calls .raw camera images and .mp4 video), so Corvane keeps its own table of the
// extensions that only audio files carry: wav wave bwf rf64 bw64 w64 aif aiff aifc caf flac
// mp3 mp2 mpa m4a m4b m4r aac adts ogg oga opus spx wma ac3 ec3 dts amr awb 3ga au snd ape wv
// tta mka dsf dff voc sd2 alac. Video containers (mp4, mov, mkv, webm) and headerless-data
// names (raw, pcm, bin, dat) are not in it.
bool isAudioFileExtension(std::string_view extension);

// The extension in lower case without its dot.
std::string normalizedExtension(std::string_view extension);

}  // namespace corvane
