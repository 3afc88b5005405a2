#!/usr/bin/env python3
"""Measures the hybrid bank and draws docs/images/hybrid-bank-*.

Usage: PYTHONPATH=build/release/python plot_hybrid_bank.py

The hybrid bank does not decimate, so impulses in each of its three inputs say everything: the responses of the sub-bands,
and of analysis and synthesis together. Needs numpy, matplotlib and pillow.
"""
import korla
import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from plot_modulated_bank import draw_flow
from plot_qmf_bank import decibels, save_small

LENGTH = 13


def run(config, x):
    """x[slot][3] complex: hybrid sub-bands per slot, and the QMF samples that the synthesis makes of them."""
    bank = korla.Hybrid(16 if config & 1 else 10, bool(config & 4) and bool(config & 1))
    subbands = bank.analysis(x)
    return subbands, bank.synthesis(subbands)


def impulse(band):
    x = np.zeros((LENGTH, 3), np.complex64)
    x[0, band] = 1.0
    return x


def draw_responses():
    figure, axes = plt.subplots(2, 2, figsize=(9, 6.2), layout="constrained")
    panels = ((1, 0, range(8), "16 bands: QMF band 0, 8 ways"), (1, 1, range(8, 12), "16 bands: QMF band 1, 4 ways"),
              (0, 0, range(6), "10 bands: QMF band 0, 6 outputs"), (0, 1, range(6, 8), "10 bands: QMF band 1, low and high"))
    for panel, (config, band, outputs, title) in zip(axes.ravel(), panels):
        taps = run(config, impulse(band))[0][:, list(outputs)]
        response = decibels(np.abs(np.fft.fftshift(np.fft.fft(taps, 4096, axis=0), axes=0)))
        panel.plot(np.linspace(-1, 1, 4096, endpoint=False), response, linewidth=1.0)
        panel.set(title=title, xlabel="frequency in the QMF band (1 = half its sampling rate)", ylabel="dB", ylim=(-60, 3),
                  xlim=(-1, 1))
        panel.grid(linewidth=0.4, alpha=0.6)
    save_small(figure, "hybrid-bank-responses.png")


def draw_prototypes():
    figure, (taps_axes, response_axes) = plt.subplots(1, 2, figsize=(9, 3.4), layout="constrained")
    taps = {name: table.astype(float) for name, table in korla.prototypes().items()}
    eight, four = np.abs(taps["hybrid 8"]), taps["hybrid 4"]
    four *= np.where(np.isin(np.arange(13), (1, 3, 4, 9, 11, 12)), -1, 1)  # the signs that the phase factors undo
    two = np.zeros(13)
    two[1::2], two[6] = taps["hybrid 2"], 0.5
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
    draw_flow(FLOW, "hybrid-bank-flow.svg")
    draw_prototypes()
    draw_responses()
    random = np.random.default_rng(1)
    for config in (0, 1, 5):
        worst = 0.0
        for band in range(3):
            _, restored = run(config, impulse(band))
            spectrum = np.fft.fft(np.roll(restored, -6, axis=0), 4096, axis=0)
            spectrum[:, band] -= 1.0
            worst = max(worst, np.max(np.abs(spectrum)))
        x = random.uniform(-1, 1, (2000, 3)) + 1j * random.uniform(-1, 1, (2000, 3))
        _, restored = run(config, x)
        error = restored[6:] - x.astype(np.complex64)[:-6]
        print(f"configuration {config}: distortion and leakage between bands within {worst:.1e}, noise rms error "
              f"{np.sqrt(np.mean(np.abs(error) ** 2) / np.mean(np.abs(x) ** 2)):.1e}")


if __name__ == "__main__":
    main()
