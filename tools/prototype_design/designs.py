"""The designs: which conditions, which objective, and from which curve each one starts."""
from dataclasses import dataclass
from functools import lru_cache
from typing import Callable

import numpy as np

from . import conditions as equations
from . import optimise

# Level of the two echoes that phases 0 and bands/2 of a QMF prototype are left with.  A chain of float tables then stays
# below a peak error of 1e-6.
ECHOES = {5: (3e-7, 5e-7), 4: (5e-7, 5e-7)}


@dataclass(frozen=True)
class Design:
    name: str
    file: str  # "qmf" or "mfb"
    bands: int
    periods: int
    exported: str  # the exported table it becomes
    solve: Callable
    conditions: Callable

    def taps(self):
        """The independent taps that are committed, as float, from a positive response at zero frequency."""
        conditions, y = self.conditions(), self.solve()
        taps = conditions.taps(y)
        if conditions.centre is not None:
            taps = taps[:int(conditions.centre) + 1]
        return (taps * np.sign(np.sum(taps))).astype(np.float32)


def qmf(bands, periods):
    return equations.qmf(bands, periods, ECHOES[periods])


def _doubled(make, y, bands, last, iterations=60):
    """Carries a curve from one band count to `last` by doubling, least energy at each."""
    while bands < last:
        conditions = make(2 * bands)
        y = optimise.resample(make(bands), y, conditions)
        bands *= 2
        y, _ = optimise.minimise_energy(conditions, y, optimise.stop_band_energy(conditions), iterations)
    return y


@lru_cache(maxsize=None)
def qmf_least_energy(bands, periods):
    """Least stop-band energy from pi/bands on."""
    def make(m):
        return qmf(m, periods)
    if bands == 64:
        start = make(8)
        windows = optimise.random_windows(start, 2 * periods * 8 + 1, 0, seed=1, count=200)
        return _doubled(make, optimise.search(start, windows), 8, 64)
    y = optimise.resample(make(64), qmf_least_energy(64, periods), make(bands))
    return optimise.minimise_energy(make(bands), y, optimise.stop_band_energy(make(bands)))[0]


@lru_cache(maxsize=None)
def qmf_least_peak(bands, periods):
    """Least stop-band peak from pi/bands on; the 64-band curve starts from least energy, the others from the 64-band curve."""
    if bands == 64:
        return optimise.minimise_peak(qmf(64, periods), qmf_least_energy(64, periods))
    return optimise.minimise_peak(qmf(bands, periods), optimise.resample(
        qmf(64, periods), qmf_least_peak(64, periods), qmf(bands, periods)), rounds=25)


@lru_cache(maxsize=None)
def modulated_symmetric(bands):
    start = equations.modulated_symmetric(8)
    windows = optimise.random_windows(start, 80, 0, seed=1, count=120)
    y = _doubled(equations.modulated_symmetric, optimise.search(start, windows), 8, bands)
    return optimise.minimise_peak(equations.modulated_symmetric(bands), y)


@lru_cache(maxsize=None)
def modulated_low_delay(bands):
    """One curve, designed with 32 bands, is resampled to each band count and restored onto its equations."""
    make = equations.modulated_low_delay
    if bands == 32:
        windows = optimise.random_windows(make(8), 40, 40, seed=1, count=60)  # a symmetric prototype on the newest blocks
        y = _doubled(make, optimise.search(make(8), windows), 8, 32, iterations=20)
        return optimise.minimise_peak(make(32), y, rounds=30)
    y = make(bands).restore(optimise.resample(make(bands // 2), modulated_low_delay(bands // 2), make(bands)))
    if y is None:
        raise RuntimeError("the resampled curve cannot be restored")
    return y


def _qmf(name, bands, periods, exported, solve):
    return Design(name, "qmf", bands, periods, exported, lambda: solve(bands, periods), lambda: qmf(bands, periods))


def _mfb(name, bands, exported, solve, conditions):
    return Design(name, "mfb", bands, 5, exported, lambda: solve(bands), lambda: conditions(bands))


ALL = [
    _qmf("qmf_p5", 64, 5, "krl_qmf_filter_coeff_P5", qmf_least_energy),
    _qmf("qmf_p5_32", 32, 5, "krl_qmf_filter_coeff_P5_32", qmf_least_energy),
    _qmf("qmf_p5_p64kvx301", 64, 5, "krl_qmf_filter_coeff_P5_p64kvx301", qmf_least_peak),
    *[_qmf("qmf_p5_p64kvx301_%d" % m, m, 5, "krl_qmf_filter_coeff_P5_p64kvx301_%d" % m, qmf_least_peak)
      for m in (8, 16, 32, 48)],
    _qmf("qmf_p4", 64, 4, "krl_qmf_filter_coeff_P4", qmf_least_peak),
    _qmf("qmf_p4_32", 32, 4, "krl_qmf_filter_coeff_P4_32", qmf_least_peak),
    _mfb("mfb_p64kvx301", 64, "KRL_MFB_P10KM_P64KVX301", modulated_symmetric, equations.modulated_symmetric),
    _mfb("mfb_p4_319sc", 64, "KRL_MFB_P10KM_P4_319SC", modulated_low_delay, equations.modulated_low_delay),
    _mfb("mfb_p4_319sc_128", 128, "KRL_MFB_P10KM_P4_319SC_128M", modulated_low_delay, equations.modulated_low_delay),
    _mfb("mfb_p4_319sc_256", 256, "KRL_MFB_P10KM_P4_319SC_256M", modulated_low_delay, equations.modulated_low_delay),
]
