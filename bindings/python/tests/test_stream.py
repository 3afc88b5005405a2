"""Streams and downmixes: the bits of korla-host mix, arrays of every kind, threads, memory."""
import gc
import os
import subprocess
import threading

import korla
import numpy as np
import pytest
import soundfile

RATE = 48000
SUBTYPES = {"int16": "PCM_16", "int32": "PCM_32", "float32": "FLOAT", "float64": "DOUBLE"}


def noise(frames, channels, dtype="float32", seed=1):
    x = np.random.default_rng(seed).uniform(-1.2, 1.2, (frames, channels))
    if dtype.startswith("int"):
        full = np.iinfo(dtype).max
        return np.clip(np.rint(x * full), -full - 1, full).astype(dtype)
    return x.astype(dtype)


@pytest.mark.skipif("KORLA_HOST" not in os.environ, reason="no korla-host")
@pytest.mark.parametrize("dtype", SUBTYPES)
@pytest.mark.parametrize("source, target, options", [
    ("7.1.4", "stereo", {}), ("5.1", "stereo", {"dialogue": 4, "ceiling": -3, "lfe": -10}), ("7.1", "5.1", {})])
def test_gives_the_bits_of_the_host(tmp_path, dtype, source, target, options):
    before, after = tmp_path / "in.wav", tmp_path / "out.wav"
    speakers = korla.wave_order(source)
    x = noise(5000, len(speakers), dtype)
    soundfile.write(before, x, RATE, SUBTYPES[dtype], format="WAV")
    words = [word for name, value in options.items() for word in (f"--{name}", str(value))]
    subprocess.run([os.environ["KORLA_HOST"], "mix", before, after, "--from", ",".join(speakers), "--to", target, *words],
                   check=True, stdout=subprocess.DEVNULL)
    y = korla.downmix(x, speakers, target, RATE, **{name + "_db": value for name, value in options.items()})
    expected, _ = soundfile.read(after, dtype="float32" if dtype == "float64" else dtype)
    assert np.array_equal(y, expected)
    assert y.dtype == dtype


def test_pieces_make_the_whole():
    x = noise(3000, 6)
    whole = korla.downmix(x, "5.1", "stereo", RATE)
    stream = korla.Stream("5.1", "stereo", RATE)
    pieces, at = [], 0
    for n in (1, 0, 441, 31, 1024, 64, 1439):
        pieces.append(stream.process(x[at:at + n]))
        at += n
    pieces.append(stream.drain())
    assert at == 3000 and np.array_equal(np.concatenate(pieces), whole)
    assert stream.latency == 63 and stream.pending == 0
    late = korla.Stream("5.1", "stereo", RATE, mode="same-length")
    assert np.array_equal(np.concatenate([late.process(x[:77]), late.process(x[77:])])[63:], whole[:-63])
    assert np.array_equal(late.run(x)[63:], whole)


@pytest.mark.parametrize("dtype", SUBTYPES)
def test_takes_any_array_and_no_array_too_many(dtype):
    x = noise(400, 12, dtype)
    expected = korla.downmix(x, "7.1.4", "stereo", RATE)
    for same in (np.asfortranarray(x), np.repeat(x, 2, axis=0)[::2], x[::-1][::-1], np.concatenate([x, x], axis=1)[:, :12]):
        assert np.array_equal(korla.downmix(same, "7.1.4", "stereo", RATE), expected)
    assert np.array_equal(korla.downmix(x[:, :1].ravel(), "mono", "stereo", RATE),
                          korla.downmix(x[:, :1], "mono", "stereo", RATE))
    assert korla.downmix(x[:0], "7.1.4", "stereo", RATE).shape == (0, 2)


def test_arrays_may_die_early():
    stream = korla.Stream("5.1", "stereo", RATE)
    out = [stream.process(noise(1000, 6, seed=k)) for k in range(20)]
    del stream
    gc.collect()
    again = korla.Stream("5.1", "stereo", RATE)
    assert all(np.array_equal(again.process(noise(1000, 6, seed=k)), y) for k, y in enumerate(out))
    gains, _ = again.matrix()
    meters = again.meters()
    del again
    gc.collect()
    assert gains.shape == (2, 6) and meters["input_peak"].shape == (6,)


def test_controls_matrix_and_meters():
    stream = korla.Stream("5.1", "stereo", RATE)
    plain, source = stream.matrix()
    assert source == "module" and np.array_equal(plain, korla.matrix("5.1", "stereo")[0])
    stream.dialogue_db = 6
    stream.surround_db = -np.inf
    gains, _ = stream.matrix()
    assert stream.dialogue_db == 6 and gains[0, 2] == pytest.approx(plain[0, 2] * 10 ** 0.3)
    assert not gains[:, 4:].any()
    stream.process(4 * noise(4800, 6))
    meters = stream.meters()
    assert meters["gain_reduction_db"] > 3 and meters["frames_in"] == 4800 and meters["output_peak"].max() <= 1.0001
    stream.limiter = False
    assert not stream.limiter
    assert np.abs(korla.downmix(4 * noise(100, 6), "5.1", "stereo", RATE, limiter=False)).max() > 2
    own = np.float32([[0, 1], [1, 0]])
    x = 0.1 * noise(100, 2)
    assert np.allclose(korla.downmix(x, "stereo", "stereo", RATE, matrix=own), x[:, ::-1], atol=1e-6)
    assert np.array_equal(korla.downmix(x, "stereo", "stereo", RATE), x)


def test_layouts():
    assert korla.layout("5.1") == ("FL", "FR", "FC", "LFE", "SL", "SR") and korla.layout_name("SR SL FR FL FC LFE") == "5.1"
    assert korla.layout_name(["FL", "TBR"]) is None and len(korla.layouts()) > 40
    assert korla.from_wave_mask(korla.to_wave_mask("7.1.4")) == korla.wave_order("7.1.4")


@pytest.mark.parametrize("call, message", [
    (lambda: korla.downmix(noise(9, 6), "5.1", "9.9", RATE), "9.9"),
    (lambda: korla.downmix(noise(9, 5), "5.1", "stereo", RATE), r"\(frames, 6\)"),
    (lambda: korla.downmix(noise(9, 6).astype("float16"), "5.1", "stereo", RATE), "float16"),
    (lambda: korla.downmix(noise(9, 6).astype(">f4"), "5.1", "stereo", RATE), "are not to be had"),
    (lambda: korla.downmix(np.array([["a"] * 6]), "5.1", "stereo", RATE), "are not to be had"),
    (lambda: korla.downmix(noise(9, 6), "5.1", "stereo", 0), "rate"),
    (lambda: korla.downmix(noise(9, 6), "5.1", "stereo", RATE, ceiling_db=3), ""),
    (lambda: korla.downmix(noise(9, 6), "5.1", "stereo", RATE, matrix=np.ones((6, 2))), "2 rows of 6"),
    (lambda: korla.Stream("5.1", "stereo", RATE, mode="pull"), "push, same-length"),
    (lambda: korla.Stream("5.1", "stereo", RATE).process(noise(9, 6, "int16")), "int16"),
    (lambda: korla.Stream("5.1", "stereo", RATE, mode="same-length-32").process(noise(33, 6)), ""),
    (lambda: korla.Stream("stereo", "stereo", RATE).__setattr__("gain_db", 1), "copies"),
    (lambda: korla.layout("FL,FL"), "FL"),
])
def test_what_is_wrong_is_named(call, message):
    with pytest.raises(ValueError, match=message):
        call()


def test_other_threads_run_meanwhile():
    """While one thread is inside the library for long, this one goes on; both may not use one stream."""
    stream = korla.Stream("7.1.4", "stereo", RATE)
    x = noise(4_000_000, 12)
    done = threading.Event()
    refused, steps = 0, 0

    def work():
        stream.process(x)
        done.set()

    thread = threading.Thread(target=work)
    thread.start()
    while not done.is_set():
        steps += 1
        try:
            stream.process(x[:0])
        except RuntimeError:
            refused += 1
    thread.join()
    assert refused > 10 and steps >= refused  # a thread that had kept Python's lock would have let none through


def resident():
    with open("/proc/self/statm") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


@pytest.mark.skipif("KORLA_SANITIZED" in os.environ, reason="the sanitizer keeps freed memory")
def test_nothing_leaks_over_a_hundred_thousand_calls():
    stream, bank, x = korla.Stream("5.1", "stereo", RATE), korla.QMF(), noise(64, 6)

    def once():
        stream.process(x)
        stream.matrix(), stream.meters()
        bank.synthesis(bank.analysis(x[:, 0]))
        korla.fft.rfft(x[:, 0])
        korla.downmix(x, "5.1", "mono", RATE)
        with pytest.raises(ValueError):
            stream.process(x[:, :5])

    for _ in range(2000):
        once()
    before = resident()
    for _ in range(20_000):  # of five calls each
        once()
    assert resident() - before < 2 << 20
