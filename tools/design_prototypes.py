#!/usr/bin/env python3
"""Designs the prototype filters of the QMF and modulated filter banks and writes them as C++ data.

    tools/design_prototypes.py                    designs all and writes src/dsp/filterbank/prototypes_{qmf,mfb}.inc
    tools/design_prototypes.py --only NAME        designs one and replaces it in its file
    tools/design_prototypes.py --check [NAME ..]  designs again and compares with the committed data; writes nothing
    tools/design_prototypes.py --list             names of the designs, with the exported tables they become

The design is deterministic.  Other builds of the linear-algebra libraries round differently, so a check allows each tap
to differ by 1e-6 of the greatest one (with noise in the last digits of the arithmetic, 3e-9 was seen).

Needs numpy and scipy.  Literature:
    C. L. Lawson, Contributions to the theory of linear least maximum approximation, thesis, UCLA, 1961.
    S. Mehrotra, On the implementation of a primal-dual interior point method, SIAM J. Optimization 2 (4), 1992.
    H. S. Malvar, Signal Processing with Lapped Transforms, Artech House, 1992.
    R. D. Koilpillai, P. P. Vaidyanathan, Cosine-modulated FIR filter banks satisfying perfect reconstruction,
        IEEE Trans. Signal Processing 40 (4), 1992.
    T. Q. Nguyen, Digital filter bank design: quadratic-constrained formulation,
        IEEE Trans. Signal Processing 43 (9), 1995.
    G. D. T. Schuller, M. J. T. Smith, New framework for modulated perfect reconstruction filter banks,
        IEEE Trans. Signal Processing 44 (8), 1996.
    P. N. Heller, T. Karp, T. Q. Nguyen, A general formulation of modulated filter banks,
        IEEE Trans. Signal Processing 47 (4), 1999.
"""
import argparse
import pathlib
import sys
import time

import numpy as np

from prototype_design import designs, tables

DATA = pathlib.Path(__file__).resolve().parent.parent / "src" / "dsp" / "filterbank"
TOLERANCE = 1e-6  # relative to the greatest tap


def path_of(file):
    return DATA / ("prototypes_%s.inc" % file)


def chosen(names):
    known = {d.name: d for d in designs.ALL}
    unknown = [n for n in names if n not in known]
    if unknown:
        sys.exit("no such design: %s (see --list)" % ", ".join(unknown))
    return [known[n] for n in names] or designs.ALL


def solve(design, start):
    taps = design.taps()
    print("%6.1f s  %s" % (time.time() - start, design.name), flush=True)
    return taps


def check(selection):
    committed = {file: tables.read(path_of(file)) for file in {d.file for d in selection}}
    failed, start = [], time.time()
    for design in selection:
        old, new = committed[design.file].get(design.name), solve(design, start)
        if old is None or old.shape != new.shape:
            failed.append(design.name)
            print("          differs in size")
            continue
        difference = np.max(np.abs(new.astype(float) - old.astype(float))) / np.max(np.abs(old))
        print("          greatest difference %.1e of the greatest tap, %d of %d taps differ" %
              (difference, np.sum(old != new), len(old)))
        if not difference <= TOLERANCE:
            failed.append(design.name)
    if failed:
        sys.exit("does not reproduce the committed data: %s" % ", ".join(failed))


def main():
    parser = argparse.ArgumentParser(description="Designs the prototype filters of the filter banks.")
    mode = parser.add_mutually_exclusive_group()
    mode.add_argument("--only", metavar="NAME", help="design this one alone")
    mode.add_argument("--check", metavar="NAME", nargs="*", help="compare with the committed data, write nothing")
    mode.add_argument("--list", action="store_true", help="names of the designs")
    options = parser.parse_args()
    if options.list:
        for design in designs.ALL:
            print("%-22s %s" % (design.name, design.exported))
        return
    if options.check is not None:
        check(chosen(options.check))
        return
    selection, start = chosen([options.only] if options.only else []), time.time()
    for file in dict.fromkeys(d.file for d in selection):
        path = path_of(file)
        old = tables.read(path) if options.only and path.exists() else {}
        new = {d.name: solve(d, start) for d in selection if d.file == file}
        old.update(new)
        tables.write(path, {d.name: old[d.name] for d in designs.ALL if d.name in old})


if __name__ == "__main__":
    main()
