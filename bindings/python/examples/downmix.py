#!/usr/bin/python3
"""Mixes an audio file to another layout and draws what the limiter did.

usage: downmix.py [IN OUT] [--from SPEAKERS] [--to LAYOUT] [--dialogue DB] [--picture FILE]
Without files: a bar of noise, drums and a voice-like tone in 7.1.4.
"""
import argparse

import korla
import matplotlib
import numpy as np
import soundfile

matplotlib.use("Agg")
import matplotlib.pyplot as plt

CUSTOMARY = {1: "mono", 2: "stereo", 3: "3.0", 4: "quad", 5: "5.0(back)", 6: "5.1(back)", 7: "6.1", 8: "7.1", 12: "7.1.4"}
BLOCK = 256


def made_up(rate=48000, seconds=4):
    t = np.arange(rate * seconds) / rate
    x = 0.05 * np.random.default_rng(1).standard_normal((len(t), 12))
    x[:, 2] += 0.4 * np.sin(2 * np.pi * 220 * t) * (1 + np.sin(2 * np.pi * 3 * t)) / 2
    beat = np.exp(-8 * (t % 0.5))[:, None]
    x += 0.5 * beat * np.sin(2 * np.pi * 60 * t)[:, None]
    return x.astype(np.float32), rate


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("input", nargs="?")
    parser.add_argument("output", nargs="?")
    parser.add_argument("--from", dest="source", help="speakers of the input in file order")
    parser.add_argument("--to", default="stereo")
    parser.add_argument("--dialogue", type=float, default=0.0)
    parser.add_argument("--picture")
    arguments = parser.parse_args()
    x, rate = soundfile.read(arguments.input, dtype="float32", always_2d=True) if arguments.input else made_up()
    source = arguments.source or korla.wave_order(CUSTOMARY[x.shape[1]])

    stream = korla.Stream(source, arguments.to, rate, controllable=True)
    stream.dialogue_db = arguments.dialogue
    pieces, reduction = [], []
    for at in range(0, len(x), BLOCK):
        pieces.append(stream.process(x[at:at + BLOCK]))
        reduction.append(stream.meters()["gain_reduction_db"])
    y = np.concatenate([*pieces, stream.drain()])
    print(f"{len(x)} frames, {', '.join(stream.inputs)} -> {', '.join(stream.outputs)}; gain reduction at the most "
          f"{max(reduction, default=0):.1f} dB")
    if arguments.output:
        soundfile.write(arguments.output, y, rate, "PCM_16")
    if arguments.picture:
        figure, axes = plt.subplots(3, 1, figsize=(9, 7), sharex=True, layout="constrained")
        blocks = len(x) // BLOCK * BLOCK
        time = np.arange(blocks // BLOCK) * BLOCK / rate
        for axis, signal, title in ((axes[0], x, "input"), (axes[1], y, "output")):
            peaks = np.abs(signal[:blocks]).reshape(-1, BLOCK, signal.shape[1]).max(axis=1)
            axis.plot(time, 20 * np.log10(np.maximum(peaks, 1e-5)), linewidth=0.6)
            axis.set(title=f"{title}: peaks of {signal.shape[1]} channels", ylabel="dBFS", ylim=(-60, 3))
        axes[2].fill_between(time, 0, -np.array(reduction[:len(time)]), color="C3")
        axes[2].set(title="gain reduction", ylabel="dB", xlabel="s")
        figure.savefig(arguments.picture, dpi=100)


main()
