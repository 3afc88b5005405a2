#!/usr/bin/python3
"""A spectrogram by FFTs of 480 points: 10 ms at 48 kHz, so that the rows lie on whole multiples of 100 Hz.

usage: spectrogram.py [IN] [--picture FILE]
Without a file: a chirp beside a steady tone.
"""
import argparse

import korla
import matplotlib
import numpy as np
import soundfile

matplotlib.use("Agg")
import matplotlib.pyplot as plt

POINTS, HOP = 480, 120


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("input", nargs="?")
    parser.add_argument("--picture")
    arguments = parser.parse_args()
    if arguments.input:
        x, rate = soundfile.read(arguments.input, dtype="float32", always_2d=True)
        x = x.mean(axis=1)
    else:
        rate = 48000
        t = np.arange(2 * rate) / rate
        x = (np.sin(2 * np.pi * (200 * t + 4000 * t ** 2)) + 0.3 * np.sin(2 * np.pi * 12000 * t)).astype(np.float32)

    frames = np.lib.stride_tricks.sliding_window_view(x, POINTS)[::HOP] * np.hanning(POINTS).astype(np.float32)
    level = 20 * np.log10(np.maximum(np.abs(korla.fft.rfft(frames)) * 4 / POINTS, 1e-6))
    loudest = np.argmax(level.mean(axis=0)) * rate / POINTS
    print(f"{len(level)} transforms of {POINTS} points; most of the energy at {loudest:.0f} Hz")
    if arguments.picture:
        figure, axis = plt.subplots(figsize=(9, 5), layout="constrained")
        picture = axis.imshow(level.T, origin="lower", aspect="auto", vmin=-100, vmax=0, cmap="magma",
                              extent=(0, len(x) / rate, 0, rate / 2000))
        axis.set(xlabel="s", ylabel="kHz", title="480-point spectrogram")
        figure.colorbar(picture, label="dB")
        figure.savefig(arguments.picture, dpi=100)


main()
