#!/usr/bin/env python3
"""Draws the committed prototype filters, taps and responses, into docs/images.  Needs numpy, matplotlib and pillow."""
import io
import pathlib

import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from PIL import Image

from measure_prototypes import response_decibels, shipped

IMAGES = pathlib.Path(__file__).resolve().parent.parent / "docs" / "images"
PREFIXES = ("krl_qmf_filter_coeff_", "KRL_MFB_P10KM_")


def short(name):
    for prefix in PREFIXES:
        name = name.removeprefix(prefix)
    return name


def envelope(frequency, decibels, bands):
    """The curve itself up to four times the stop-band edge, beyond it the peak of each side lobe."""
    peaks = np.r_[False, (decibels[1:-1] > decibels[:-2]) & (decibels[1:-1] >= decibels[2:]), False]
    keep = peaks | (frequency < 4.0 / bands)
    return frequency[keep] * bands, decibels[keep]


def draw(file, entries, title):
    figure, (taps_axes, near, far) = plt.subplots(3, 1, figsize=(9, 9.5), layout="constrained")
    for name, bands, taps, _, _ in entries:
        centred = (np.arange(len(taps)) - (len(taps) - 1) / 2) / bands
        taps_axes.plot(centred, taps, linewidth=1.1, label=short(name))
        frequency, decibels = response_decibels(taps, 1 << 14)
        near.plot(frequency * bands, decibels, linewidth=1.1)
        x, y = envelope(frequency, decibels, bands)
        far.plot(x, y, linewidth=0.9)
    taps_axes.set(title=title, xlabel="time in slots of M samples", ylabel="tap", xlim=(-5, 5))
    taps_axes.legend(fontsize="small")
    near.set(xlabel="frequency in units of π/M", ylabel="dB", xlim=(0, 4), ylim=(-80, 3))
    near.axvline(1.0, color="grey", linewidth=0.8, linestyle=":")
    far.set(xlabel="frequency in units of π/M (side-lobe peaks beyond 4)", ylabel="dB", ylim=(-110, 3),
            xlim=(0, max(e[1] for e in entries)))
    for axes in (taps_axes, near, far):
        axes.grid(linewidth=0.4, alpha=0.6)
    drawn = io.BytesIO()
    figure.savefig(drawn, dpi=80)
    plt.close(figure)
    Image.open(drawn).convert("RGB").quantize(96).save(IMAGES / file, optimize=True)  # a third of the size


def main():
    entries = list(shipped())

    def pick(*names):
        return [e for e in entries if short(e[0]) in names]

    draw("prototypes-qmf-64.png", pick("P5", "P5_p64kvx301", "P4"), "QMF prototypes, 64 bands")
    draw("prototypes-qmf-family.png", pick(*("P5_p64kvx301_%d" % m for m in (48, 32, 16, 8)), "P5_32", "P4_32"),
         "QMF prototypes, other band counts")
    draw("prototypes-mfb.png", pick("P64KVX301", "P4_319SC"), "Modulated-bank prototypes, 64 bands")


if __name__ == "__main__":
    main()
