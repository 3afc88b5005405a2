"""Fast Fourier transforms in numpy's conventions, in single precision, of the lengths that the library has.

>>> import numpy as np, korla
>>> x = np.arange(480.0)
>>> bool(np.allclose(korla.fft.fft(x), np.fft.fft(x), rtol=1e-5, atol=1e-2))
True
>>> korla.fft.next_length(500)
512
"""
import bisect as _bisect

import numpy as _np

from . import _core

lengths = tuple(_core.complex_lengths())
real_lengths = tuple(_core.real_lengths())


def next_length(n, real=False):
    """The least length of a transform that is n or more.

    >>> next_length(961), next_length(5000, real=True)
    (1024, 8192)
    """
    known = real_lengths if real else lengths
    place = _bisect.bisect_left(known, n)
    if place == len(known):
        raise ValueError(f"no transform of length {n} or more; the longest is {known[-1]}")
    return known[place]


def fft(x, n=None, axis=-1, norm=None):
    """The complex transform along an axis: numpy.fft.fft."""
    return _complex(x, n, axis, norm, inverse=False)


def ifft(x, n=None, axis=-1, norm=None):
    """Its inverse: numpy.fft.ifft."""
    return _complex(x, n, axis, norm, inverse=True)


def rfft(x, n=None, axis=-1, norm=None):
    """The transform of a real signal, n // 2 + 1 bins: numpy.fft.rfft.

    Lengths that are powers of two go through a transform of half the length, others through one of their own."""
    if _np.iscomplexobj(x):
        raise TypeError("rfft takes real samples")
    rows, back = _rows(x, n, axis, _np.float32)
    scaled, factor = _scaling(norm, rows.shape[1], inverse=False)
    return back(_times(_core.rfft(rows, scaled), factor))


def irfft(x, n=None, axis=-1, norm=None):
    """The real signal of n // 2 + 1 bins: numpy.fft.irfft; n is twice their number less two unless given."""
    bins = _np.shape(x)[axis]
    n = 2 * (bins - 1) if n is None else n
    rows, back = _rows(x, n // 2 + 1, axis, _np.complex64)
    scaled, factor = _scaling(norm, n, inverse=True)
    return back(_times(_core.irfft(rows, n, scaled), factor))


def kernel(x, radix=8, inverse=False):
    """One family's kernel along the last axis, without a factor: radix 4 or 8; the other functions take the best.

    >>> kernel([1, 0, 0, 0], radix=4).real.tolist()
    [1.0, 1.0, 1.0, 1.0]
    """
    rows, back = _rows(x, None, -1, _np.complex64)
    return back(_core.kernel(rows, radix, inverse))


def _complex(x, n, axis, norm, inverse):
    rows, back = _rows(x, n, axis, _np.complex64)
    scaled, factor = _scaling(norm, rows.shape[1], inverse)
    return back(_times(_core.fft(rows, inverse, scaled), factor))


def _rows(x, n, axis, dtype):
    """The axis as rows of n, cut or filled up with zeros, and what brings rows of a result back."""
    x = _np.asarray(x)
    if x.ndim == 0:
        raise ValueError("a transform takes an array of one dimension at least")
    last = axis in (-1, x.ndim - 1)  # moving an axis costs more than a transform
    moved = x if last else _np.moveaxis(x, axis, -1)
    if n is not None and n != moved.shape[-1]:
        if n < 1:
            raise ValueError(f"no transform of length {n}")
        filled = _np.zeros((*moved.shape[:-1], n), dtype)
        kept = min(n, moved.shape[-1])
        filled[..., :kept] = moved[..., :kept]
        moved = filled
    outer = moved.shape[:-1]
    rows = _np.ascontiguousarray(moved, dtype).reshape(-1, moved.shape[-1])

    def back(result):
        result = result.reshape(*outer, result.shape[1])
        return result if last else _np.moveaxis(result, -1, axis)
    return rows, back


def _scaling(norm, n, inverse):
    """Whether the kernel applies 1/n, and a factor for what it does not."""
    if norm not in (None, "backward", "ortho", "forward"):
        raise ValueError(f"no norm {norm!r}; known are backward, ortho, forward")
    if norm == "ortho":
        return False, _np.float32(n ** -0.5)
    return (norm == "forward") != inverse, None


def _times(result, factor):
    if factor is not None:
        result *= factor
    return result
