#!/usr/bin/env python3
"""Measures the QMF banks and draws docs/images/qmf-bank-*.

Usage: PYTHONPATH=build/release/python plot_qmf_bank.py

Analysis and synthesis together are a system that changes with time, periodically with M samples. Its responses to an
impulse at each of the M phases of a slot say everything: with H_f the spectrum of the response to an impulse at phase f,
T_l = (1/M) sum over f of H_f exp(-2 pi j l f / M) is the distortion function for l = 0 and the gain of the l-th alias
otherwise (P. P. Vaidyanathan, Multirate Systems and Filter Banks, 1993, chapter 5). Needs numpy, matplotlib, pillow.
"""
import io
import pathlib

import korla
import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from PIL import Image

ROOT = pathlib.Path(__file__).resolve().parent.parent
IMAGES = ROOT / "docs" / "images"


class Design:
    def __init__(self, name, bands, periods):
        self.design, self.bands, self.slots = name, bands, 4 * periods + 2
        self.name = name.replace("p64", "P5_p64") + ("" if bands == 64 else f"_{bands}")  # as the library's symbols have it

    def bank(self, is_complex):
        return korla.QMF(self.bands, self.design, is_complex)

    def chain(self, x, is_complex, gains=1.0):
        bank = self.bank(is_complex)
        return bank.synthesis(bank.analysis(x) * np.asarray(gains, np.float32))

    def impulses(self):
        for phase in range(self.bands):
            x = np.zeros(self.slots * self.bands, np.float32)
            x[phase] = 1.0
            yield phase, x

    def transfer(self, is_complex, gains=1.0):
        """Distortion function and root of the summed power of all aliases, over frequency 0..1 of Nyquist."""
        spectra = []
        for phase, x in self.impulses():
            y = self.chain(x, is_complex, gains).astype(float)
            spectra.append(np.fft.rfft(np.roll(y, -phase), 4096))
        aliases = np.fft.fft(spectra, axis=0) / self.bands
        return np.abs(aliases[0]), np.sqrt(np.sum(np.abs(aliases[1:]) ** 2, axis=0))

    def band_responses(self, bands):
        """Magnitude responses of complex sub-bands over -1..1 of Nyquist, from their sampled impulse responses."""
        taps = np.zeros((len(bands), self.slots * self.bands), complex)
        for phase, x in self.impulses():
            subbands = self.bank(True).analysis(x)
            for s in range(self.slots):
                taps[:, (s + 1) * self.bands - 1 - phase] = subbands[s, bands]
        return np.abs(np.fft.fftshift(np.fft.fft(taps, 8192, axis=1), axes=1))


def decibels(x):
    return 20 * np.log10(np.maximum(x, 1e-12))


def save_small(figure, file):
    """A palette image: a third of the size."""
    drawn = io.BytesIO()
    figure.savefig(drawn, dpi=80)
    plt.close(figure)
    Image.open(drawn).convert("RGB").quantize(64).save(IMAGES / file, optimize=True)


def draw_responses(design):
    figure, (bands_axes, distortion_axes, alias_axes) = plt.subplots(3, 1, figsize=(9, 10), layout="constrained")
    middle, frequency = 10, np.linspace(-1, 1, 8192, endpoint=False) * design.bands
    bands = [middle - 1, middle, middle + 1]
    for band, response in zip(bands, design.band_responses(bands)):
        bands_axes.plot(frequency, decibels(response / np.sqrt(0.5)), linewidth=1.0, label=f"band {band}")
    bands_axes.set(title=f"{design.name}: three complex sub-bands, from their impulse responses", xlim=(-4, 24),
                   ylim=(-100, 5), xlabel="frequency in band widths (π/M)", ylabel="dB")
    for is_complex in (False, True):
        distortion, alias = design.transfer(is_complex)
        axis = np.linspace(0, design.bands, len(distortion))
        label = "complex" if is_complex else "real"
        distortion_axes.plot(axis, 1e6 * (distortion - 1), linewidth=0.9, label=f"{label} sub-bands")
        alias_axes.plot(axis, decibels(alias), linewidth=0.9, label=f"{label}, untouched")
        print(f"{design.name}, {label}: distortion within {np.max(np.abs(distortion - 1)):.1e}, "
              f"aliases {decibels(np.max(alias)):.1f} dB")
        gains = np.ones(design.bands)
        gains[middle] = 0.0
        _, alias = design.transfer(is_complex, gains)
        alias_axes.plot(axis, decibels(alias), linewidth=1.2, linestyle="--", label=f"{label}, band {middle} muted")
        print(f"{design.name}, {label}, one band muted: aliases {decibels(np.max(alias)):.1f} dB")
    distortion_axes.set(title="Analysis and synthesis: distortion function minus 1", xlim=(0, design.bands),
                        xlabel="frequency in band widths (π/M)", ylabel="parts per million")
    alias_axes.set(title="Analysis and synthesis: all aliases together", xlim=(0, 24), ylim=(-150, 0),
                   xlabel="frequency in band widths (π/M)", ylabel="dB")
    for axes in (bands_axes, distortion_axes, alias_axes):
        axes.grid(linewidth=0.4, alpha=0.6)
        axes.legend(fontsize="small")
    save_small(figure, "qmf-bank-responses.png")


def draw_prototype(design):
    signs = np.repeat([1, 1, -1, -1, 1, 1, -1, -1, 1, 1], design.bands)
    taps = np.r_[0.0, signs * korla.prototypes()[f"qmf {design.design}/{design.bands} analysis"]]
    response = decibels(np.abs(np.fft.rfft(taps, 1 << 15)) / np.sum(taps))
    figure, (taps_axes, response_axes) = plt.subplots(1, 2, figsize=(9, 3.4), layout="constrained")
    taps_axes.plot(np.arange(len(taps)) / design.bands, taps, linewidth=1.1)
    taps_axes.set(title=f"{design.name}: prototype p[n]", xlabel="n / M", ylabel="tap")
    response_axes.plot(np.linspace(0, design.bands, len(response)), response, linewidth=1.0)
    response_axes.set(title="response", xlabel="frequency in band widths (π/M)", ylabel="dB", xlim=(0, 8),
                      ylim=(-90, 3))
    for axes in (taps_axes, response_axes):
        axes.grid(linewidth=0.4, alpha=0.6)
    save_small(figure, "qmf-bank-prototype.png")


FLOW = (
    ("analysis", (("M samples", "ring of 2P−1\npast blocks"), ("polyphase filter\n2P taps a phase", ""),
                  ("real: fold,\nDCT-III of M", "complex: rotate,\nFFT of M, reorder,\ntwiddle w"),
                  ("M sub-band\nsamples", ""))),
    ("synthesis", (("M sub-band\nsamples", ""),
                   ("real: DCT-II of M,\nexpand", "complex: twiddle w*,\nreorder, FFT of M,\nrotate"),
                   ("transposed delay line\n2P taps a phase", "2P−1 sums a band"), ("M samples", ""))),
)


def draw_flow():
    figure, axes = plt.subplots(figsize=(9.5, 3.6))
    axes.axis("off")
    for row, (name, boxes) in enumerate(FLOW):
        y = 1.0 - row
        axes.text(-0.75, y, name, ha="center", va="center", fontweight="bold", fontsize=9)
        for column, parts in enumerate(boxes):
            text = "\n\n".join(part for part in parts if part)
            axes.text(column * 1.15, y, text, ha="center", va="center", fontsize=8,
                      bbox={"boxstyle": "round,pad=0.5", "facecolor": "#eef3fa", "edgecolor": "#40608a"})
            if column:
                axes.annotate("", ((column - 0.42) * 1.15, y), ((column - 0.58) * 1.15, y),
                              arrowprops={"arrowstyle": "->"})
    axes.set(xlim=(-1.1, 4.1), ylim=(-0.5, 1.5))
    figure.savefig(IMAGES / "qmf-bank-flow.svg", bbox_inches="tight", metadata={"Date": None})
    plt.close(figure)


def main():
    matplotlib.rcParams.update({"svg.hashsalt": "qmf-bank", "svg.fonttype": "none"})
    design = Design("p64kvx301", 64, 5)
    draw_flow()
    draw_prototype(design)
    draw_responses(design)
    for design in (Design("P5", 64, 5), Design("P4", 64, 4), Design("p64kvx301", 48, 5), Design("P5", 32, 5),
                   Design("P4", 32, 4), Design("p64kvx301", 16, 5), Design("p64kvx301", 8, 5)):
        for is_complex in (False, True):
            distortion, alias = design.transfer(is_complex)
            print(f"{design.name}, {'complex' if is_complex else 'real'}: distortion within "
                  f"{np.max(np.abs(distortion - 1)):.1e}, aliases {decibels(np.max(alias)):.1f} dB")


if __name__ == "__main__":
    main()
