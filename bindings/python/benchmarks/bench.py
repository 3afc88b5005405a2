#!/usr/bin/python3
"""The package beside scipy.fft, and beside a matrix product with a plain limiter in numpy.

Both sides run in turns; each keeps its best time of many. A ratio above 1 says that korla is that many times as fast."""
import time

import korla
import numpy as np
import scipy.fft

ROUNDS = 60


def best(*calls):
    """The least time of each call, in seconds."""
    least = [float("inf")] * len(calls)
    for _ in range(ROUNDS):
        for k, call in enumerate(calls):
            start = time.perf_counter()
            call()
            least[k] = min(least[k], time.perf_counter() - start)
    return least


def show(name, own, peer):
    print(f"{name:<44} {own * 1e6:10.1f} us {peer * 1e6:10.1f} us {peer / own:8.2f}")


def plain_downmix(x, gains, block=32, release=0.999):
    """The product, then a gain for each block that keeps peaks at full scale: down at once, up slowly."""
    y = x @ gains.T
    peaks = np.abs(y[:len(y) // block * block]).reshape(-1, block * y.shape[1]).max(axis=1)
    wanted = 1 / np.maximum(peaks, 1)
    gain = np.empty_like(wanted)
    now = 1.0
    for k, g in enumerate(wanted):
        now = min(g, 1 - release * (1 - now))
        gain[k] = now
    y[:len(gain) * block] *= np.repeat(gain, block)[:, None].astype(np.float32)
    return y


def main():
    random = np.random.default_rng(1)
    print(f"{'':<44} {'korla':>13} {'peer':>13} {'ratio':>8}")
    for n in (480, 1024):
        x = random.standard_normal((100, n)).astype(np.float32)
        z = (x + 1j * x[::-1]).astype(np.complex64)
        show(f"fft, 100 rows of {n}, beside scipy.fft", *best(lambda: korla.fft.fft(z), lambda: scipy.fft.fft(z)))
        show(f"rfft, 100 rows of {n}, beside scipy.fft", *best(lambda: korla.fft.rfft(x), lambda: scipy.fft.rfft(x)))
        show(f"dct, 100 rows of {n}, beside scipy.fft", *best(lambda: korla.dct.dct(x), lambda: scipy.fft.dct(x)))
    for source, target in (("5.1", "stereo"), ("7.1.4", "stereo"), ("7.1.4", "5.1")):
        gains, _ = korla.matrix(source, target)
        x = random.uniform(-1, 1, (48000, gains.shape[1])).astype(np.float32)
        show(f"1 s of {source} to {target}, beside numpy",
             *best(lambda: korla.downmix(x, source, target, 48000), lambda: plain_downmix(x, gains)))


main()
