#!/usr/bin/python3
"""Draws the matrices of docs/downmix.md as the stream library applies them.

usage: plot_downmix.py OUT.png FROM:TO...
       PYTHONPATH=build/release/python tools/plot_downmix.py docs/images/downmix-matrices.png 7.1.4:stereo 7.1.4:5.1
"""
import sys

import korla
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

SOURCES = {"module": "the module's", "derived": "derived"}


def main():
    if len(sys.argv) < 3:
        raise SystemExit(__doc__)
    pairs = []
    for pair in sys.argv[2:]:
        source, target = map(korla.layout, pair.split(":"))
        gains, origin = korla.matrix(source, target)
        pairs.append((pair.replace(":", " to "), source, target, gains, SOURCES[origin]))
    heights = [len(target) + 2.2 for _, _, target, _, _ in pairs]
    figure, panels = plt.subplots(len(pairs), 1, figsize=(7.5, 0.36 * sum(heights)), squeeze=False,
                                  gridspec_kw={"height_ratios": heights}, constrained_layout=True)
    for panel, (title, source, target, gains, origin) in zip(panels[:, 0], pairs):
        with np.errstate(divide="ignore"):
            decibels = 20 * np.log10(gains)
        panel.imshow(np.where(gains > 0, np.maximum(decibels, -12), np.nan), cmap="YlGnBu", vmin=-14, vmax=2, aspect="auto")
        for (row, column), gain in np.ndenumerate(decibels):
            if np.isfinite(gain):
                text = f"{gain:.1f}".replace("-0.0", "0").removesuffix(".0")
                panel.text(column, row, text, ha="center", va="center", fontsize=8,
                           color="white" if gain > -2 else "black")
        panel.set_xticks(range(len(source)), source, fontsize=8)
        panel.set_yticks(range(len(target)), target, fontsize=8)
        panel.set_title(f"{title} ({origin}), dB", loc="left", fontsize=10)
        panel.set_xticks(np.arange(len(source) + 1) - 0.5, minor=True)
        panel.set_yticks(np.arange(len(target) + 1) - 0.5, minor=True)
        panel.grid(which="minor", color="0.85")
        panel.tick_params(which="both", length=0)
    figure.savefig(sys.argv[1], dpi=100)


main()
