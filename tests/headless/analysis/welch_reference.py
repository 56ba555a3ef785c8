#!/usr/bin/env python3
"""Welch's averaged power spectrum of planar float32 audio, the reference for the offline
spectra: scipy.signal.welch with a periodic Hann window, no detrending, 'spectrum' scaling,
mean of all segments. With two or more channels the mid ((ch0 + ch1) / 2) and side
((ch0 - ch1) / 2) spectra follow the channels.

usage: welch_reference.py IN.f32 CHANNELS FRAMES RATE NPERSEG NOVERLAP OUT.f64
IN holds CHANNELS × FRAMES float32 values, channel after channel. OUT receives the spectra in
dB (10·log10 of the power, bins 0 ... NPERSEG/2 - 1), float64, one row after another.
"""
import sys

import numpy as np
from scipy import signal


def main():
    path, channels, frames, rate, nperseg, noverlap, out = sys.argv[1:8]
    channels, frames, nperseg, noverlap = int(channels), int(frames), int(nperseg), int(noverlap)
    data = np.fromfile(path, dtype=np.float32).astype(np.float64).reshape(channels, frames)
    rows = [data[c] for c in range(channels)]
    if channels >= 2:
        rows.append((data[0] + data[1]) * 0.5)
        rows.append((data[0] - data[1]) * 0.5)
    spectra = []
    for x in rows:
        _, pxx = signal.welch(x, fs=float(rate), window="hann", nperseg=nperseg, noverlap=noverlap,
                              detrend=False, scaling="spectrum", average="mean")
        spectra.append(10.0 * np.log10(pxx[: nperseg // 2]))
    np.asarray(spectra, dtype=np.float64).tofile(out)


if __name__ == "__main__":
    main()
