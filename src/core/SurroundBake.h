// SurroundBake: the offline mix of a routing, every output a sum of gained source channels.
//
// "Render to File…" and the routed export use it to turn a routing matrix (downmixes,
// reorders, polarity flips, ±90° phase shifts) into new channels, sample for sample what the
// render callback plays. A route takes one source channel, a signed linear gain (negative for
// polarity inversion and for −90°), and optionally the source's 90° quadrature signal instead
// of the signal itself.
//
// Quadrature signals come from HilbertPhaseShifter with its latency removed, so that shifted
// and unshifted routes stay aligned to the sample with the source: an output that sums a
// channel with its own quadrature has the expected √2 magnitude, not a comb. In-phase routes
// use the source samples themselves (no filtering, bit-exact for unity gains). The quadrature
// follows the reference within ±0.5 dB only inside the shifter's band (about 340 Hz to
// 23.66 kHz at 48 kHz; HilbertPhaseShifter.h); below it the shifted signal fades towards DC.
//
// Thread class: any thread; allocates the outputs and one quadrature array per shifted source
// channel. Never throws except std::bad_alloc.
#pragma once

#include <vector>

namespace corvane {

struct SurroundBake {
  struct Route {
    int sourceChannelIndex = 0;  // from 0; a route to a channel the source lacks is skipped
    float gain = 1.0f;           // signed linear gain
    bool quadrature = false;     // take the source's +90° signal
  };

  // One array per entry of `outputRoutes`, each as long as the longest source channel (shorter
  // channels count as silence past their end); an output without routes is silence. No
  // sources give outputs of length 0. `sampleRate` must be positive; it only matters for the
  // band in which quadrature routes are exact (see above).
  static std::vector<std::vector<float>> render(const std::vector<std::vector<float>>& source,
                                                const std::vector<std::vector<Route>>& outputRoutes,
                                                double sampleRate);
};

}  // namespace corvane
