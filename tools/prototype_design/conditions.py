"""Perfect-reconstruction conditions of the two filter banks, as quadratic equations between prototype taps.

A modulated bank whose analysis and synthesis share one prototype p reconstructs its input exactly when certain sums of
products of taps are one or zero (Malvar 1992; Koilpillai and Vaidyanathan 1992; Heller, Karp and Nguyen 1999 for the
low-delay case).  Every sum runs over taps of one polyphase pair only, so the equations fall into small independent
groups; Jacobian, null space and restoration all work group by group.

Taps that a symmetry makes equal share one unknown, and taps that must be zero have none.
"""
from dataclasses import dataclass

import numpy as np

FIXED_ZERO = -1


@dataclass(frozen=True)
class Group:
    """The equations of one polyphase pair and the unknowns that occur in them."""

    unknowns: np.ndarray  # indices into the vector of unknowns
    equations: np.ndarray  # indices into the vector of equations
    equation: np.ndarray  # per product: equation, counted within the group
    first: np.ndarray  # per product: first factor, counted within the group
    second: np.ndarray  # per product: second factor


class Conditions:
    """sum over the products of equation c of y[first] * y[second] = value[c], for the vector of unknowns y.

    `groups` lists, for each polyphase pair, its equations as (pairs of tap numbers, value).
    `centre` is the point about which the taps are symmetric, or None.
    """

    def __init__(self, bands, unknown_of_tap, centre, groups):
        self.bands = bands
        self.unknown_of_tap = np.asarray(unknown_of_tap)
        self.unknowns = int(self.unknown_of_tap.max()) + 1
        self.centre = centre
        self.groups = []
        equation, first, second, value = [], [], [], []
        for equations in groups:
            begin, number_of_products = len(value), len(equation)
            for pairs, right_hand_side in equations:
                factors = [(self.unknown_of_tap[a], self.unknown_of_tap[b]) for a, b in pairs]
                factors = [f for f in factors if FIXED_ZERO not in f]
                if not factors:
                    continue
                equation += [len(value)] * len(factors)
                first += [a for a, _ in factors]
                second += [b for _, b in factors]
                value.append(right_hand_side)
            products = slice(number_of_products, None)
            unknowns, factors = np.unique([first[products], second[products]], return_inverse=True)
            factors = factors.reshape(2, -1)
            self.groups.append(Group(unknowns, np.arange(begin, len(value)), np.array(equation[products]) - begin,
                                     factors[0], factors[1]))
        self.equation, self.first, self.second = np.array(equation), np.array(first), np.array(second)
        self.value = np.array(value, float)

    def residual(self, y):
        return np.bincount(self.equation, y[self.first] * y[self.second], len(self.value)) - self.value

    def jacobians(self, y):
        """The group and its part of the Jacobian, for every group."""
        for group in self.groups:
            jacobian = np.zeros((len(group.equations), len(group.unknowns)))
            local = y[group.unknowns]
            np.add.at(jacobian, (group.equation, group.first), local[group.second])
            np.add.at(jacobian, (group.equation, group.second), local[group.first])
            yield group, jacobian

    def restore(self, y, tolerance=1e-14, iterations=30):
        """The point near y that satisfies the equations (Gauss-Newton, least change), or None."""
        y = y.copy()
        best, best_error = None, 1e-11
        for _ in range(iterations):
            residual = self.residual(y)
            error = np.max(np.abs(residual))
            if error < best_error:
                best, best_error = y.copy(), error
            elif best is not None:
                break  # the rounding floor is reached
            if error < tolerance:
                break
            for group, jacobian in self.jacobians(y):
                y[group.unknowns] -= np.linalg.lstsq(jacobian, residual[group.equations], rcond=1e-10)[0]
            if not np.all(np.isfinite(y)) or np.linalg.norm(y) > 1e3:
                return None
        return best

    def tangent_space(self, y):
        """Orthonormal basis of the null space of the Jacobian, and what `multipliers` needs of the rest."""
        bases, inverses, count = [], [], 0
        for group, jacobian in self.jacobians(y):
            u, s, vt = np.linalg.svd(jacobian, full_matrices=True)
            rank = int(np.sum(s > 1e-9 * max(s[0], 1.0)))
            bases.append((group, vt[rank:].T))
            inverses.append((group, (u[:, :rank] / s[:rank]) @ vt[:rank]))
            count += len(group.unknowns) - rank
        basis = np.zeros((self.unknowns, count))
        column = 0
        for group, local in bases:
            basis[group.unknowns, column:column + local.shape[1]] = local
            column += local.shape[1]
        return basis, inverses

    def multipliers(self, inverses, gradient):
        """Least-squares Lagrange multipliers for the gradient of an objective."""
        result = np.zeros(len(self.value))
        for group, inverse in inverses:
            result[group.equations] = -inverse @ gradient[group.unknowns]
        return result

    def curvature(self, multipliers):
        """Second derivative of multipliers . residual."""
        h = np.zeros((self.unknowns, self.unknowns))
        np.add.at(h, (self.first, self.second), multipliers[self.equation])
        np.add.at(h, (self.second, self.first), multipliers[self.equation])
        return h

    def taps(self, y):
        return np.where(self.unknown_of_tap >= 0, y[np.maximum(self.unknown_of_tap, 0)], 0.0)

    def fold(self, rows):
        """Rows over taps to rows over unknowns."""
        folded = np.zeros((self.unknowns, rows.shape[0]))
        used = self.unknown_of_tap >= 0
        np.add.at(folded, self.unknown_of_tap[used], rows.T[used])
        return folded.T


def _power_complementary(bands, blocks, phase, echo=0.0):
    """sum over j of p[j bands + phase] p[(j + 2e) bands + phase] = 1 for e = 0 and 0 for the other even distances.

    The equation of the greatest distance, a single pair of tap products, may be left open by `echo`.
    """
    equations = []
    for e in range((blocks + 1) // 2):
        pairs = [(j * bands + phase, (j + 2 * e) * bands + phase) for j in range(blocks - 2 * e)]
        last = 2 * e + 2 >= blocks
        equations.append((pairs, (1.0 if e == 0 else 0.0) + (echo if last else 0.0)))
    return equations


def qmf(bands, periods, echoes):
    """QMF prototype p[0 .. 2 periods bands], symmetric about tap periods*bands, end taps zero.

    Phases k and bands - k form a pair through the symmetry, so k = 0 .. bands/2 suffice.  Phases 0 and bands/2 pair
    with themselves, and exact equations would leave almost nothing of them.  `echoes`, two numbers, leaves one equation
    open in each.
    """
    taps = 2 * periods * bands
    unknown = [min(q, taps - q) - 1 for q in range(taps + 1)]  # unknown i is tap i + 1; end taps: -1
    open_phase = {0: echoes[0], bands // 2: echoes[1]}
    groups = [_power_complementary(bands, 2 * periods, k, open_phase.get(k, 0.0)) for k in range(bands // 2 + 1)]
    return Conditions(bands, unknown, periods * bands, groups)


def modulated_symmetric(bands):
    """Modulated-bank prototype c[0 .. 10 bands - 1], symmetric about 5 bands - 1/2: phases k and bands - 1 - k pair."""
    taps = 10 * bands
    return Conditions(bands, [min(n, taps - 1 - n) for n in range(taps)], 5 * bands - 0.5,
                      [_power_complementary(bands, 10, k) for k in range(bands // 2)])


def modulated_low_delay(bands, delay_slots=4):
    """Modulated-bank prototype without symmetry for a synthesis with the prototype backwards in time.

    For s = 0, 2, .. 18:
    sum over j + l = s of c[j bands + k] c[l bands + bands - 1 - k] = 1 for s = 18 - delay_slots, 0 otherwise.
    """
    groups = []
    for k in range(bands // 2):
        groups.append([([(j * bands + k, (s - j) * bands + bands - 1 - k) for j in range(max(0, s - 9), min(9, s) + 1)],
                        1.0 if s == 18 - delay_slots else 0.0) for s in range(0, 19, 2)])
    return Conditions(bands, np.arange(10 * bands), None, groups)
