"""Cosine transforms of types 2, 3 and 4 in scipy's conventions, in single precision.

>>> import numpy as np, korla
>>> x = np.arange(64.0)
>>> bool(np.allclose(korla.dct.idct(korla.dct.dct(x)), x, atol=1e-4))
True
"""
import numpy as _np

from . import _core
from .fft import _rows

lengths = tuple(_core.dct_lengths())
type4_lengths = tuple(_core.dct4_lengths())


def dct(x, type=2, n=None, axis=-1, norm=None):
    """scipy.fft.dct for types 2, 3 and 4."""
    if norm not in (None, "backward", "ortho", "forward"):
        raise ValueError(f"no norm {norm!r}; known are backward, ortho, forward")
    rows, back = _rows(x, n, axis, _np.float32)
    size = rows.shape[1]
    factor = {"ortho": (2 * size) ** -0.5, "forward": 1 / (2 * size)}.get(norm, 1.0)
    first = _np.float32(0.5 ** 0.5 if norm == "ortho" else 1.0)
    if type == 3:  # whose first coefficient counts half
        rows = rows.copy()
        rows[:, 0] *= _np.float32(0.5) / first
    result = _core.dct(rows, type) * _np.float32(2 * factor)
    if type == 2:
        result[:, 0] *= first
    return back(result)


def idct(x, type=2, n=None, axis=-1, norm=None):
    """scipy.fft.idct for types 2, 3 and 4: 2 and 3 undo each other, 4 itself."""
    if norm not in (None, "backward", "ortho", "forward"):
        raise ValueError(f"no norm {norm!r}; known are backward, ortho, forward")
    opposite = {None: "forward", "backward": "forward", "forward": None}.get(norm, norm)
    return dct(x, {2: 3, 3: 2}.get(type, type), n, axis, opposite)
