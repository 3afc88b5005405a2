#!/usr/bin/env python3
"""Prints what the committed prototype filters reach: reconstruction error and stop band.

Error: analysis and synthesis in double precision with the float taps that ship, over white noise,
    relative to its rms and peak.
Stop band: least attenuation from pi/M and from 1.25 pi/M on, relative to zero frequency.
"""
import pathlib

import numpy as np

from prototype_design import models, tables

DATA = pathlib.Path(__file__).resolve().parent.parent / "src" / "dsp" / "filterbank"
SLOTS = 200


def shipped():
    """(exported table, bands, response taps, chain, delay) of every design; tables as arrays of blocks x bands."""
    qmf, mfb = tables.read(DATA / "prototypes_qmf.inc"), tables.read(DATA / "prototypes_mfb.inc")

    def qmf_entry(name, bands, periods):
        half = qmf[name].astype(float)
        table = tables.qmf_analysis(half, bands, periods)
        return ("krl_qmf_filter_coeff_" + name[4:].replace("p5", "P5", 1).replace("p4", "P4", 1), bands,
                tables.qmf_prototype(half), lambda x: models.qmf_chain(table, x), (2 * periods - 1) * bands + 1)

    def mfb_entry(name, table, response, kind, slots):
        bands = len(table) // 10
        blocks = table.reshape(10, bands)
        return name, bands, response, lambda x: models.modulated_chain(blocks, x, kind), slots * bands

    for name in ("qmf_p5", "qmf_p5_32", "qmf_p5_p64kvx301", "qmf_p5_p64kvx301_48", "qmf_p5_p64kvx301_32",
                 "qmf_p5_p64kvx301_16", "qmf_p5_p64kvx301_8", "qmf_p4", "qmf_p4_32"):
        periods = 4 if "p4" in name else 5
        yield qmf_entry(name, (len(qmf[name]) - 1) // periods, periods)
    symmetric = tables.modulated_symmetric(mfb["mfb_p64kvx301"].astype(float))
    yield mfb_entry("KRL_MFB_P10KM_P64KVX301", symmetric, symmetric, "symmetric", 9)
    parent = qmf["qmf_p5_p64kvx301"].astype(float)
    yield mfb_entry("KRL_MFB_P10KM_P64KVX301_LEGACY", tables.modulated_legacy(parent, 64), tables.qmf_prototype(parent),
                    "legacy", 9)
    for name, exported in (("mfb_p4_319sc", "KRL_MFB_P10KM_P4_319SC"),
                           ("mfb_p4_319sc_128", "KRL_MFB_P10KM_P4_319SC_128M"),
                           ("mfb_p4_319sc_256", "KRL_MFB_P10KM_P4_319SC_256M")):
        taps = mfb[name].astype(float)
        yield mfb_entry(exported, taps, taps, "low delay", 4)


def response_decibels(taps, points=1 << 18):
    """Frequency in units of pi, and magnitude relative to zero frequency."""
    magnitude = np.abs(np.fft.rfft(taps, 2 * points))
    return np.arange(points + 1) / points, 20 * np.log10(np.maximum(magnitude, 1e-12) / magnitude[0])


def attenuation(taps, bands, edge):
    frequency, decibels = response_decibels(taps)
    return -np.max(decibels[frequency >= edge / bands])


def reconstruction_error(bands, chain, delay):
    x = np.random.default_rng(1).uniform(-1, 1, SLOTS * bands)
    error = chain(x)[delay:] - x[:-delay]
    return np.sqrt(np.mean(error ** 2) / np.mean(x ** 2)), np.max(np.abs(error)) / np.max(np.abs(x))


def main():
    print("| Table | M | error, rms / peak | from pi/M | from 1.25 pi/M |\n|---|---|---|---|---|")
    for name, bands, taps, chain, delay in shipped():
        print("| `%s` | %d | %.1e / %.1e | %.1f | %.1f |" % (
            name, bands, *reconstruction_error(bands, chain, delay),
            attenuation(taps, bands, 1), attenuation(taps, bands, 1.25)))


if __name__ == "__main__":
    main()
