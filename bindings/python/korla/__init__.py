"""Downmixing from any speakers to any speakers, and the DSP library beneath it, on numpy arrays.

>>> import numpy as np, korla
>>> x = np.zeros((48000, 6), np.float32)
>>> x[:, 2] = 0.25                                   # the front centre of 5.1
>>> y = korla.downmix(x, "5.1", "stereo", 48000, dialogue_db=3)
>>> y.shape, y.dtype.name
((48000, 2), 'float32')

Arrays have the shape (frames, channels), as soundfile gives them. Samples are int16, int32, float32 or float64; contiguous
arrays are not copied. Python's lock is released while the library works.

Modules: korla.fft and korla.dct, in the conventions of numpy.fft and scipy.fft. Classes: Stream, QMF, Hybrid, MFB,
Limiter, Phase90, Biquad. What is wrong raises ValueError, with what would be right.
"""
import numpy as _np

from . import _core, dct, fft
from ._core import (MFB, QMF, Biquad, Hybrid, Limiter, Phase90, Stream, from_wave_mask, layout, layout_name, layouts, matrix,
                    prototypes, to_wave_mask)

__all__ = ["Biquad", "Hybrid", "Limiter", "MFB", "Phase90", "QMF", "Stream", "dct", "downmix", "fft", "from_wave_mask", "layout",
           "layout_name", "layouts", "matrix", "phase90", "prototypes", "sosfilt", "to_wave_mask", "wave_order"]
__version__ = _core.__version__


def downmix(x, from_, to, rate, *, dtype=None, matrix=None, limiter=True, dialogue_db=None, surround_db=None, height_db=None,
            lfe_db=None, gain_db=None, ceiling_db=None):
    """Mixes a whole signal from one layout to another; as many frames come out as went in, each where it stood.

    x: (frames, channels) of int16, int32, float32 or float64. from_, to: layouts by name or lists of speakers, in the order
    of the channels. rate: Hz. dtype: of the result, that of x unless given. matrix: gains (outputs, inputs) in place of the
    ones by rule. The other arguments are the controls of Stream; None leaves the default.

    >>> mono = downmix(np.ones((100, 2), np.int16), "stereo", "mono", 44100)
    >>> mono.shape, mono.dtype.name
    ((100, 1), 'int16')
    >>> downmix(np.zeros((10, 3)), "FL,FR,FX", "mono", 44100)
    Traceback (most recent call last):
    ...
    ValueError: no speaker 'FX'; known are FL FR FC LFE SL SR BL BR FLC FRC BC WL WR HL HR TFL TFR TSL TSR TBL TBR TBC TFC WHL WHR
    """
    x = _np.asarray(x)
    controls = {"dialogue_db": dialogue_db, "surround_db": surround_db, "height_db": height_db, "lfe_db": lfe_db,
                "gain_db": gain_db, "ceiling_db": ceiling_db}
    controls = {name: value for name, value in controls.items() if value is not None}
    stream = Stream(from_, to, rate, dtype=x.dtype, out_dtype=dtype, controllable=bool(controls) or not limiter, matrix=matrix)
    for name, value in controls.items():
        setattr(stream, name, value)
    if not limiter:
        stream.limiter = False
    return stream.run(x)


def wave_order(speakers):
    """The speakers of a layout in the order in which WAVE files, and soundfile, have their channels.

    >>> wave_order("7.1")
    ('FL', 'FR', 'FC', 'LFE', 'BL', 'BR', 'SL', 'SR')
    """
    return from_wave_mask(to_wave_mask(speakers))


def phase90(x, block=1024):
    """A real signal shifted by 90 degrees, in its place: x + 1j * phase90(x) has no negative frequencies but near the ends.

    Works within 2.3 degrees from 20 Hz up at 48 kHz (see korla/dsp/phase90_hilbert.h).

    >>> t = np.arange(8192)
    >>> error = phase90(np.cos(0.1 * t)) - np.sin(0.1 * t)
    >>> bool(np.max(np.abs(error[2000:6000])) < 0.04)
    True
    """
    x = _np.asarray(x, _np.float32)
    filter_ = Phase90(block)
    padded = _np.zeros(-(-(len(x) + filter_.delay) // block) * block, _np.float32)
    padded[:len(x)] = x
    return filter_.process(padded)[filter_.delay:filter_.delay + len(x)]


def sosfilt(sos, x, form="ssv2"):
    """Second-order sections one after another, as scipy.signal.sosfilt: sos has rows b0, b1, b2, a0, a1, a2.

    >>> y = sosfilt([[1, -1, 0, 1, 0, 0]], np.ones(100))
    >>> float(y[0]), float(y[1])
    (1.0, 0.0)
    """
    x = _np.asarray(x, _np.float32)
    y = _np.zeros(-(-len(x) // 32) * 32, _np.float32)
    y[:len(x)] = x
    for row in _np.atleast_2d(sos):
        if len(row) != 6:
            raise ValueError(f"a section has six coefficients, {len(row)} given")
        y = Biquad(row[:3], row[3:], form).process(y)
    return y[:len(x)]
