"""Minimisation of the stop band of a prototype subject to its perfect-reconstruction equations.

Quadratic-constrained least squares (Nguyen 1995): the stop-band energy is a quadratic form in the taps, the reconstruction
conditions are quadratic equations.  Every iterate satisfies the equations: a Newton step in the tangent space (Hessian of
the Lagrangian) is followed by a restoration onto the equations.  Local minima abound, so the search begins with many
random windows at a small band count, and the best curve is carried to larger band counts by doubling, resampling and
solving again.
"""
import numpy as np
from scipy.interpolate import CubicSpline
from scipy.signal import firwin


def stop_band_energy(conditions, edge=1.0):
    """Quadratic form over the unknowns: energy of the response from edge * pi / bands to pi, relative to the circle."""
    distance = np.arange(len(conditions.unknown_of_tap))
    w = edge * np.pi / conditions.bands
    r = np.concatenate([[1 - w / np.pi], -np.sin(w * distance[1:]) / (np.pi * distance[1:])])
    toeplitz = r[np.abs(distance[:, None] - distance[None, :])]
    return conditions.fold(conditions.fold(toeplitz).T)


def minimise_energy(conditions, y, form, iterations=60, tolerance=1e-13):
    """Feasible Newton iteration for y' form y; returns (y, value) or None when y cannot be made feasible."""
    y = conditions.restore(y)
    if y is None:
        return None
    value = y @ form @ y
    radius = 0.1 * np.linalg.norm(y)
    for _ in range(iterations):
        basis, inverses = conditions.tangent_space(y)
        gradient = 2 * form @ y
        hessian = 2 * form + conditions.curvature(conditions.multipliers(inverses, gradient))
        eigenvalues, vectors = np.linalg.eigh(basis.T @ hessian @ basis)
        slope = vectors.T @ (basis.T @ gradient)
        stiffness = np.maximum(np.abs(eigenvalues), 1e-10 * np.max(np.abs(eigenvalues)))
        accepted = None
        for _ in range(25):
            step = _step_within(slope, stiffness, radius)
            candidate = conditions.restore(y + basis @ (vectors @ step))
            if candidate is not None and candidate @ form @ candidate < value:
                accepted = candidate
                break
            radius = 0.4 * min(radius, np.linalg.norm(step))
            if radius < 1e-12:
                break
        if accepted is None:
            break
        length = np.linalg.norm(step)
        new_value = accepted @ form @ accepted
        gain = (value - new_value) / value
        y, value = accepted, new_value
        if length > 0.5 * radius:
            radius = 2.0 * length
        radius = min(1.5 * radius, np.linalg.norm(y))
        if gain < tolerance:
            break
    return y, value


def _step_within(slope, stiffness, radius):
    """Newton step -slope / (stiffness + shift) with the smallest shift that keeps it inside the radius."""
    step = -slope / stiffness
    if np.linalg.norm(step) <= radius:
        return step
    low, high = 0.0, np.linalg.norm(slope) / radius
    for _ in range(60):
        shift = 0.5 * (low + high)
        step = -slope / (stiffness + shift)
        low, high = (shift, high) if np.linalg.norm(step) > radius else (low, shift)
    return step


def random_windows(conditions, length, place, seed, count):
    """Random low-pass windows of `length` taps, written into the unknowns from tap number `place` on."""
    rng = np.random.default_rng(seed)
    bands, taps = conditions.bands, len(conditions.unknown_of_tap)
    for _ in range(count):
        beta, cut, roughness = rng.uniform(3, 20), rng.uniform(0.8, 1.5), rng.choice([0, 0.02, 0.1, 0.3])
        window = np.zeros(taps)
        window[place:place + length] = firwin(length, min(cut / (2 * bands), 0.99), window=("kaiser", beta))
        window /= np.sqrt(np.sum(window ** 2) / bands)
        y = np.zeros(conditions.unknowns)
        used = conditions.unknown_of_tap >= 0
        y[conditions.unknown_of_tap[used]] = window[used]
        t = np.linspace(0, 1, len(y))
        wave = sum(rng.standard_normal() * np.sin(np.pi * j * t) for j in range(1, 25)) / 5
        yield y + roughness * wave * (np.abs(y) / np.max(np.abs(y)) + 0.1)


def search(conditions, starts, edge=1.0):
    """The least stop-band energy reached from the given starts.

    Several starts end in the same minimum with values equal up to rounding.  The first of them is taken, so that rounding
    does not decide.
    """
    form = stop_band_energy(conditions, edge)
    best = None
    for start in starts:
        result = minimise_energy(conditions, start, form)
        if result is not None and (best is None or result[1] < best[1] * (1 - 1e-6)):
            best = result
    return best[0]


def resample(conditions, y, target):
    """The same curve over time at the band count of the conditions `target`."""
    def times(c):
        offset = 0.5 if c.centre is None or c.centre % 1 else 0.0  # tap instants: integer or half-way
        return (np.arange(len(c.unknown_of_tap)) + offset) / c.bands
    curve = CubicSpline(times(conditions), conditions.taps(y))(times(target))
    result = np.zeros(target.unknowns)
    used = target.unknown_of_tap >= 0
    result[target.unknown_of_tap[used]] = curve[used]
    return result


def minimise_peak(conditions, y, edge=1.0, rounds=40):
    """Lawson's method (1961): weights of a frequency grid are multiplied by the magnitude after every few Newton steps."""
    grid = np.linspace(edge * np.pi / conditions.bands, np.pi, 4 * len(conditions.unknown_of_tap))
    n = np.arange(len(conditions.unknown_of_tap)) - (conditions.centre or 0.0)
    real = conditions.fold(np.cos(np.outer(grid, n)))
    imaginary = conditions.fold(np.sin(np.outer(grid, n))) if conditions.centre is None else None
    weight = np.full(len(grid), 1.0 / len(grid))
    best, best_peak = None, np.inf
    for _ in range(rounds):
        form = (real.T * weight) @ real
        if imaginary is not None:
            form += (imaginary.T * weight) @ imaginary
        y, _ = minimise_energy(conditions, y, form, iterations=3)
        magnitude = np.abs(real @ y) if imaginary is None else np.hypot(real @ y, imaginary @ y)
        peak = magnitude.max() / np.abs(np.sum(conditions.taps(y)))
        if peak < best_peak:
            best, best_peak = y.copy(), peak
        weight = weight * (0.02 + magnitude / magnitude.max())
        weight /= weight.sum()
    return best
