"""Models of the banks in double precision, analysis followed by synthesis, to measure what a prototype reconstructs.

They take blocks of `bands` samples through the polyphase filter, the rotation and the FFT that the library's kernels
use, so an error measured here belongs to the table and not to a kernel.  The order of the sub-bands is left out: the
synthesis undoes it.  Tables are arrays of blocks x bands.
"""
import numpy as np


def _analysis_sums(table, x):
    """Per slot, the sums over the even and over the odd blocks of the table times the input history, oldest first."""
    blocks, bands = table.shape
    history = np.concatenate([np.zeros((blocks - 1) * bands), x]).reshape(-1, bands)
    for slot in range(len(x) // bands):
        products = table * history[slot:slot + blocks]
        yield products[0::2].sum(axis=0), products[1::2].sum(axis=0)


def _delay_line(response, pairs):
    """Overlap-add of the response blocks, the even ones times a, the odd ones times b."""
    blocks, bands = response.shape
    line = np.zeros((blocks, bands))
    output = []
    for a, b in pairs:
        line[0::2] += response[0::2] * a
        line[1::2] += response[1::2] * b
        output.append(2 * line[0])
        line = np.vstack([line[1:], np.zeros(bands)])
    return np.array(output)


def qmf_chain(table, x):
    """Complex analysis and synthesis; the delay is one tap more than the prototype has, less one block."""
    blocks, bands = table.shape
    even = -1.0 if blocks == 8 else 1.0  # with four periods the sums of the even blocks enter negated
    turn = np.exp(-0.5j * np.pi * np.arange(bands) / bands)
    pairs = []
    for u, v in _analysis_sums(table, x):
        spectrum = np.fft.fft((even * u + 1j * v)[::-1] * 1j * turn) * 0.5 / bands
        y = np.fft.fft(spectrum) * turn
        pairs.append((even * y.real, y.imag))
    return _delay_line(table[::-1, ::-1], pairs).ravel()


def modulated_chain(table, x, kind):
    """The modulated bank: kind is "symmetric" or "legacy" (delay nine slots), or "low delay" (four slots)."""
    blocks, bands = table.shape
    twiddle = np.exp(-0.5j * np.pi * (np.arange(bands) + 0.5) / bands)
    alternating = np.array([1, 1, -1, -1, 1, 1, -1, -1, 1, 1])[:, None]
    if kind == "legacy":
        x = x.reshape(-1, bands)[:, ::-1].ravel()
        response = table * np.array([1, -1, -1, 1, 1, -1, -1, 1, 1, -1])[:, None]
    elif kind == "symmetric":
        response = table * np.array([-1, 1, 1, -1, -1, 1, 1, -1, -1, 1])[:, None]
    else:
        response = table[::-1, ::-1] * alternating
    pairs = []
    for even, odd in _analysis_sums(table * alternating, 0.5 * x):
        v = even + 1j * odd if kind == "legacy" else odd + 1j * even
        y = np.fft.fft(np.conj(np.fft.fft(v * twiddle) / bands)) * twiddle
        pairs.append((y.imag, y.real) if kind == "symmetric" else (y.real, y.imag))
    output = _delay_line(response, pairs)
    return (output[:, ::-1] if kind == "legacy" else output).ravel()
