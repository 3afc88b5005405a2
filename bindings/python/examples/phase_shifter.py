#!/usr/bin/python3
"""The response of the phase shifter, measured tone by tone: gain, and phase beside 90 degrees.

usage: phase_shifter.py [--picture FILE]
"""
import argparse

import korla
import matplotlib
import numpy as np

matplotlib.use("Agg")
import matplotlib.pyplot as plt

RATE, BLOCK = 48000, 1024


def response(frequency):
    """What becomes of exp(i w n) in the middle of a long tone: 1j would be a delay of 90 degrees and nothing else."""
    phase = 2 * np.pi * frequency / RATE * np.arange(24 * BLOCK)
    y = korla.phase90(np.cos(phase), BLOCK)[8 * BLOCK:16 * BLOCK].astype(float)
    window = np.hanning(len(y))
    return 2 * np.sum(window * y * np.exp(-1j * phase[8 * BLOCK:16 * BLOCK])) / np.sum(window)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--picture")
    arguments = parser.parse_args()
    frequency = np.geomspace(20, 23980, 300)
    gains = np.array([response(f) for f in frequency])
    off = np.degrees(np.angle(gains / -1j))
    inner = (frequency > 100) & (frequency < 23900)
    print(f"the phase is off by {np.max(np.abs(off)):.2f} degrees at the most from 20 Hz on, the level by "
          f"{np.abs(20 * np.log10(np.abs(gains[inner]))).max():.2f} dB from 100 Hz to 23.9 kHz")
    if arguments.picture:
        figure, axes = plt.subplots(2, 1, figsize=(9, 6), sharex=True, layout="constrained")
        axes[0].semilogx(frequency, 20 * np.log10(np.abs(gains)))
        axes[0].set(ylabel="dB", ylim=(-6, 1), title="Gain")
        axes[1].semilogx(frequency, off)
        axes[1].set(ylabel="degrees", xlabel="Hz", title="Phase beside -90 degrees")
        for axis in axes:
            axis.grid(alpha=0.3)
        figure.savefig(arguments.picture, dpi=100)


main()
