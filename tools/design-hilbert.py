#!/usr/bin/env python3
"""Designs the 101-tap Hilbert transformer of src/core/HilbertPhaseShifter.cpp.

Parks-McClellan (equiripple) over the band 0.00708 ... 0.49292 of the sample rate, which keeps
the magnitude within ±0.5 dB of unity there. The filter is antisymmetric with zero even taps,
so only h[1], h[3], ..., h[49] (tap n counted from the centre) are printed; h[-n] = -h[n].
Sign: h[n] > 0 for n > 0, the convention of the ideal transformer 2/(πn), which turns cos
into sin (the output lags by 90°).

Run: python3 tools/design-hilbert.py   (needs python3-scipy)
"""
import numpy as np
from scipy.signal import freqz, remez

TAPS = 101
LOW = 0.00708
h = remez(TAPS, [LOW, 0.5 - LOW], [1], type="hilbert", fs=1.0, maxiter=200)
centre = TAPS // 2
# Make h[centre + 1] positive (ideal: 2/π).
if h[centre + 1] < 0:
    h = -h
f = np.linspace(LOW, 0.5 - LOW, 20000)
_, H = freqz(h, worN=2 * np.pi * f)
ripple = 20 * np.log10(np.abs(H))
print(f"// ripple over the band: {ripple.min():+.4f} ... {ripple.max():+.4f} dB")
for n in range(1, centre, 2):
    print(f"    {h[centre + n]:.17g},")
