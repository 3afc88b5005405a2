#!/usr/bin/python3
"""Measures the limiter's gain over bursts and draws docs/images/limiter-bursts.png.

Usage: PYTHONPATH=build/release/python plot_limiter.py

A separate detection signal shows the gain itself: the limiter follows the burst and is applied to a constant 1, so that
what comes out is the gain sample by sample. Needs numpy and matplotlib, and prints the figures of docs/limiter.md.
"""
import pathlib

import korla
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

ROOT = pathlib.Path(__file__).resolve().parent.parent
RATE, SUBBLOCK, PEAK = 48000, 32, 0.398107171


def limiter():
    return korla.Limiter(1, RATE, SUBBLOCK, PEAK)


def decibels(x):
    return 20 * np.log10(np.maximum(np.abs(x), 1e-6))


def burst(duration, burst_ms, before_ms=100):
    """A 1 kHz tone 6 dB below the peak, and 12 dB above it in the burst."""
    t = np.arange(int(duration * RATE) // SUBBLOCK * SUBBLOCK) / RATE * 1000 - before_ms
    loud = (t >= 0) & (t < burst_ms)
    return t, np.where(loud, 4.0, 0.5) * PEAK * np.sin(2 * np.pi * t)


def gain_of(signal):
    """The gain at every output sample; the first sub-block comes out of the empty delay line."""
    gain = limiter().process(np.ones(len(signal)), detect=signal)
    gain[:SUBBLOCK] = 1
    return gain


def draw_attack(axis):
    t, signal = burst(0.2, 5)
    out = limiter().process(signal)
    delayed = np.concatenate([np.zeros(SUBBLOCK), signal[:-SUBBLOCK]])
    axis.plot(t, delayed / PEAK, color="0.7", label="input, 32 samples later")
    axis.plot(t, out / PEAK, color="C0", label="output")
    axis.plot(t, gain_of(signal), color="C3", label="gain")
    for level in (-1, 1):
        axis.axhline(level, color="k", linewidth=0.6, linestyle=":")
    axis.set(xlim=(-0.7, 7.5), ylim=(-4.3, 4.3), xlabel="ms from the burst", ylabel="amplitude / peak",
             title="5 ms of a tone 12 dB above the peak")
    axis.legend(loc="lower right", fontsize=8)


def draw_recoveries(axis):
    for burst_ms in (5, 50, 500):
        t, signal = burst(2.0, burst_ms)
        gain = gain_of(signal)
        axis.plot(t - burst_ms, decibels(gain), label=f"after {burst_ms} ms")
        at = {ms: decibels(gain[np.searchsorted(t - burst_ms, ms)]) for ms in (1, 20, 100, 500)}
        print(f"after {burst_ms:3} ms: " + ", ".join(f"{db:5.1f} dB at {ms} ms" for ms, db in at.items()))
    axis.set(xlim=(-20, 600), ylim=(-13, 0.5), xlabel="ms from the end of the burst", ylabel="gain, dB",
             title="Recovery: the longer the burst, the slower")
    axis.legend(loc="lower right", fontsize=8)


def main():
    figure, axes = plt.subplots(1, 2, figsize=(11, 4.2), layout="constrained")
    draw_attack(axes[0])
    draw_recoveries(axes[1])
    for axis in axes:
        axis.grid(True, linewidth=0.3)
    figure.savefig(ROOT / "docs/images/limiter-bursts.png", dpi=90, metadata={"Software": None})


if __name__ == "__main__":
    main()
