"""Minimisation of the stop band of a prototype subject to its perfect-reconstruction equations.

Quadratic-constrained least squares (Nguyen 1995): the stop-band energy is a quadratic form in the taps, and so are the
reconstruction conditions.  Every iterate satisfies them: a Newton step in the tangent space (Hessian of the Lagrangian)
is followed by a restoration onto the equations.  The least peak is found likewise, each step a quadratic program whose
rows are the response on a frequency grid.  Local minima abound, so the search begins with many random windows at a
small band count, and the best curve is carried to larger band counts by doubling, resampling and solving again.
"""
import numpy as np
from scipy.interpolate import CubicSpline
from scipy.signal import firwin

from . import interior_point


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


def energy_minima(conditions, starts, edge=1.0):
    """The different local minima of the stop-band energy that the given starts lead to, least first."""
    form = stop_band_energy(conditions, edge)
    results = [r for r in (minimise_energy(conditions, start, form) for start in starts) if r is not None]
    minima = []
    for y, value in sorted(results, key=lambda result: result[1]):
        if not minima or value > minima[-1][1] * (1 + 1e-6):
            minima.append((y, value))
    return [y for y, _ in minima]


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


class StopBand:
    """Magnitude of the response from edge * pi / bands to pi, relative to zero frequency, with its derivatives.

    The grid has sixteen points per side lobe.
    """

    def __init__(self, conditions, edge=1.0):
        taps = len(conditions.unknown_of_tap)
        frequency = np.linspace(edge * np.pi / conditions.bands, np.pi, 8 * taps)
        angle = np.outer(frequency, np.arange(taps) - (conditions.centre or 0.0))
        self.real = conditions.fold(np.cos(angle))
        self.imaginary = conditions.fold(np.sin(angle)) if conditions.centre is None else None
        self.zero_frequency = conditions.fold(np.ones((1, taps)))[0]

    def magnitude(self, y):
        response = self.real @ y
        if self.imaginary is not None:
            response = np.hypot(response, self.imaginary @ y)
        return np.abs(response) / (self.zero_frequency @ y)

    def active(self, y):
        """Grid points that a step can bring to the peak: all high ones, and the tops of the low side lobes."""
        m = self.magnitude(y)
        top = np.r_[True, (m[1:-1] >= m[:-2]) & (m[1:-1] >= m[2:]), True]
        return np.nonzero((m > 0.5 * m.max()) | top)[0]

    def tangent(self, y, points):
        """At some grid points: magnitude, its gradient for fixed gain at zero frequency, and the gradient across it.

        The gradient across is that of the response's part at right angles, None for a symmetric prototype, whose
        response is real.
        """
        gain = self.zero_frequency @ y
        real = self.real[points] / gain
        a = real @ y
        if self.imaginary is None:
            return np.abs(a), np.sign(a)[:, None] * real, None
        imaginary = self.imaginary[points] / gain
        b = imaginary @ y
        m = np.hypot(a, b)
        cosine, sine = (a / m)[:, None], (b / m)[:, None]
        return m, cosine * real + sine * imaginary, cosine * imaginary - sine * real


def _peak_rows(magnitude, slope, across):
    """rows (step, new peak) <= bounds, both in units of the peak: no point may rise above the new peak.

    Low points may change their sign or phase within a step, so they are bounded from the other sides as well.
    """
    peak = np.max(magnitude)
    low = magnitude < 0.5 * peak
    rows, bounds = [slope, -slope[low]], [-magnitude, magnitude[low]]
    if across is not None:
        rows += [across[low], -across[low]]
        bounds += [np.zeros(2 * np.sum(low))]
    rows = np.vstack(rows)
    return np.hstack([rows, -np.ones((len(rows), 1))]), np.concatenate(bounds) / peak


def minimise_peak(conditions, y, edge=1.0, energy_share=0.01, iterations=60, tolerance=1e-7):
    """Least peak of the stop band by sequential quadratic programming with feasible iterates.

    Each step solves for the least linearised peak in the tangent space of the equations; its quadratic term is the
    curvature of the Lagrangian, made positive, plus a damping that adapts to success.  The step is restored onto the
    equations, and is accepted only when the true objective falls.

    The objective is peak + share * energy.  Where only some of the taps decide the peak, the energy of the stop band
    decides the others, so that the optimum is one point.
    """
    band = StopBand(conditions, edge)
    energy = stop_band_energy(conditions, edge)
    y = conditions.restore(y)
    share = energy_share * np.max(band.magnitude(y)) / (y @ energy @ y)

    def objective(y):
        return np.max(band.magnitude(y)) + share * (y @ energy @ y)

    value, damping, peak_multipliers = objective(y), 10.0, None
    for _ in range(iterations):
        points = band.active(y)
        magnitude, slope, across = band.tangent(y, points)
        peak = np.max(magnitude)
        basis, inverses = conditions.tangent_space(y)
        # Everything is scaled by the peak.  It is relative to the gain at zero frequency, which moves too.
        gradient = 2 * share * (energy @ y) - peak / (band.zero_frequency @ y) * band.zero_frequency
        curvature = 2 * share * energy
        if peak_multipliers is not None:
            multipliers = peak_multipliers[points]
            curvature = curvature + conditions.curvature(
                conditions.multipliers(inverses, gradient + slope.T @ multipliers))
            if across is not None:
                curvature = curvature + (across.T * (multipliers / np.maximum(magnitude, 1e-3 * peak))) @ across
        eigenvalues, vectors = np.linalg.eigh(basis.T @ curvature @ basis)
        rows, bounds = _peak_rows(magnitude, slope @ basis, None if across is None else across @ basis)
        accepted = None
        for _ in range(12):
            hessian = np.zeros((len(eigenvalues) + 1,) * 2)
            hessian[:-1, :-1] = (vectors * (np.maximum(eigenvalues, 0) + damping)) @ vectors.T * peak
            x, row_multipliers = interior_point.minimise(hessian, np.r_[basis.T @ gradient, 1.0], rows, bounds)
            candidate = conditions.restore(y + basis @ (x[:-1] * peak))
            if candidate is not None and objective(candidate) < value:
                accepted = candidate
                break
            damping *= 6
        if accepted is None:
            break
        gain = (value - objective(accepted)) / value
        peak_multipliers = np.zeros(len(band.real))
        peak_multipliers[points] = row_multipliers[:len(points)]
        y, value = accepted, objective(accepted)
        damping = max(damping / 4, 1e-6)
        if gain < tolerance:
            break
    return y


def peak(conditions, y, edge=1.0):
    return np.max(StopBand(conditions, edge).magnitude(y))


def lowest_peaks(conditions, candidates, count):
    """The `count` candidates of lowest peak, lowest first."""
    return sorted(candidates, key=lambda y: peak(conditions, y))[:count]
