#!/usr/bin/env python3
"""Measures the modulated bank and draws docs/images/modulated-bank-*.

Usage: PYTHONPATH=build/release/python plot_modulated_bank.py

Distortion and aliases come from impulses at each of the M phases of a slot, as in plot_qmf_bank.py.
Needs numpy, matplotlib and pillow.
"""
import korla
import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from plot_qmf_bank import IMAGES, decibels, save_small

SLOTS = 24


def chain(x, bands, *tables, gains=1.0):
    """Analysis and synthesis of x; tables: variant, prototype, twiddle."""
    bank = korla.MFB(bands, *tables)
    return bank.synthesis(bank.analysis(np.ravel(x)) * np.asarray(gains, np.float32))


def impulses(bands):
    for phase in range(bands):
        x = np.zeros((SLOTS, bands), np.float32)
        x[0, phase] = 1.0
        yield phase, x


def transfer(bands, *tables, gains=1.0):
    """Distortion function and root of the summed power of all aliases, over frequency 0..1 of Nyquist."""
    spectra = []
    for phase, x in impulses(bands):
        y = chain(x, bands, *tables, gains=gains).astype(float)
        spectra.append(np.fft.rfft(np.roll(y, -phase), max(4096, len(y))))
    aliases = np.fft.fft(spectra, axis=0) / bands
    return np.abs(aliases[0]), np.sqrt(np.sum(np.abs(aliases[1:]) ** 2, axis=0))


def band_response(bands, *tables, band):
    """Magnitude response of one complex sub-band over -1..1 of Nyquist, in dB of its peak."""
    taps = np.zeros(SLOTS * bands, complex)
    for phase, x in impulses(bands):
        taps[np.arange(1, SLOTS + 1) * bands - 1 - phase] = korla.MFB(bands, *tables).analysis(x.ravel())[:, band]
    response = np.abs(np.fft.fftshift(np.fft.fft(taps, 8192)))
    return decibels(response / np.max(response))


def reconstruction_error(bands, *tables):
    x = np.random.default_rng(1).uniform(-1, 1, (1000, bands))
    y = chain(x, bands, *tables).astype(float)
    delay = korla.MFB(bands, *tables).delay
    expected = np.r_[np.zeros(delay), x.astype(np.float32).ravel().astype(float)][:len(y)]
    return np.sqrt(np.mean((y - expected) ** 2) / np.mean(expected ** 2)), np.max(np.abs(y - expected))


def draw_prototypes():
    figure, (taps_axes, response_axes) = plt.subplots(1, 2, figsize=(9, 3.6), layout="constrained")
    for name, block_order in (("P64KVX301", 1), ("P64KVX301_LEGACY", -1), ("P4_319SC", 1)):
        grouped = korla.prototypes()[f"mfb {name}/64"].astype(float)
        taps = grouped.reshape(16, 10, 4).transpose(1, 0, 2).reshape(10, 64)[:, ::block_order].ravel()
        taps_axes.plot(np.arange(640) / 64, taps, linewidth=1.0, label=name)
        response = decibels(np.abs(np.fft.rfft(taps, 1 << 15)) / np.sum(taps))
        response_axes.plot(np.linspace(0, 64, len(response)), response, linewidth=0.9, label=name)
    taps_axes.set(title="prototypes c[n]", xlabel="n / M", ylabel="tap")
    response_axes.set(title="responses", xlabel="frequency in band widths (π/M)", ylabel="dB", xlim=(0, 8), ylim=(-90, 3))
    for axes in (taps_axes, response_axes):
        axes.grid(linewidth=0.4, alpha=0.6)
        axes.legend(fontsize="small")
    save_small(figure, "modulated-bank-prototypes.png")


def draw_responses():
    figure, (bands_axes, distortion_axes, alias_axes) = plt.subplots(3, 1, figsize=(9, 10), layout="constrained")
    frequency = np.linspace(-1, 1, 8192, endpoint=False) * 64
    for tables in (("symmetric", "P64KVX301", "E"), ("legacy", "P64KVX301_LEGACY", "O"), ("even_0", "P4_319SC", "E")):
        synthesis, name, _ = tables
        bands_axes.plot(frequency, band_response(64, *tables, band=10), linewidth=1.0, label=name)
        distortion, alias = transfer(64, *tables)
        axis = np.linspace(0, 64, len(distortion))
        label = f"{name}, {synthesis}"
        distortion_axes.plot(axis, 1e6 * (distortion - 1), linewidth=0.9, label=label)
        alias_axes.plot(axis, decibels(alias), linewidth=0.9, label=label)
        gains = np.ones(64)
        gains[10] = 0.0
        _, muted = transfer(64, *tables, gains=gains)
        alias_axes.plot(axis, decibels(muted), linewidth=1.2, linestyle="--", label=f"{name}, band 10 muted")
        print(f"{label}, one band muted: aliases {decibels(np.max(muted)):.1f} dB")
    bands_axes.set(title="Sub-band 10 of 64, from its impulse response", xlim=(-4, 24), ylim=(-100, 5),
                   xlabel="frequency in band widths (π/M)", ylabel="dB")
    distortion_axes.set(title="Analysis and synthesis: distortion function minus 1", xlim=(0, 64),
                        xlabel="frequency in band widths (π/M)", ylabel="parts per million")
    alias_axes.set(title="Analysis and synthesis: all aliases together", xlim=(0, 24), ylim=(-160, 0),
                   xlabel="frequency in band widths (π/M)", ylabel="dB")
    for axes in (bands_axes, distortion_axes, alias_axes):
        axes.grid(linewidth=0.4, alpha=0.6)
    bands_axes.legend(fontsize="small")
    distortion_axes.legend(fontsize="small")
    alias_axes.legend(fontsize="small", ncols=3, loc="lower center", bbox_to_anchor=(0.5, 0.2))
    save_small(figure, "modulated-bank-responses.png")


def draw_flow(rows, file):
    """rows: (name, texts of the boxes from left to right)."""
    figure, axes = plt.subplots(figsize=(9.5, 1.5 * len(rows)))
    axes.axis("off")
    for row, (name, boxes) in enumerate(rows):
        axes.text(-0.75, -row, name, ha="center", va="center", fontweight="bold", fontsize=9)
        for column, text in enumerate(boxes):
            axes.text(column * 1.15, -row, text, ha="center", va="center", fontsize=8,
                      bbox={"boxstyle": "round,pad=0.5", "facecolor": "#eef3fa", "edgecolor": "#40608a"})
            if column:
                axes.annotate("", ((column - 0.4) * 1.15, -row), ((column - 0.6) * 1.15, -row),
                              arrowprops={"arrowstyle": "->"})
    axes.set(xlim=(-1.1, max(len(boxes) for _, boxes in rows) * 1.15 - 0.5), ylim=(0.5 - len(rows), 0.5))
    figure.savefig(IMAGES / file, bbox_inches="tight", metadata={"Date": None})
    plt.close(figure)


FLOW = (
    ("analysis", ("M samples", "ring of 9 past blocks\nper channel", "10 taps a phase:\nE even, O odd blocks",
                  "(O + iE) · twiddle", "FFT of M, / M", "band 2k: bin k\nband 2k+1: bin\nM−1−k, conjugated")),
    ("synthesis", ("M complex bands", "bands to bins,\none half conjugated", "FFT of M", "· twiddle:\nRe and Im",
                   "transposed delay line\n10 taps, 9 sums a phase", "M samples")),
)


def main():
    matplotlib.rcParams.update({"svg.hashsalt": "modulated-bank", "svg.fonttype": "none"})
    draw_flow(FLOW, "modulated-bank-flow.svg")
    draw_prototypes()
    draw_responses()
    for synthesis, name, bands, twiddle in (
            ("symmetric", "P64KVX301", 64, "E"), ("legacy", "P64KVX301", 64, "E"),
            ("legacy", "P64KVX301_LEGACY", 64, "O"), ("legacy_extra_latency", "P64KVX301", 64, "O"),
            ("legacy_extra_latency", "P64KVX301_LEGACY", 64, "O"),
            ("even_0", "P4_319SC", 64, "E"), ("even_1", "P4_319SC", 64, "E"), ("even_2", "P4_319SC", 64, "E"),
            ("even_3", "P4_319SC", 64, "E"), ("even_0", "P4_319SC", 128, "E"), ("even_0", "P4_319SC", 256, "E")):
        tables = synthesis, name, twiddle
        distortion, alias = transfer(bands, *tables)
        rms, peak = reconstruction_error(bands, *tables)
        print(f"| {synthesis} | {name} | {bands} | {rms:.1e} / {peak:.1e} | {np.max(np.abs(distortion - 1)):.1e} | "
              f"{decibels(np.max(alias)):.0f} dB |")


if __name__ == "__main__":
    main()
