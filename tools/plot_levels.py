#!/usr/bin/python3
"""Draws the level of every channel of WAV files over time.

usage: plot_levels.py OUT.png FILE.wav...
Each file is one panel, each channel one row of it; the colour is the RMS level of 20 ms, the figure on the right the peak.
"""
import os
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from scipy.io import wavfile

FLOOR_DB = -60
# WAVE_FORMAT_EXTENSIBLE mask bits
NAMES = "FL FR FC LFE BL BR FLC FRC BC SL SR TC TFL TFC TFR TBL TBC TBR".split()


def speaker_names(path, channels):
    with open(path, "rb") as file:
        head = file.read(4096)
    at = head.index(b"fmt ") + 8
    mask = int.from_bytes(head[at + 20 : at + 24], "little") if head[at : at + 2] == b"\xfe\xff" else 0
    names = [name for bit, name in enumerate(NAMES) if mask >> bit & 1]
    return names if len(names) == channels else [f"channel {c + 1}" for c in range(channels)]


def decibels(x):
    return 20 * np.log10(np.maximum(x, 1e-9))


def main():
    if len(sys.argv) < 3:
        raise SystemExit(__doc__)
    files = []
    for path in sys.argv[2:]:
        rate, samples = wavfile.read(path)
        scale = 1 if samples.dtype.kind == "f" else 2.0 ** (8 * samples.dtype.itemsize - 1)
        files.append((path, rate, samples.reshape(len(samples), -1) / scale))
    heights = [samples.shape[1] + 1.5 for _, _, samples in files]
    figure, panels = plt.subplots(len(files), 1, figsize=(11, 0.3 * sum(heights) + 0.6), sharex=True, squeeze=False,
                                  gridspec_kw={"height_ratios": heights}, constrained_layout=True)
    for panel, (path, rate, samples) in zip(panels[:, 0], files):
        step = rate // 50
        frames, channels = len(samples) // step * step, samples.shape[1]
        windows = samples[:frames].reshape(-1, step, channels)
        rms = decibels(np.sqrt(np.mean(windows**2, axis=1)))
        image = panel.imshow(rms.T, aspect="auto", interpolation="nearest", cmap="magma", vmin=FLOOR_DB, vmax=0,
                             extent=(0, frames / rate, channels - 0.5, -0.5))
        panel.set_yticks(range(channels), speaker_names(path, channels))
        panel.set_title(os.path.basename(path), loc="left", fontsize=10)
        for channel, peak in enumerate(decibels(np.max(np.abs(samples), axis=0))):
            text = f"{peak:.1f}" if peak > -120 else "silent"
            panel.text(1.005, channel, text, transform=panel.get_yaxis_transform(), va="center", fontsize=8)
    panels[-1, 0].set_xlim(0, max(len(samples) / rate for _, rate, samples in files))
    panels[-1, 0].set_xlabel("seconds (figures on the right: peak in dBFS)")
    figure.colorbar(image, ax=panels[:, 0].tolist(), label="RMS of 20 ms in dBFS", pad=0.07, shrink=0.5)
    figure.savefig(sys.argv[1], dpi=110)


main()
