#!/usr/bin/env python3
"""Measures the FFT kernels, prints their errors, and draws docs/images/fft-480-passes.svg.

Usage: PYTHONPATH=build/release/python plot_fft.py

The errors are those of one random signal a length, forward and inverse, against numpy's transform in double precision. The
picture shows one butterfly of every pass, with the plan that src/dsp/fft/plans.h has for the length. Needs numpy and
matplotlib.
"""
import re

import korla
import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from plot_qmf_bank import ROOT

LENGTHS = korla.fft.lengths[1:]


def errors(radix, n, inverse):
    """Root mean square and largest error of a kernel, relative to the root mean square of the result."""
    random = np.random.default_rng(n)
    x = (random.uniform(-1, 1, n) + 1j * random.uniform(-1, 1, n)).astype(np.complex64)
    exact = np.fft.ifft(x.astype(complex)) * n if inverse else np.fft.fft(x.astype(complex))
    out = korla.fft.kernel(x, radix, inverse)
    difference, scale = np.abs(out - exact), np.sqrt(np.mean(np.abs(exact) ** 2))
    return np.array([np.sqrt(np.mean(difference ** 2)), difference.max()]) / scale


def print_errors():
    worst = {}
    for n in LENGTHS:
        row = f"{n:6}"
        for radix in (4, 8):
            try:
                rms, most = np.max([errors(radix, n, inverse) for inverse in (False, True)], axis=0)
            except ValueError:  # no kernel of this radix
                continue
            rounded = radix == 4 and n & (n - 1) != 0 and n != 6
            worst[rounded] = np.maximum(worst.get(rounded, 0.0), (rms, most))
            row += f"   r{radix} {rms:.1e} {most:.1e}"
        print(row)
    for rounded, (rms, most) in worst.items():
        print(f"{'six decimals' if rounded else 'full precision'}: rms at most {rms:.1e}, single bins {most:.1e}")


def draw_passes(n, plan, name):
    figure, axes = plt.subplots(figsize=(9, 6.4), layout="constrained")
    gap, span = 3.0, 1
    buffers = ["in: samples, interleaved"]
    for p, radix in enumerate(plan):
        top, bottom = -gap * p, -gap * (p + 1)
        j = [9, 53, 41][p % 3]
        k = j % span
        reads = [j + q * (n // radix) for q in range(radix)]
        writes = [(j - k) * radix + k + m * span for m in range(radix)]
        middle = np.mean(reads + writes)
        axes.plot([middle], [(top + bottom) / 2], "o", color="C0", markersize=9, zorder=3)
        for position in reads:
            axes.plot([position, middle], [top - 0.25, (top + bottom) / 2], color="C0", linewidth=0.8)
        for position in writes:
            axes.plot([middle, position], [(top + bottom) / 2, bottom], color="C1", linewidth=0.8)
        turned = "no factors" if span == 1 else f"input q turned by $e^{{-2\\pi i\\,qk/{span * radix}}}$, k = j mod {span}"
        axes.text(n + 12, (top + bottom) / 2, f"pass {p + 1}: {n // radix} butterflies of {radix}\n{turned}\n"
                  f"here j = {j}", va="center", fontsize=8)
        span *= radix
        last = p == len(plan) - 1
        where = "out" if p % 2 == 0 or last else "in, now work area"
        buffers.append(f"{where}: " + ("samples, interleaved" if last else f"parts apart, {n // span} transforms of {span}"))
    for i, label in enumerate(buffers):
        y = -gap * i
        axes.add_patch(plt.Rectangle((0, y - 0.25), n, 0.25, facecolor="#dddddd", edgecolor="black", linewidth=0.6))
        size = int(np.prod(plan[:i]))
        for edge in range(0, n, max(size, 8)):
            axes.plot([edge, edge], [y - 0.25, y], color="black", linewidth=0.2)
        axes.text(n + 12, y - 0.12, label, va="center", fontsize=8, fontweight="bold")
    axes.set(xlim=(-5, 1.62 * n), ylim=(-gap * len(plan) - 0.6, 0.3), xticks=[], yticks=[])
    axes.axis("off")
    figure.savefig(ROOT / "docs" / "images" / name, metadata={"Date": None})


def main():
    matplotlib.rcParams.update({"svg.hashsalt": "fft", "svg.fonttype": "none"})
    print_errors()
    plans = re.findall(r"\bX\((\d+), ([\d, ]+)\)", (ROOT / "src/dsp/fft/plans.h").read_text())
    draw_passes(480, [int(r) for r in dict(plans)["480"].split(",")], "fft-480-passes.svg")


if __name__ == "__main__":
    main()
