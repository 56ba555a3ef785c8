// LevelHistogram: a fixed-size histogram of levels (dB or LUFS) that answers the gating and
// percentile questions of loudness metering in O(log bins), with bounded memory.
//
// Each bin keeps the count and the exact sums of the energies and levels that fell in it, and
// two Fenwick trees hold prefix sums of counts and energies. So:
//   * energy and count above a threshold are exact for whole bins; the one bin the threshold
//     cuts is taken in proportion (its values are assumed spread evenly over the bin);
//   * the k-th smallest value is located to its bin, and that bin's mean level is returned.
// With 0.02 dB bins the answers stay within about 0.01 dB of sorting every value, however
// long the programme. Levels outside the range land in the end bins (still with their exact
// energy), which is why callers choose ranges that real signals do not leave.
//
// Thread class: one thread at a time. add() and the queries allocate nothing and never throw.
#pragma once

#include <cstdint>
#include <vector>

namespace corvane {

class LevelHistogram {
 public:
  LevelHistogram(double lowestLevel, double highestLevel, double binWidth);

  void clear() noexcept;
  // `energy` is the linear quantity whose mean the caller gates on (mean square, or the
  // weighted channel sum of BS.1770); `level` is its value in dB.
  void add(double level, double energy) noexcept;

  std::int64_t count() const noexcept { return _total; }
  double energy() const noexcept { return _totalEnergy; }

  // Count and energy of the values strictly above `threshold` (dB), fractional in the bin the
  // threshold cuts.
  void above(double threshold, double& count, double& energy) const noexcept;

  // Index of the first bin whose centre is at or above `threshold`, and how many values lie
  // below that bin; the percentile queries work from there.
  int firstBinAtOrAbove(double threshold) const noexcept;
  std::int64_t countBelowBin(int bin) const noexcept;

  // The bin holding the value of 0-based rank `rank` in ascending order (0 ≤ rank < count()).
  int binOfRank(std::int64_t rank) const noexcept;
  // Mean level and mean energy of the values in a bin (the bin centre when it is empty).
  double meanLevelInBin(int bin) const noexcept;
  double meanEnergyInBin(int bin) const noexcept;

  int binCount() const noexcept { return static_cast<int>(_count.size()); }

 private:
  int binOf(double level) const noexcept;
  double lowerEdge(int bin) const noexcept { return _lowest + bin * _width; }

  double _lowest;
  double _width;
  std::int64_t _total = 0;
  double _totalEnergy = 0.0;
  std::vector<std::int64_t> _count;
  std::vector<double> _energy;
  std::vector<double> _levelSum;
  std::vector<std::int64_t> _countTree;   // Fenwick, 1-based
  std::vector<double> _energyTree;        // Fenwick, 1-based
  int _topPower;                          // largest power of two ≤ bins, for rank search
};

}  // namespace corvane
