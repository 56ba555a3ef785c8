#include "playback/RoutedRender.h"

#include <algorithm>
#include <new>

#include "core/SurroundBake.h"

namespace corvane {

std::vector<int> routedOutputIndexes(const ChannelRoutings& routings) {
  std::vector<int> kept;
  for (std::size_t i = 0; i < routings.size(); ++i) {
    const auto& sources = routings[i].sources;
    if (std::any_of(sources.begin(), sources.end(), [](const ChannelSourceSlot& s) { return s.sourceChannelIndex >= 0; })) {
      kept.push_back(static_cast<int>(i));
    }
  }
  return kept;
}

bool routedOutputFitsWav(int channels) { return channels <= 2; }

SharedAudioBuffer buildRoutedBuffer(const AudioBuffer& source, const ChannelRoutings& routings,
                                    int outputChannels) {
  if (outputChannels < 1 || source.channelCount() < 1) return nullptr;
  if (routings.size() != static_cast<std::size_t>(outputChannels)) return nullptr;
  try {
    const FrameCount frames = source.frameLength();
    std::vector<std::vector<float>> channels(static_cast<std::size_t>(source.channelCount()));
    for (int c = 0; c < source.channelCount(); ++c) channels[c].assign(source.channel(c), source.channel(c) + frames);

    std::vector<std::vector<SurroundBake::Route>> outputRoutes(routings.size());
    for (std::size_t o = 0; o < routings.size(); ++o) {
      for (const ChannelSourceSlot& slot : routings[o].sources) {
        if (slot.sourceChannelIndex < 0 || slot.sourceChannelIndex >= source.channelCount()) continue;
        const bool negated = slot.phase == RoutingPhase::invert || slot.phase == RoutingPhase::minus90;
        outputRoutes[o].push_back({slot.sourceChannelIndex, negated ? -slot.gain : slot.gain, needsQuadrature(slot.phase)});
      }
    }
    std::vector<std::vector<float>> mixed = SurroundBake::render(channels, outputRoutes, source.sampleRate());
    channels.clear();
    if (mixed.size() != static_cast<std::size_t>(outputChannels)) return nullptr;

    const FrameCount length = static_cast<FrameCount>(mixed.front().size());
    auto result = AudioBuffer::create(outputChannels, length, source.sampleRate());
    for (int o = 0; o < outputChannels; ++o) {
      std::copy(mixed[o].begin(), mixed[o].end(), result->channel(o));
      std::vector<float>().swap(mixed[o]);
    }
    if (!routedOutputFitsWav(outputChannels)) {
      result->setChannelPositions(std::vector<ChannelPosition>(static_cast<std::size_t>(outputChannels), ChannelPosition::Unknown));
    }
    return result;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace corvane
