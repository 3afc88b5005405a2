#!/usr/bin/env python3
"""Cycles of the inner loops of the FFT passes on Cortex-A55 and Cortex-A76, by llvm-mca, with their spills.

The passes are cross-compiled with the library's flags; the inner loop of each (the one around its largest straight run of
code) goes to llvm-mca. Scheduling models are LLVM's; a model assumes that every load hits the first-level cache. A spill is
a load or store of a vector through the stack pointer inside the loop.
"""
import argparse
import pathlib
import re
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
FLAGS = ["-std=c++20", "-O3", "-DNDEBUG", "-march=armv8-a", "-ffp-contract=off", "-fno-math-errno", "-fno-trapping-math",
         "-fno-exceptions", "-fno-rtti", "-Wno-psabi", "-fno-asynchronous-unwind-tables"]
# Label, points of one butterfly, function body. Every pass belongs to a transform that the library has.
PASSES = [
    ("first, radix 8 (1024)", 8, "first_pass<1024, direction::forward, false, 8, blocks>::run(dst, src)"),
    ("first, radix 16 (256)", 16, "first_pass<256, direction::forward, false, 16, blocks>::run(dst, src)"),
    ("first, radix 24 (576)", 24, "first_pass<576, direction::forward, false, 24, blocks>::run(dst, src)"),
    ("middle, radix 4 (1024)", 4, "middle_pass<1024, 4, 64, rounding::full, blocks>(dst, src)"),
    ("last, radix 4 (1024)", 4, "last_pass<1024, direction::forward, 4, rounding::full, blocks>(dst, src)"),
    ("middle, radix 8 (1024)", 8, "middle_pass<1024, 8, 8, rounding::full, blocks>(dst, src)"),
    ("last, radix 8 (4096)", 8, "last_pass<4096, direction::forward, 8, rounding::full, blocks>(dst, src)"),
    ("middle, radix 3 (360)", 3, "middle_pass<360, 3, 8, rounding::full, blocks>(dst, src)"),
    ("middle, radix 5 (720)", 5, "middle_pass<720, 5, 24, rounding::full, blocks>(dst, src)"),
    ("last, radix 6 (960)", 6, "last_pass<960, direction::forward, 6, rounding::full, blocks>(dst, src)"),
    ("last, radix 16 (256)", 16, "last_pass<256, direction::forward, 16, rounding::full, blocks>(dst, src)"),
    ("last, radix 12 (768)", 12, "last_pass<768, direction::forward, 12, rounding::full, blocks>(dst, src)"),
]


def inner_loop(assembly):
    """The lines between a label and the branch back to it; of several, the longest that holds no other loop."""
    lines = assembly.splitlines()
    labels, loops = {}, []
    for i, line in enumerate(lines):
        if label := re.match(r"(\.L\w+):", line):
            labels[label[1]] = i
        branch = re.match(r"\s+(?:b\.?\w*|cbn?z|tbn?z)\s+(?:.*,\s*)?(\.L\w+)\s*$", line)
        if branch and branch[1] in labels:
            loops.append((labels[branch[1]], i))
    innermost = [(a, b) for a, b in loops if not any(a <= c and d <= b and (c, d) != (a, b) for c, d in loops)]
    first, last = max(innermost, key=lambda loop: loop[1] - loop[0])
    return [line for line in lines[first + 1:last + 1] if re.match(r"\s+[a-z]", line)]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--compiler", default="aarch64-linux-gnu-g++")
    parser.add_argument("--mca", default="llvm-mca")
    arguments = parser.parse_args()
    cpus = ["cortex-a55", "cortex-a76"]
    print(f"{'pass':<26}{'instructions':>13}{'spills':>8}" + "".join(f"{cpu + ' cycles':>20}{'/point':>8}" for cpu in cpus))
    for label, points, body in PASSES:
        source = f'#include "dsp/fft/passes.h"\nusing namespace krl::fft;\n' \
                 f'extern "C" __attribute__((flatten)) void pass(float* dst, const float* src) {{ {body}; }}\n'
        with tempfile.TemporaryDirectory() as folder:
            cpp, asm = pathlib.Path(folder, "pass.cpp"), pathlib.Path(folder, "pass.s")
            cpp.write_text(source)
            subprocess.run([arguments.compiler, *FLAGS, f"-I{ROOT}/src", f"-I{ROOT}/include", "-S", cpp, "-o", asm], check=True)
            loop = inner_loop(asm.read_text())
            spills = sum(bool(re.search(r"\b[qdv]\d+.*\[(sp|x29)", line)) for line in loop)
            row = f"{label:<26}{len(loop):>13}{spills:>8}"
            for cpu in cpus:
                report = subprocess.run([arguments.mca, "-mtriple=aarch64", f"-mcpu={cpu}", "-iterations=200"],
                                        input="\n".join(loop) + "\n", capture_output=True, text=True, check=True).stdout
                cycles = int(re.search(r"Total Cycles:\s+(\d+)", report)[1]) / 200
                row += f"{cycles:>20.1f}{cycles / (4 * points):>8.2f}"
            print(row)


if __name__ == "__main__":
    main()
