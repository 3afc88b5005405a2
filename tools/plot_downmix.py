#!/usr/bin/python3
"""Draws the matrices of docs/downmix.md as the stream library applies them.

usage: plot_downmix.py OUT.png LIBRARY FROM:TO...
       tools/plot_downmix.py docs/images/downmix-matrices.png build/release/libkorlastream.so 7.1.4:stereo 7.1.4:5.1
"""
import ctypes
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

SOURCES = ("given", "the module's", "derived")


class Layout(ctypes.Structure):
    _fields_ = [("count", ctypes.c_uint32), ("speakers", ctypes.c_uint32 * 12)]

    @classmethod
    def named(cls, library, name):
        layout, reason = cls(), ctypes.create_string_buffer(200)
        if library.korla_layout_parse(name.encode(), ctypes.byref(layout), reason, ctypes.c_size_t(200)) != 0:
            raise SystemExit(reason.value.decode())
        return layout

    def names(self, library):
        return [library.korla_speaker_name(code).decode() for code in self.speakers[: self.count]]


def matrix(library, source, target):
    gains = np.zeros((target.count, source.count), np.float32)
    origin, reason = ctypes.c_uint32(), ctypes.create_string_buffer(200)
    if library.korla_layout_matrix(ctypes.byref(source), ctypes.byref(target), gains.ctypes.data_as(ctypes.c_void_p),
                                   ctypes.byref(origin), reason, ctypes.c_size_t(200)) != 0:
        raise SystemExit(reason.value.decode())
    return gains, SOURCES[origin.value]


def main():
    if len(sys.argv) < 4:
        raise SystemExit(__doc__)
    library = ctypes.CDLL(sys.argv[2])
    library.korla_speaker_name.restype = ctypes.c_char_p
    pairs = []
    for pair in sys.argv[3:]:
        source, target = (Layout.named(library, name) for name in pair.split(":"))
        pairs.append((pair.replace(":", " to "), source, target, *matrix(library, source, target)))
    heights = [target.count + 2.2 for _, _, target, _, _ in pairs]
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
        panel.set_xticks(range(source.count), source.names(library), fontsize=8)
        panel.set_yticks(range(target.count), target.names(library), fontsize=8)
        panel.set_title(f"{title} ({origin}), dB", loc="left", fontsize=10)
        panel.set_xticks(np.arange(source.count + 1) - 0.5, minor=True)
        panel.set_yticks(np.arange(target.count + 1) - 0.5, minor=True)
        panel.grid(which="minor", color="0.85")
        panel.tick_params(which="both", length=0)
    figure.savefig(sys.argv[1], dpi=100)


main()
