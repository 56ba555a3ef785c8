// DialogueRegion: a stretch of dialogue in seconds, and the conversions between regions and the
// speech history (one Boolean per block).
//
// Block arithmetic is done on integers: times are taken as whole microseconds first, so that
// 0.3 s is block 3 and not block 2 (0.3 / 0.1 is 2.9999999999999996 in floating point).
// A block belongs to a region when the region covers the middle of the block, i.e. about half of
// it or more; the speech detector places its segments on blocks by the same rule.
//
// Thread class: values and pure functions, any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/AudioBuffer.h"
#include "core/SpeechHistory.h"

namespace corvane {

struct DialogueRegion {
  std::string id;       // a random UUID in its canonical lower-case text form
  double start = 0;     // seconds from the start of the file
  double end = 0;       // seconds, above start
  // Carried over unchanged by every region operation; new regions leave them empty.
  std::optional<std::string> speaker;
  std::optional<std::string> note;

  bool operator==(const DialogueRegion&) const = default;

  // A new random (version 4) UUID text.
  static std::string makeID();

  // `totalBlocks` Booleans, true in the blocks of the regions (overlaps simply unite).
  // Parts of regions before 0 or past the last block are ignored.
  static SpeechHistory toHistory(std::span<const DialogueRegion> regions, std::int64_t totalBlocks,
                                     double blockDuration);

  // One region per run of true blocks, from the start of its first block to the end of its
  // last, with new ids; in time order.
  static std::vector<DialogueRegion> fromHistory(const SpeechHistory& history, double blockDuration);

  // The history of a selection of `frameCount` frames from `startFrame`, in the selection's own
  // blocks of round(sampleRate × blockDuration) frames counted from startFrame (the blocks a
  // loudness pass over the selection counts): ceil(frameCount / block frames) Booleans, each the
  // file block that holds the middle of the selection block; false past the history's end.
  static SpeechHistory sliceHistory(const SpeechHistory& history, FrameCount startFrame,
                                        FrameCount frameCount, double sampleRate, double blockDuration);
};

}  // namespace corvane
