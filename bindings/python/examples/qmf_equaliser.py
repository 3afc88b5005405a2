#!/usr/bin/python3
"""An equaliser in the sub-bands of a 64-band QMF bank: what is asked for, and what comes out.

usage: qmf_equaliser.py [--picture FILE]
"""
import argparse

import korla
import matplotlib
import numpy as np

matplotlib.use("Agg")
import matplotlib.pyplot as plt

RATE, BANDS = 48000, 64


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--picture")
    arguments = parser.parse_args()
    centres = (np.arange(BANDS) + 0.5) * RATE / (2 * BANDS)
    wanted = 6 * np.exp(-((centres - 3000) / 1500) ** 2) - 12 * np.exp(-((centres - 9000) / 2500) ** 2)

    x = np.random.default_rng(1).standard_normal(BANDS * 6000).astype(np.float32)
    bank = korla.QMF(BANDS)
    y = bank.synthesis(bank.analysis(x) * (10 ** (wanted / 20)).astype(np.float32))[bank.delay:]
    x = x[:len(y)]

    window = np.hanning(1024).astype(np.float32)
    spectra = [korla.fft.rfft(signal[:len(y) // 1024 * 1024].reshape(-1, 1024) * window) for signal in (x, y)]
    power = [np.mean(np.abs(spectrum) ** 2, axis=0) for spectrum in spectra]
    measured = 10 * np.log10(power[1] / power[0])
    frequency = np.arange(513) * RATE / 1024
    off = np.max(np.abs(np.interp(centres[1:-1], frequency, measured) - wanted[1:-1]))
    print(f"{BANDS} bands of {RATE / 2 / BANDS:.0f} Hz; the gain differs from what was asked for by {off:.2f} dB at the most")
    if arguments.picture:
        figure, axis = plt.subplots(figsize=(9, 5), layout="constrained")
        axis.plot(centres, wanted, "o", markersize=3, label="asked of the bands")
        axis.plot(frequency, measured, linewidth=1, label="measured")
        axis.set(xlabel="Hz", ylabel="dB", title="Equaliser of 64 QMF sub-bands", xlim=(0, RATE / 2))
        axis.legend()
        axis.grid(alpha=0.3)
        figure.savefig(arguments.picture, dpi=100)


main()
