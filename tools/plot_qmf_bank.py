#!/usr/bin/env python3
"""Measures the QMF banks through the exported functions and draws docs/images/qmf-bank-*.

Usage: plot_qmf_bank.py [library]     (default: build/release/libkorladownmixer.so)

Analysis and synthesis together are a system that changes with time, periodically with M samples. Its responses to an
impulse at each of the M phases of a slot say everything: with H_f the spectrum of the response to an impulse at phase f,
T_l = (1/M) sum over f of H_f exp(-2 pi j l f / M) is the distortion function for l = 0 and the gain of the l-th alias
otherwise (P. P. Vaidyanathan, Multirate Systems and Filter Banks, 1993, chapter 5). Needs numpy, matplotlib, pillow.
"""
import ctypes
import io
import pathlib
import sys

import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from PIL import Image

ROOT = pathlib.Path(__file__).resolve().parent.parent
IMAGES = ROOT / "docs" / "images"
FLOATS = ctypes.POINTER(ctypes.c_float)


class Library:
    def __init__(self, path):
        self.dll = ctypes.CDLL(str(path))
        for name in ("krl_qmf_analysisL_open", "krl_qmf_synthesisL_open"):
            getattr(self.dll, name).restype = ctypes.c_void_p

    def table(self, name, size):
        return np.array((ctypes.c_float * size).in_dll(self.dll, name))


class Bank:
    """One analysis or synthesis with memory of its own."""

    def __init__(self, library, kind, bands, periods, mode, slots, table):
        dll = library.dll
        sizes = [ctypes.c_uint32() for _ in range(3)]
        getattr(dll, f"KRL_qmf_{kind}L_query_mem")(bands, periods, *map(ctypes.byref, sizes))
        self.memory = [ctypes.create_string_buffer(size.value) for size in sizes]
        self.table = np.ascontiguousarray(table, np.float32)
        self.handle = ctypes.c_void_p(getattr(dll, f"krl_qmf_{kind}L_open")(
            bands, slots, mode, periods, self.table.ctypes.data_as(FLOATS), *self.memory))
        assert self.handle, "refused"
        self.dll, self.bands, self.slots = dll, bands, slots

    def rows(self, array):
        return (FLOATS * self.slots)(*[row.ctypes.data_as(FLOATS) for row in array])

    def analyse(self, x, is_complex):
        x = np.ascontiguousarray(x, np.float32)
        out = np.zeros((self.slots, self.bands * (2 if is_complex else 1)), np.float32)
        if is_complex:
            self.dll.KRL_CLqmf_analysisL(self.handle, self.rows(out), x.ctypes.data_as(FLOATS))
        else:
            self.dll.KRL_Lqmf_analysisL(self.handle, out.ctypes.data_as(FLOATS), x.ctypes.data_as(FLOATS))
        return out

    def synthesise(self, subbands, is_complex):
        subbands = np.ascontiguousarray(subbands, np.float32)
        out = np.zeros(self.slots * self.bands, np.float32)
        if is_complex:
            self.dll.KRL_Lqmf_synthesisCL(self.handle, out.ctypes.data_as(FLOATS), self.rows(subbands))
        else:
            self.dll.KRL_Lqmf_synthesisL(self.handle, out.ctypes.data_as(FLOATS), subbands.ctypes.data_as(FLOATS))
        return out


class Design:
    def __init__(self, library, name, bands, periods):
        self.library, self.bands, self.periods = library, bands, periods
        size = 2 * periods * bands
        self.analysis = library.table(f"krl_qmf_filter_coeff_{name}_vec_ana", size)
        self.synthesis = library.table(f"krl_qmf_filter_coeff_{name}_vec_syn", size)
        self.name, self.slots = name, 4 * periods + 2

    def subbands(self, x, is_complex):
        bank = Bank(self.library, "analysis", self.bands, self.periods, 0, self.slots, self.analysis)
        return bank.analyse(x, is_complex)

    def chain(self, x, is_complex, gains=None):
        subbands = self.subbands(x, is_complex)
        if gains is not None:
            subbands *= np.repeat(gains, 2 if is_complex else 1).astype(np.float32)
        bank = Bank(self.library, "synthesis", self.bands, self.periods, 0, self.slots, self.synthesis)
        return bank.synthesise(subbands, is_complex)

    def impulses(self):
        for phase in range(self.bands):
            x = np.zeros(self.slots * self.bands)
            x[phase] = 1.0
            yield phase, x

    def transfer(self, is_complex, gains=None):
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
            subbands = self.subbands(x, True)
            subbands = subbands[:, 0::2] + 1j * subbands[:, 1::2]
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
    taps = np.r_[0.0, signs * design.analysis]
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
    library = Library(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build" / "release" / "libkorladownmixer.so")
    design = Design(library, "P5_p64kvx301", 64, 5)
    draw_flow()
    draw_prototype(design)
    draw_responses(design)
    for name, bands, periods in (("P5", 64, 5), ("P4", 64, 4), ("P5_p64kvx301_48", 48, 5), ("P5_32", 32, 5),
                                 ("P4_32", 32, 4), ("P5_p64kvx301_16", 16, 5), ("P5_p64kvx301_8", 8, 5)):
        for is_complex in (False, True):
            distortion, alias = Design(library, name, bands, periods).transfer(is_complex)
            print(f"{name}, {'complex' if is_complex else 'real'}: distortion within "
                  f"{np.max(np.abs(distortion - 1)):.1e}, aliases {decibels(np.max(alias)):.1f} dB")


if __name__ == "__main__":
    main()
