#!/usr/bin/python3
"""Magnitude response, in dB, of the band filters as Robert Bristow-Johnson's Audio EQ Cookbook
defines them, designed in double precision and evaluated with scipy.signal.freqz.

usage: rbj_response.py FS FORM LO HI < frequencies
  FORM: bandpass   high-pass at LO then low-pass at HI, both Q = 1/sqrt(2)
        notch      notch at sqrt(LO*HI), Q = f0 / (HI - LO)
        peakcut    peaking EQ at sqrt(LO*HI), -40 dB, bandwidth log2(HI/LO) octaves (>= 0.05)
Prints one dB value per input frequency.
"""
import sys
import numpy as np
from scipy import signal


def highpass(f0, fs, q):
    w0 = 2 * np.pi * f0 / fs
    alpha = np.sin(w0) / (2 * q)
    c = np.cos(w0)
    return [(1 + c) / 2, -(1 + c), (1 + c) / 2], [1 + alpha, -2 * c, 1 - alpha]


def lowpass(f0, fs, q):
    w0 = 2 * np.pi * f0 / fs
    alpha = np.sin(w0) / (2 * q)
    c = np.cos(w0)
    return [(1 - c) / 2, 1 - c, (1 - c) / 2], [1 + alpha, -2 * c, 1 - alpha]


def notch(f0, fs, q):
    w0 = 2 * np.pi * f0 / fs
    alpha = np.sin(w0) / (2 * q)
    c = np.cos(w0)
    return [1, -2 * c, 1], [1 + alpha, -2 * c, 1 - alpha]


def peaking(f0, fs, gain_db, octaves):
    a = 10 ** (gain_db / 40)
    w0 = 2 * np.pi * f0 / fs
    alpha = np.sin(w0) * np.sinh(np.log(2) / 2 * octaves * w0 / np.sin(w0))
    c = np.cos(w0)
    return [1 + alpha * a, -2 * c, 1 - alpha * a], [1 + alpha / a, -2 * c, 1 - alpha / a]


def main():
    fs, form, lo, hi = float(sys.argv[1]), sys.argv[2], float(sys.argv[3]), float(sys.argv[4])
    freqs = np.array([float(line) for line in sys.stdin if line.strip()])
    if form == "bandpass":
        sections = [highpass(lo, fs, 1 / np.sqrt(2)), lowpass(hi, fs, 1 / np.sqrt(2))]
    elif form == "notch":
        f0 = np.sqrt(lo * hi)
        sections = [notch(f0, fs, f0 / max(hi - lo, 1.0))]
    elif form == "peakcut":
        sections = [peaking(np.sqrt(lo * hi), fs, -40.0, max(np.log2(hi / lo), 0.05))]
    else:
        raise SystemExit("unknown form " + form)
    h = np.ones(len(freqs), dtype=complex)
    for b, a in sections:
        _, hs = signal.freqz(b, a, worN=freqs, fs=fs)
        h *= hs
    for value in 20 * np.log10(np.maximum(np.abs(h), 1e-300)):
        print(repr(float(value)))


if __name__ == "__main__":
    main()
