#include "core/LevelHistogram.h"

#include <algorithm>
#include <cmath>

namespace corvane {

LevelHistogram::LevelHistogram(double lowestLevel, double highestLevel, double binWidth)
    : _lowest(lowestLevel), _width(binWidth) {
  const int bins = std::max(1, static_cast<int>(std::ceil((highestLevel - lowestLevel) / binWidth)));
  _count.assign(static_cast<std::size_t>(bins), 0);
  _energy.assign(static_cast<std::size_t>(bins), 0.0);
  _levelSum.assign(static_cast<std::size_t>(bins), 0.0);
  _countTree.assign(static_cast<std::size_t>(bins) + 1, 0);
  _energyTree.assign(static_cast<std::size_t>(bins) + 1, 0.0);
  _topPower = 1;
  while (_topPower * 2 <= bins) _topPower *= 2;
}

void LevelHistogram::clear() noexcept {
  std::fill(_count.begin(), _count.end(), 0);
  std::fill(_energy.begin(), _energy.end(), 0.0);
  std::fill(_levelSum.begin(), _levelSum.end(), 0.0);
  std::fill(_countTree.begin(), _countTree.end(), 0);
  std::fill(_energyTree.begin(), _energyTree.end(), 0.0);
  _total = 0;
  _totalEnergy = 0.0;
}

int LevelHistogram::binOf(double level) const noexcept {
  if (!(level >= _lowest)) return 0;  // also −infinity and NaN
  const double index = (level - _lowest) / _width;
  const int last = binCount() - 1;
  if (index >= last) return last;
  return static_cast<int>(index);
}

void LevelHistogram::add(double level, double energy) noexcept {
  const int bin = binOf(level);
  ++_count[static_cast<std::size_t>(bin)];
  _energy[static_cast<std::size_t>(bin)] += energy;
  _levelSum[static_cast<std::size_t>(bin)] += std::isfinite(level) ? level : lowerEdge(0);
  ++_total;
  _totalEnergy += energy;
  const int n = binCount();
  for (int i = bin + 1; i <= n; i += i & -i) {
    ++_countTree[static_cast<std::size_t>(i)];
    _energyTree[static_cast<std::size_t>(i)] += energy;
  }
}

std::int64_t LevelHistogram::countBelowBin(int bin) const noexcept {
  std::int64_t sum = 0;
  for (int i = std::clamp(bin, 0, binCount()); i > 0; i -= i & -i) {
    sum += _countTree[static_cast<std::size_t>(i)];
  }
  return sum;
}

void LevelHistogram::above(double threshold, double& count, double& energy) const noexcept {
  if (!(threshold >= _lowest)) {
    count = static_cast<double>(_total);
    energy = _totalEnergy;
    return;
  }
  const int cut = binOf(threshold);
  std::int64_t countBelow = 0;
  double energyBelow = 0.0;
  for (int i = cut; i > 0; i -= i & -i) {
    countBelow += _countTree[static_cast<std::size_t>(i)];
    energyBelow += _energyTree[static_cast<std::size_t>(i)];
  }
  const auto c = static_cast<std::size_t>(cut);
  const double share = std::clamp((lowerEdge(cut) + _width - threshold) / _width, 0.0, 1.0);
  count = static_cast<double>(_total - countBelow - _count[c]) + share * static_cast<double>(_count[c]);
  energy = (_totalEnergy - energyBelow - _energy[c]) + share * _energy[c];
  if (count < 0.0) count = 0.0;
  if (energy < 0.0) energy = 0.0;
}

int LevelHistogram::firstBinAtOrAbove(double threshold) const noexcept {
  if (!(threshold > _lowest)) return 0;
  const double index = std::ceil((threshold - _lowest) / _width - 0.5);
  return static_cast<int>(std::min<double>(index, binCount()));
}

int LevelHistogram::binOfRank(std::int64_t rank) const noexcept {
  // Fenwick descent: the largest position whose prefix count is ≤ rank is the bin before the
  // one holding that rank.
  int position = 0;
  std::int64_t remaining = rank;
  const int n = binCount();
  for (int step = _topPower; step > 0; step /= 2) {
    const int next = position + step;
    if (next <= n && _countTree[static_cast<std::size_t>(next)] <= remaining) {
      position = next;
      remaining -= _countTree[static_cast<std::size_t>(next)];
    }
  }
  return std::min(position, n - 1);
}

double LevelHistogram::meanLevelInBin(int bin) const noexcept {
  const auto b = static_cast<std::size_t>(bin);
  if (_count[b] == 0) return lowerEdge(bin) + _width / 2;
  return _levelSum[b] / static_cast<double>(_count[b]);
}

double LevelHistogram::meanEnergyInBin(int bin) const noexcept {
  const auto b = static_cast<std::size_t>(bin);
  if (_count[b] == 0) return 0.0;
  return _energy[b] / static_cast<double>(_count[b]);
}

}  // namespace corvane
