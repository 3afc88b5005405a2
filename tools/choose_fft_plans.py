#!/usr/bin/python3
"""Compares the factorisations of FFT lengths: every one that the passes can run.

usage: tools/choose_fft_plans.py [--passes P] [--shortlist K] [LENGTH...]     all lengths of src/dsp/fft/plans.h unless given

For each factorisation of at most P passes it counts the instructions of a forward transform on aarch64 (under qemu-user with
benchmarks/aarch64/trace_plugin.c), and times it on this machine: the least of many runs, factorisations taking turns. Printed
for each length are the best K, and the plan that stands in plans.h, marked by a star. The score is the geometric mean of
instructions and time relative to that plan; the target's instructions count twice. One plan serves all CPUs, since another
order of operations would round to other bits.
"""
import argparse
import math
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
FLAGS = ("-O3 -DNDEBUG -std=c++20 -ffp-contract=off -fno-exceptions -fno-rtti -fno-math-errno -fno-trapping-math -Wno-psabi "
         f"-I{ROOT}/src -I{ROOT}/include").split()
BLOCKED_FIRST, PLANAR_FIRST = (8, 16, 24), (4, 5, 6, 9, 10, 12, 15)  # what a first pass may be; see transform.h
LATER = (3, 4, 5, 6, 8, 9, 10, 12, 15, 16)

PROGRAM = """
#include "dsp/fft/transform.h"
#include <algorithm>
#include <chrono>
#include <cstdio>
using namespace krl::fft;
alignas(64) static float out[16384], in[16384];
struct Case { int n; const char* name; void (*run)(float*, const float*, float*); double best; };
static Case cases[] = {
%s};
static void prepare(int n) {
    for (int i = 0; i < 2 * n; i++)
        in[i] = static_cast<float>((i * 2654435761u) >> 9) * 0x1p-23f - 0.5f;
}
int main() {
    for (Case& c : cases) {
        prepare(c.n);
        c.run(out, in, in);
        c.best = 1e9;
#ifdef __aarch64__
        asm volatile("hint #96" ::: "memory");
        c.run(out, in, in);
        asm volatile("hint #97" ::: "memory");
#endif
    }
#ifndef __aarch64__
    for (int turn = 0; turn < 60; turn++)
        for (Case& c : cases) {
            prepare(c.n);
            const int repeats = std::max(4, 60000 / c.n);
            const auto began = std::chrono::steady_clock::now();
            for (int i = 0; i < repeats; i++)
                c.run(out, in, in);
            const std::chrono::duration<double, std::nano> passed = std::chrono::steady_clock::now() - began;
            c.best = std::min(c.best, passed.count() / repeats);
        }
#endif
    for (Case& c : cases)
        std::printf("%%s %%.1f\\n", c.name, c.best);
}
"""


def run(*command, **options):
    result = subprocess.run([str(c) for c in command], stdin=subprocess.DEVNULL, capture_output=True, text=True, **options)
    if result.returncode:
        sys.exit(f"{' '.join(map(str, command))}: {result.stderr[-3000:]}")
    return result.stdout


def standing():
    text = (ROOT / "src/dsp/fft/plans.h").read_text()
    plans = {}
    for match in re.finditer(r"X\((\d+), ([\d, ]+)\)", text[text.index("#define KRL_FFT_PLANS"):text.index("clang-format on")]):
        plans[int(match[1])] = tuple(int(r) for r in match[2].split(","))
    return plans


def factorisations(n, passes):
    def rest(m, left):
        if m == 1:
            yield ()
        elif left:
            for r in LATER:
                if m % r == 0:
                    yield from ((r, *more) for more in rest(m // r, left - 1))
    for first in BLOCKED_FIRST:
        if n % first == 0:
            yield from ((first, *more) for more in rest(n // first, passes - 1) if more)
    for first in PLANAR_FIRST:
        if n % first == 0:
            yield from ((first, *more) for more in rest(n // first, 2) if more)


def measure(folder, plans):
    """{plan: (instructions, nanoseconds)}, for (length, plan) pairs"""
    lines = "".join(f'{{{n}, "{n}:{"x".join(map(str, p))}", transform<{n}, direction::forward, false, rounding::full, '
                    f'radices<{", ".join(map(str, p))}>>::run, 0}},\n' for n, p in plans)
    source = folder / "plans.cpp"
    source.write_text(PROGRAM % lines)
    run("g++", *FLAGS, "-march=native", source, "-o", folder / "native")
    run("aarch64-linux-gnu-g++", *FLAGS, "-march=armv8-a", "-fno-tree-pre", "-static", source, "-o", folder / "aarch64")
    run("qemu-aarch64", "-plugin", f"{folder}/plugin.so,to={folder}/p", folder / "aarch64")
    counts = [c for c, in struct.iter_unpack("<Q", (folder / "p.counts").read_bytes())]
    times = [float(line.split()[1]) for line in run(folder / "native").splitlines()]
    return dict(zip(plans, zip(counts, times, strict=True), strict=True))


def main():
    options = argparse.ArgumentParser(usage=__doc__)
    options.add_argument("--passes", type=int, default=4)
    options.add_argument("--shortlist", type=int, default=6)
    options.add_argument("lengths", type=int, nargs="*")
    options = options.parse_args()
    stands = standing()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        run("gcc", "-shared", "-fPIC", "-O2", ROOT / "benchmarks/aarch64/trace_plugin.c", "-o", folder / "plugin.so")
        for n in options.lengths or stands:
            plans = sorted({(n, p) for p in factorisations(n, options.passes)} | {(n, stands[n])})
            figures = measure(folder, plans)
            instructions, time = figures[n, stands[n]]
            def score(plan):
                return ((figures[plan][0] / instructions) ** 2 * figures[plan][1] / time) ** (1 / 3)
            for plan in sorted(plans, key=score)[:options.shortlist] + [(n, stands[n])]:
                print(f"{n:5} {'x'.join(map(str, plan[1])):14}{'*' if plan[1] == stands[n] else ' '} "
                      f"{figures[plan][0]:7} instructions {figures[plan][1]:9.1f} ns   {score(plan):.3f}", flush=True)


main()
