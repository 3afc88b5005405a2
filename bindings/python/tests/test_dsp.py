"""Transforms against numpy and scipy; banks, limiter and filters against what they promise."""
import doctest

import korla
import numpy as np
import pytest
import scipy.fft
import scipy.signal

RANDOM = np.random.default_rng(1)
NORMS = (None, "backward", "ortho", "forward")


def error(actual, expected):
    assert actual.shape == expected.shape and actual.dtype in (np.float32, np.complex64)
    return np.linalg.norm(actual - expected) / np.linalg.norm(expected)


@pytest.mark.parametrize("module", [korla, korla.fft, korla.dct])
def test_the_examples_in_the_documentation_run(module):
    result = doctest.testmod(module, extraglobs={"np": np})
    assert result.attempted > 2 and result.failed == 0


def test_transforms_are_those_of_numpy_at_every_length():
    assert len(korla.fft.lengths) == 44  # 43, and 1
    for n in korla.fft.real_lengths:
        x = RANDOM.standard_normal((2, n))
        z = x + 1j * RANDOM.standard_normal((2, n))
        for norm in NORMS:
            if n in korla.fft.lengths:
                assert error(korla.fft.fft(z, norm=norm), np.fft.fft(z, norm=norm)) < 1e-6
                assert error(korla.fft.ifft(z, norm=norm), np.fft.ifft(z, norm=norm)) < 1e-6
            spectrum = np.fft.rfft(z.real, norm=norm)
            assert error(korla.fft.rfft(x, norm=norm), spectrum) < 1e-6
            spectrum[:, 0] += 1j  # which is not looked at, nor is the last one's of an even length
            if n % 2 == 0:
                spectrum[:, -1] -= 1j
            assert error(korla.fft.irfft(spectrum, n, norm=norm), x) < 1e-6


def test_cosine_transforms_are_those_of_scipy_at_every_length():
    for type, lengths in ((2, korla.dct.lengths), (3, korla.dct.lengths), (4, korla.dct.type4_lengths)):
        assert len(lengths) > 40
        for n in lengths:
            x = RANDOM.standard_normal((2, n))
            for norm in NORMS:
                assert error(korla.dct.dct(x, type, norm=norm), scipy.fft.dct(x, type, norm=norm)) < 2e-6
                assert error(korla.dct.idct(x, type, norm=norm), scipy.fft.idct(x, type, norm=norm)) < 2e-6


@pytest.mark.parametrize("axis", (0, 1, -1))
def test_axes_lengths_and_arrays_as_numpy_has_them(axis):
    x = RANDOM.standard_normal((24, 48, 60))
    for a in (x, np.asfortranarray(x), x[::-1], x.astype(np.float32), (100 * x).astype(np.int16)):
        for n in (None, 20, 96):
            assert error(korla.fft.fft(a, n, axis), np.fft.fft(a, n, axis)) < 1e-6
            assert error(korla.fft.rfft(a, n, axis), np.fft.rfft(a, n, axis)) < 1e-6
            assert error(korla.fft.irfft(a, n or 48, axis), np.fft.irfft(a, n or 48, axis)) < 1e-6
    kept = x.copy()
    korla.fft.fft(x, axis=axis), korla.dct.dct(x, axis=axis)
    assert np.array_equal(x, kept)


@pytest.mark.parametrize("call, message", [
    (lambda: korla.fft.fft(np.ones(7)), "length 7; known are 1 2 4 6 8"),
    (lambda: korla.fft.irfft(np.ones(8)), "length 14"),
    (lambda: korla.fft.fft(np.ones(8), norm="none"), "ortho"),
    (lambda: korla.fft.next_length(10_000), "4096"),
    (lambda: korla.dct.dct(np.ones(8), 5), "2, 3, 4"),
    (lambda: korla.dct.dct(np.ones(10)), "known are 4 8 12"),
    (lambda: korla.QMF(24), "p64kvx301/8"),
    (lambda: korla.QMF(48, mode=1), "mode 1"),
    (lambda: korla.QMF().analysis(np.ones(65)), "multiple of 64"),
    (lambda: korla.QMF().synthesis(np.ones((2, 32))), "rows of 64"),
    (lambda: korla.Hybrid(12), "10 or 16"),
    (lambda: korla.MFB(128), "P64KVX301 of 128 bands; known are P64KVX301/64"),
    (lambda: korla.MFB(64, twiddle="X"), "no twiddle"),
    (lambda: korla.fft.kernel(np.ones(48), 8), "radix-8 kernel of length 48"),
    (lambda: korla.MFB(64, "odd"), "symmetric"),
    (lambda: korla.Limiter(2, 44000), "44000"),
    (lambda: korla.Limiter(2, 48000, 33), "32, 40, 64"),
    (lambda: korla.Limiter(2, 48000, peak=np.nan), "peak"),
    (lambda: korla.Limiter(2, 48000).process(np.ones((32, 3))), r"\(frames, 2\)"),
    (lambda: korla.Phase90(100), "512, 1024, 2048"),
    (lambda: korla.Biquad([1, 0, 0], [0, 0, 0]), "a0"),
    (lambda: korla.Biquad([1, 0, 0], [1, 0, 0], "ssv1"), "complex pair"),
    (lambda: korla.Biquad([1, 0, 0], [1, 0, 0], "df2"), "known are ssv1"),
])
def test_what_is_wrong_is_named(call, message):
    with pytest.raises(ValueError, match=message):
        call()


BANKS = [lambda b=b, c=c, d=d: korla.QMF(b, d, c) for b, d in [(8, "p64kvx301"), (16, "p64kvx301"), (32, "P4"), (48, "p64kvx301"),
                                                             (64, "P5"), (64, "P4")] for c in (True, False)]
BANKS += [lambda m=m: korla.QMF(64, mode=m) for m in (1, 8)]
BANKS += [lambda v=v: korla.MFB(64, v) for v in ("symmetric", "legacy", "legacy_extra_latency", "even_0", "even_1", "even_2", "even_3")]
BANKS += [lambda b=b: korla.MFB(b, "even_0") for b in (128, 256)]


@pytest.mark.parametrize("make", BANKS)
def test_banks_give_back_what_they_split(make):
    bank = make()
    x = RANDOM.standard_normal(40 * bank.bands).astype(np.float32)
    subbands = np.concatenate([bank.analysis(x[:bank.bands]), bank.analysis(x[bank.bands:])])
    assert np.std(subbands) > 1e-3
    y = bank.synthesis(subbands)
    assert np.abs(y[bank.delay:] - x[:-bank.delay]).max() < 5e-6
    bank.reset()
    assert np.array_equal(bank.analysis(x), subbands)


def test_prototypes_are_those_of_the_library():
    taps = korla.prototypes()
    assert len(taps) == 2 * 9 + 5 + 3 and taps["mfb P4_319SC/256"].shape == (2560,)
    assert abs(taps["qmf P5/64 analysis"]).max() > 0.5
    bank = korla.MFB(64, "legacy_extra_latency", "P64KVX301", "O")
    x = RANDOM.standard_normal(64 * 30).astype(np.float32)
    assert np.abs(bank.synthesis(bank.analysis(x))[577:] - x[:-577]).max() > 1e-3  # whose blocks are not reversed


def test_a_tone_lies_in_its_band():
    x = np.cos(np.pi * (10 + 0.5) / 64 * np.arange(64 * 100))
    for bank in (korla.QMF(), korla.QMF(is_complex=False), korla.MFB()):
        power = np.mean(np.abs(bank.analysis(x)[20:]) ** 2, axis=0)
        assert np.argmax(power) == 10 and power[10] > 1e3 * power[14]


@pytest.mark.parametrize("bands, interleaved", [(16, False), (16, True), (10, False)])
def test_hybrid_banks_give_back_what_they_split(bands, interleaved):
    bank = korla.Hybrid(bands, interleaved)
    x = korla.QMF().analysis(RANDOM.standard_normal(64 * 50))[:, :3]
    y = bank.synthesis(bank.analysis(x))
    assert np.abs(y[6:] - x[:-6]).max() < 1e-6 and bank.delay == 6
    bank.reset()
    assert not bank.analysis(np.zeros((1, 3))).any()


def test_limiter_keeps_peaks_and_leaves_the_rest():
    x = RANDOM.uniform(-3, 3, (3200, 2)).astype(np.float32)
    limiter = korla.Limiter(2, 48000, peak=0.5, boost=2.0)
    y = limiter.process(x)
    assert 0.9 < np.abs(y).max() <= 1.0000011 and limiter.gain < 0.3 and limiter.latency == 32
    assert np.array_equal(korla.Limiter(2, 48000).process(0 * x, detect=x), 0 * x)
    long = RANDOM.uniform(-3, 3, 2_200_000 // 32 * 32).astype(np.float32)
    twice = korla.Limiter(1, 48000)
    assert np.array_equal(np.concatenate([twice.process(long[:32]), twice.process(long[32:])]), korla.Limiter(1, 48000).process(long))
    limiter.reset()
    quiet = limiter.process(np.asfortranarray(0.1 * x))
    assert np.allclose(quiet[32:], 0.2 * x[:-32], atol=1e-6)
    limiter.hard_clip = True
    assert np.array_equal(limiter.process(x), np.clip(2 * x, -1, 1)) and limiter.latency == 0


def test_sections_filter_as_scipy_does():
    sos = scipy.signal.butter(4, 0.1, output="sos")
    x = RANDOM.standard_normal(1001)
    for form in ("ssv1", "ssv2", "ssv3", "df1"):
        assert np.abs(korla.sosfilt(sos, x, form) - scipy.signal.sosfilt(sos, x)).max() < 2e-6


def test_phase_shifter_is_the_hilbert_transform():
    band = scipy.signal.firwin(801, [0.02, 0.9], pass_zero=False)
    x = scipy.signal.fftconvolve(RANDOM.standard_normal(20_000), band, "same")
    for block in (512, 1024, 2048):
        y = korla.phase90(x, block)
        expected = scipy.signal.hilbert(x).imag
        assert error(y[3000:-3000], expected[3000:-3000]) < 0.03
