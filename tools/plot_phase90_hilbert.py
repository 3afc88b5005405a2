#!/usr/bin/python3
"""Measures the frequency response of the Phase90Hilbert phase shifter and plots it for docs/phase90-hilbert.md.

    PYTHONPATH=build/release/python tools/plot_phase90_hilbert.py docs/images/phase90-hilbert.svg

Every frequency is a steady sine that is sent through the filter; the output is correlated with the sine of
1280 samples earlier. The same measurement on two levels of detail gives the figures printed at the end.
"""
import sys

import korla
import matplotlib
import numpy as np

matplotlib.use("svg")
import matplotlib.pyplot as plt

RATE, DELAY = 48000, korla.Phase90.delay


def response(block_length, frequency):
    """Complex gain at one frequency, relative to a pure delay of DELAY samples."""
    settle, periods = 16384, max(4, int(np.ceil(frequency * 0.5)))
    n = np.arange(settle + int(np.ceil((periods * RATE / frequency) / block_length)) * block_length)
    phase = 2 * np.pi * frequency / RATE
    output = korla.Phase90(block_length).process(0.5 * np.cos(phase * n))
    window = np.where(n >= settle, 0.5 - 0.5 * np.cos(2 * np.pi * (n - settle) / (n[-1] + 1 - settle)), 0.0)
    basis = np.exp(1j * phase * (n - DELAY))
    # Least squares for both directions of rotation, so that low and very high frequencies do not leak into each other.
    matrix = np.stack([basis, basis.conj()], axis=1) * window[:, None]
    gains = np.linalg.lstsq(matrix, output * window, rcond=None)[0]
    return gains[0] / 0.25


def main():
    frequencies = np.geomspace(10, 23990, 160)
    figure, (magnitude, phase) = plt.subplots(2, 1, figsize=(9, 6.5), sharex=True, layout="constrained")
    for block_length, style in ((512, "-"), (2048, "--")):
        gains = np.array([response(block_length, f) for f in frequencies])
        magnitude.semilogx(frequencies, 20 * np.log10(np.abs(gains)), style, label=f"blocks of {block_length}")
        phase.semilogx(frequencies, np.degrees(np.unwrap(np.angle(gains))), style)
    magnitude.set(ylabel="gain, dB", ylim=(-8, 1))
    magnitude.set_title("Phase90Hilbert at 48 kHz, relative to a delay of 1280 samples")
    magnitude.legend(loc="lower right")
    phase.set(ylabel="phase, degrees", xlabel="frequency, Hz", ylim=(-96, -84), xlim=(10, 24000))
    phase.axhspan(-92.3, -87.7, color="0.92")
    for axis in (magnitude, phase):
        axis.grid(True, which="both", linewidth=0.3)
    matplotlib.rcParams["svg.hashsalt"] = "phase90-hilbert"  # the same file from the same measurement
    figure.savefig(sys.argv[1], metadata={"Date": None})

    checked = np.array([response(1024, f) for f in np.geomspace(20, 23980, 200)])
    print(f"phase over 20 Hz .. 24 kHz: {np.degrees(np.angle(checked)).min():.2f} .. "
          f"{np.degrees(np.angle(checked)).max():.2f} degrees")
    for f in (20, 50, 100, 1000, 10000, 20000):
        g = response(1024, f)
        print(f"{f:6} Hz: {20 * np.log10(abs(g)):7.3f} dB, {np.degrees(np.angle(g)):8.3f} degrees")


if __name__ == "__main__":
    main()
