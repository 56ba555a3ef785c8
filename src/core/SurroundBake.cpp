#include "core/SurroundBake.h"

#include <algorithm>
#include <map>

#include "core/HilbertPhaseShifter.h"

namespace corvane {

namespace {

// The channel's +90° signal, aligned with the channel: the shifter runs over the samples and
// then over its latency in zeros, and the first latency frames of its output are dropped.
std::vector<float> quadratureOf(const std::vector<float>& channel, std::size_t length) {
  constexpr int kLatency = HilbertPhaseShifter::kLatencyFrames;
  constexpr std::size_t kBlock = 65536;
  HilbertPhaseShifter shifter;
  std::vector<float> input(kBlock);
  std::vector<float> reference(kBlock);
  std::vector<float> shifted(kBlock);
  std::vector<float> result(length, 0.0f);
  const std::size_t total = length + static_cast<std::size_t>(kLatency);
  for (std::size_t start = 0; start < total; start += kBlock) {
    const std::size_t count = std::min(kBlock, total - start);
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = start + i;
      input[i] = at < channel.size() && at < length ? channel[at] : 0.0f;
    }
    shifter.process(input.data(), static_cast<int>(count), reference.data(), shifted.data());
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = start + i;
      if (at >= static_cast<std::size_t>(kLatency)) result[at - static_cast<std::size_t>(kLatency)] = shifted[i];
    }
  }
  return result;
}

}  // namespace

std::vector<std::vector<float>> SurroundBake::render(const std::vector<std::vector<float>>& source,
                                                     const std::vector<std::vector<Route>>& outputRoutes,
                                                     double sampleRate) {
  (void)sampleRate;
  std::size_t length = 0;
  for (const auto& channel : source) length = std::max(length, channel.size());
  const auto sourceCount = static_cast<int>(source.size());

  std::map<int, std::vector<float>> quadrature;
  for (const auto& routes : outputRoutes) {
    for (const auto& route : routes) {
      if (route.quadrature && route.sourceChannelIndex >= 0 && route.sourceChannelIndex < sourceCount &&
          !quadrature.count(route.sourceChannelIndex)) {
        quadrature.emplace(route.sourceChannelIndex,
                           quadratureOf(source[static_cast<std::size_t>(route.sourceChannelIndex)], length));
      }
    }
  }

  std::vector<std::vector<float>> outputs;
  outputs.reserve(outputRoutes.size());
  for (const auto& routes : outputRoutes) {
    std::vector<float> out(length, 0.0f);
    for (const auto& route : routes) {
      if (route.sourceChannelIndex < 0 || route.sourceChannelIndex >= sourceCount) continue;
      const std::vector<float>& input = route.quadrature ? quadrature.at(route.sourceChannelIndex)
                                                         : source[static_cast<std::size_t>(route.sourceChannelIndex)];
      const std::size_t count = std::min(input.size(), length);
      const float gain = route.gain;
      for (std::size_t i = 0; i < count; ++i) out[i] += gain * input[i];
    }
    outputs.push_back(std::move(out));
  }
  return outputs;
}

}  // namespace corvane
