#include "headless/speech/DialogueRegion.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "headless/speech/SpeechRanges.h"
#include "headless/speech/SpeechSegments.h"

namespace corvane {
namespace {

std::int64_t microseconds(double seconds) { return std::llround(seconds * 1e6); }

// Rounds a / b up for any sign of a (b > 0).
std::int64_t ceilDiv(std::int64_t a, std::int64_t b) { return a >= 0 ? (a + b - 1) / b : -((-a) / b); }

}  // namespace

std::string DialogueRegion::makeID() {
  thread_local std::mt19937_64 generator{std::random_device{}() ^ (std::uint64_t{std::random_device{}()} << 32)};
  std::uint64_t high = generator();
  std::uint64_t low = generator();
  high = (high & ~std::uint64_t{0xf000}) | 0x4000;                      // version 4
  low = (low & ~(std::uint64_t{0xc} << 60)) | (std::uint64_t{0x8} << 60);  // RFC 4122 variant
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (int i = 0; i < 32; ++i) {
    if (i == 8 || i == 12 || i == 16 || i == 20) text.push_back('-');
    const std::uint64_t word = i < 16 ? high : low;
    text.push_back(kDigits[(word >> (60 - 4 * (i % 16))) & 0xf]);
  }
  return text;
}

SpeechHistory DialogueRegion::toHistory(std::span<const DialogueRegion> regions, std::int64_t totalBlocks,
                                            double blockDuration) {
  SpeechHistory history(static_cast<std::size_t>(std::max<std::int64_t>(totalBlocks, 0)), false);
  const std::int64_t block = microseconds(blockDuration);
  if (block <= 0) return history;
  for (const DialogueRegion& region : regions) {
    // Block i is in when start ≤ (i + ½)·block < end; doubled to stay in integers.
    const std::int64_t first = ceilDiv(2 * microseconds(region.start) - block, 2 * block);
    const std::int64_t last = ceilDiv(2 * microseconds(region.end) - block, 2 * block);
    for (std::int64_t i = std::max<std::int64_t>(first, 0); i < std::min(last, totalBlocks); ++i) {
      history[static_cast<std::size_t>(i)] = true;
    }
  }
  return history;
}

std::vector<DialogueRegion> DialogueRegion::fromHistory(const SpeechHistory& history, double blockDuration) {
  std::vector<DialogueRegion> regions;
  for (const SpeechRun& run : speechRuns(history)) {
    DialogueRegion region;
    region.id = makeID();
    region.start = static_cast<double>(run.first) * blockDuration;
    region.end = static_cast<double>(run.end) * blockDuration;
    regions.push_back(std::move(region));
  }
  return regions;
}

SpeechHistory DialogueRegion::sliceHistory(const SpeechHistory& history, FrameCount startFrame,
                                               FrameCount frameCount, double sampleRate, double blockDuration) {
  const FrameCount block = speechBlockFrames(sampleRate, blockDuration);
  const std::int64_t count = frameCount > 0 ? (frameCount + block - 1) / block : 0;
  SpeechHistory slice(static_cast<std::size_t>(count), false);
  const FrameCount selectionEnd = startFrame + frameCount;
  for (std::int64_t j = 0; j < count; ++j) {
    const FrameCount blockStart = startFrame + j * block;
    const FrameCount blockEnd = std::min(selectionEnd, blockStart + block);
    // The file block that holds the middle (blockStart + blockEnd) / 2, kept doubled.
    const FrameCount doubledMiddle = blockStart + blockEnd;
    if (doubledMiddle < 0) continue;
    const std::int64_t fileBlock = doubledMiddle / (2 * block);
    if (fileBlock < static_cast<std::int64_t>(history.size())) slice[static_cast<std::size_t>(j)] = history[static_cast<std::size_t>(fileBlock)];
  }
  return slice;
}

}  // namespace corvane
