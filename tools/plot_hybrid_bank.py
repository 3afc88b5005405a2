#!/usr/bin/env python3
"""Measures the hybrid bank through the exported functions and draws docs/images/hybrid-bank-*.

Usage: plot_hybrid_bank.py [library]     (default: build/release/libkorladownmixer.so)

The hybrid bank does not decimate, so impulses in each of its three inputs say everything: the responses of the sub-bands,
and of analysis and synthesis together. Needs numpy, matplotlib and pillow.
"""
import ctypes
import sys

import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from plot_modulated_bank import draw_flow
from plot_qmf_bank import FLOATS, ROOT, decibels, save_small

LENGTH = 13


def run(dll, config, x):
    """x[slot][3] complex: hybrid sub-bands per slot, and the QMF samples that the synthesis makes of them."""
    for name in ("KRL_hybrid_analysisCL_open", "KRL_hybrid_synthesisCL_open"):
        getattr(dll, name).restype = ctypes.c_void_p
    state, analysis_memory, synthesis_memory = (ctypes.create_string_buffer(size) for size in (343, 39, 15))
    analysis = ctypes.c_void_p(dll.KRL_hybrid_analysisCL_open(config, state, None, analysis_memory))
    synthesis = ctypes.c_void_p(dll.KRL_hybrid_synthesisCL_open(config, None, None, synthesis_memory))
    assert analysis and synthesis, "refused"
    sub_bands, restored = [], []
    for slot in np.asarray(x, np.complex64):
        bands, out = np.zeros(16, np.complex64), np.zeros(3, np.complex64)
        dll.KRL_CLhybrid_analysisCL(analysis, bands.ctypes.data_as(FLOATS), slot.ctypes.data_as(FLOATS))
        dll.KRL_CLhybrid_synthesisCL(synthesis, out.ctypes.data_as(FLOATS), bands.ctypes.data_as(FLOATS))
        sub_bands.append(bands)
        restored.append(out)
    return np.array(sub_bands), np.array(restored)


def impulse(band):
    x = np.zeros((LENGTH, 3), np.complex64)
    x[0, band] = 1.0
    return x


def draw_responses(dll):
    figure, axes = plt.subplots(2, 2, figsize=(9, 6.2), layout="constrained")
    panels = ((1, 0, range(8), "16 bands: QMF band 0, 8 ways"), (1, 1, range(8, 12), "16 bands: QMF band 1, 4 ways"),
              (0, 0, range(6), "10 bands: QMF band 0, 6 outputs"), (0, 1, range(6, 8), "10 bands: QMF band 1, low and high"))
    for panel, (config, band, outputs, title) in zip(axes.ravel(), panels):
        taps = run(dll, config, impulse(band))[0][:, list(outputs)]
        response = decibels(np.abs(np.fft.fftshift(np.fft.fft(taps, 4096, axis=0), axes=0)))
        panel.plot(np.linspace(-1, 1, 4096, endpoint=False), response, linewidth=1.0)
        panel.set(title=title, xlabel="frequency in the QMF band (1 = half its sampling rate)", ylabel="dB", ylim=(-60, 3),
                  xlim=(-1, 1))
        panel.grid(linewidth=0.4, alpha=0.6)
    save_small(figure, "hybrid-bank-responses.png")


def draw_prototypes(dll):
    figure, (taps_axes, response_axes) = plt.subplots(1, 2, figsize=(9, 3.4), layout="constrained")
    def table(name, size):
        return np.array((ctypes.c_float * size).in_dll(dll, name), float)
    eight, four = np.abs(table("krl_hyb_p8_13", 13)), table("krl_hyb_p4_13", 13)
    four *= np.where(np.isin(np.arange(13), (1, 3, 4, 9, 11, 12)), -1, 1)  # the signs that the phase factors undo
    two = np.zeros(13)
    two[1::2], two[6] = table("krl_hyb_p2_6", 6), 0.5
    for name, taps in (("8 ways", eight), ("4 ways", four), ("2 ways", two)):
        taps_axes.plot(np.arange(13), taps, marker=".", linewidth=1.0, label=name)
        response = decibels(np.abs(np.fft.rfft(taps, 4096)))
        response_axes.plot(np.linspace(0, 1, len(response)), response, linewidth=1.0, label=name)
    taps_axes.set(title="prototypes g[n]", xlabel="n", ylabel="tap")
    response_axes.set(title="responses", xlabel="frequency (1 = half the rate of the slots)", ylabel="dB", ylim=(-60, 3))
    for axes in (taps_axes, response_axes):
        axes.grid(linewidth=0.4, alpha=0.6)
        axes.legend(fontsize="small")
    save_small(figure, "hybrid-bank-prototypes.png")


FLOW = (
    ("QMF band 0", ("13 past samples", "fold to 8 inputs,\nrotate", "inverse FFT of 8", "8 sub-bands, or 6", "sum", "delayed by 6")),
    ("bands 1, 2", ("13 past samples\neach", "fold to 4 inputs,\nrotate", "inverse FFT of 4", "4 sub-bands each", "sum", "delayed by 6")),
    ("or", ("13 past samples\neach", "half-band filter", "and complement", "low and high each", "sum", "delayed by 6")),
)


def main():
    matplotlib.rcParams.update({"svg.hashsalt": "hybrid-bank", "svg.fonttype": "none"})
    dll = ctypes.CDLL(str(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build" / "release" / "libkorladownmixer.so"))
    draw_flow(FLOW, "hybrid-bank-flow.svg")
    draw_prototypes(dll)
    draw_responses(dll)
    random = np.random.default_rng(1)
    for config in (0, 1, 4, 5):
        worst = 0.0
        for band in range(3):
            _, restored = run(dll, config, impulse(band))
            spectrum = np.fft.fft(np.roll(restored, -6, axis=0), 4096, axis=0)
            spectrum[:, band] -= 1.0
            worst = max(worst, np.max(np.abs(spectrum)))
        x = random.uniform(-1, 1, (2000, 3)) + 1j * random.uniform(-1, 1, (2000, 3))
        _, restored = run(dll, config, x)
        error = restored[6:] - x.astype(np.complex64)[:-6]
        print(f"configuration {config}: distortion and leakage between bands within {worst:.1e}, noise rms error "
              f"{np.sqrt(np.mean(np.abs(error) ** 2) / np.mean(np.abs(x) ** 2)):.1e}")


if __name__ == "__main__":
    main()
