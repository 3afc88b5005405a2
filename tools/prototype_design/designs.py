"""The designs: which conditions, which objective, and from which curve each one starts."""
from dataclasses import dataclass
from functools import lru_cache
from typing import Callable

import numpy as np

from . import conditions as equations
from . import optimise

# Level of the two echoes that phases 0 and bands/2 of a QMF prototype are left with.  With them a chain of float
# tables stays below a peak error of 1e-6.
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


SMALLEST = 8  # band count at which searches begin


def _next(make, y, bands, target):
    """The curve y of one band count resampled to another."""
    return optimise.resample(make(bands), y, make(target))


def _least_energy(make, y, bands):
    conditions = make(bands)
    return optimise.minimise_energy(conditions, y, optimise.stop_band_energy(conditions))[0]


def _random_minima(make, length, place, count):
    """Local minima of the stop-band energy at the smallest band count, least first, from random windows."""
    conditions = make(SMALLEST)
    return optimise.energy_minima(conditions, optimise.random_windows(conditions, length, place, seed=1, count=count))


@lru_cache(maxsize=None)
def qmf_least_energy(bands, periods):
    """Least stop-band energy from pi/bands on."""
    def make(m):
        return qmf(m, periods)
    if bands == 64:
        m, y = SMALLEST, _random_minima(make, 2 * periods * SMALLEST + 1, 0, 200)[0]
        while m < bands:
            y = _least_energy(make, _next(make, y, m, 2 * m), 2 * m)
            m *= 2
        return y
    return _least_energy(make, _next(make, qmf_least_energy(64, periods), 64, bands), bands)


@lru_cache(maxsize=None)
def qmf_least_peak(bands, periods):
    """Least stop-band peak from pi/bands on; 64 bands start from least energy, the others from 64 bands."""
    def make(m):
        return qmf(m, periods)
    if bands == 64:
        y = optimise.minimise_peak(make(64), qmf_least_energy(64, periods))
    else:
        y = _next(make, qmf_least_peak(64, periods), 64, bands)
    return optimise.minimise_peak(make(bands), y, energy_share=0.1)


@lru_cache(maxsize=None)
def _modulated_search(make, length, place, count):
    """Least peak at twice the smallest band count: the best few minima of least energy compete twice."""
    minima = _random_minima(make, length, place, count)[:24]
    start, bands = make(SMALLEST), 2 * SMALLEST
    finalists = optimise.lowest_peaks(start, [optimise.minimise_peak(start, y) for y in minima], 6)
    return optimise.lowest_peaks(make(bands), [
        optimise.minimise_peak(make(bands), _next(make, y, SMALLEST, bands)) for y in finalists], 1)[0]


@lru_cache(maxsize=None)
def modulated_symmetric(bands):
    make, m = equations.modulated_symmetric, 2 * SMALLEST
    y = _modulated_search(make, 10 * SMALLEST, 0, 120)
    while m < bands:
        y = optimise.minimise_peak(make(2 * m), _next(make, y, m, 2 * m), energy_share=0.03, iterations=40)
        m *= 2
    return y


@lru_cache(maxsize=None)
def modulated_low_delay(bands):
    """One curve, designed with 32 bands, is resampled to more bands and restored onto their equations."""
    make = equations.modulated_low_delay
    if bands == 32:
        # The search starts from symmetric windows on the newest five of the ten blocks.
        y = _modulated_search(make, 5 * SMALLEST, 5 * SMALLEST, 100)
        return optimise.minimise_peak(make(32), _next(make, y, 16, 32), energy_share=0.03)
    y = make(bands).restore(_next(make, modulated_low_delay(bands // 2), bands // 2, bands))
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
