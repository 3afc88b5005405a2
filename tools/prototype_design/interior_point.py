"""Convex quadratic programs by Mehrotra's predictor-corrector method (SIAM J. Optimization 2 (4), 1992)."""
import numpy as np


def minimise(hessian, gradient, rows, bounds, iterations=60, tolerance=1e-9):
    """x that minimises x' hessian x / 2 + gradient . x subject to rows x <= bounds, and the multipliers of the rows.

    The hessian is positive semidefinite and, with the active rows, definite.  Bounds and gradient are of the order of
    one.
    """
    x = np.zeros(len(gradient))
    slack = np.maximum(bounds, 1.0)
    multiplier = np.ones(len(bounds))
    for _ in range(iterations):
        dual_error = hessian @ x + gradient + rows.T @ multiplier
        primal_error = rows @ x + slack - bounds
        gap = slack @ multiplier / len(bounds)
        if max(np.max(np.abs(dual_error)), np.max(np.abs(primal_error)), gap) < tolerance:
            break
        system = hessian + (rows.T * (multiplier / slack)) @ rows
        system[np.diag_indices_from(system)] *= 1 + 1e-14
        factor = np.linalg.cholesky(system)

        def direction(complementarity):
            right = -dual_error + rows.T @ ((complementarity - multiplier * primal_error) / slack)
            dx = np.linalg.solve(factor.T, np.linalg.solve(factor, right))
            dslack = -primal_error - rows @ dx
            return dx, dslack, -(complementarity + multiplier * dslack) / slack

        _, dslack, dmultiplier = direction(slack * multiplier)
        length = min(_to_boundary(slack, dslack), _to_boundary(multiplier, dmultiplier))
        predicted = (slack + length * dslack) @ (multiplier + length * dmultiplier) / len(bounds)
        centring = (predicted / gap) ** 3
        dx, dslack, dmultiplier = direction(slack * multiplier + dslack * dmultiplier - centring * gap)
        length = min(1.0, 0.99 * min(_to_boundary(slack, dslack), _to_boundary(multiplier, dmultiplier)))
        x, slack, multiplier = x + length * dx, slack + length * dslack, multiplier + length * dmultiplier
    return x, multiplier


def _to_boundary(value, change):
    falling = change < 0
    return np.min(-value[falling] / change[falling]) if falling.any() else 1e3
