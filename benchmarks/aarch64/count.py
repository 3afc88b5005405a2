#!/usr/bin/python3
"""Runs benchmarks built for aarch64 under qemu-user and counts instead of timing.

usage: count.py [--build FOLDER] tables [--cpus CPU,CPU...] [BENCH...]   every table, in instructions and in cycles
       count.py [--build FOLDER] regions BENCH                            the regions of a benchmark
       count.py [--build FOLDER] profile BENCH REGION [--lines N]         where one region executes its instructions
       count.py [--build FOLDER] mca BENCH REGION [--cpu CPU]             llvm-mca's report on one region

A region is what lies between two marks: one call of one contender (aarch64/counted.h); they are numbered in the order in which
they run. Its instructions are counted by the emulator and its cycles estimated by llvm-mca, which gets the very
instructions that were executed: branches are taken as foreseen, loads as hits of the first-level cache. Both are the same
in every run, whatever else the machine does. Cycles of a long region are those of its first instructions, scaled.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import numpy

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
CPUS = ["cortex-a55", "cortex-a76"]  # LLVM 14 has one model for the latter, neoverse-n1 and cortex-a57
SIMULATED = 150_000


def simulate(assembly, cpu, *options):
    """llvm-mca's report on lines of assembly executed once. Calls and returns are jumps to it; what its model of the CPU
    lacks, such as atomic additions of a peer's reference counts, does nothing."""
    assembly = [re.sub(r"^bl\b", "b", re.sub(r"^blr\b", "br", re.sub(r"^ret$", "br x30", line))) for line in assembly]
    while True:
        report = subprocess.run(["llvm-mca", "-mtriple=aarch64", f"-mcpu={cpu}", "-mattr=+v8.2a", "-iterations=1",
                                 "-instruction-info=0", *options],
                                input="\n".join(assembly), capture_output=True, text=True)
        if report.returncode == 0:
            return report.stdout
        unknown = re.search(r"note: instruction: (.*)", report.stderr)
        if not unknown:
            sys.exit(f"count.py: llvm-mca: {report.stderr}")
        words = unknown[1].split()
        assembly = ["nop" if line.split() == words else line for line in assembly]


class Trace:
    """A benchmark and what it executed in each region."""

    def __init__(self, build, bench, folder):
        self.bench, self.build, self.prefix = bench, build, folder / bench
        packages = ROOT / "build/arm64-root"
        libraries = packages / "usr/lib/aarch64-linux-gnu"
        paths = [packages / "lib/aarch64-linux-gnu", libraries, libraries / "blas", libraries / "lapack"]
        self.command = ["qemu-aarch64", "-cpu", "cortex-a76", "-L", packages, "-E", "LD_LIBRARY_PATH=" + ":".join(map(str, paths)),
                        "-E", "GST_PLUGIN_SYSTEM_PATH_1_0=/nonexistent"]
        self.environment = dict(os.environ, KORLA_COUNTS=f"{self.prefix}.counts", KORLA_REGIONS=f"{self.prefix}.regions")
        plugin = ["-plugin", f"{folder}/trace_plugin.so,to={self.prefix}"]
        self.table = self.run(plugin, KORLA_UNIT="instructions")
        self.counts = numpy.fromfile(f"{self.prefix}.counts", numpy.uint64).astype(numpy.int64)
        self.names = pathlib.Path(f"{self.prefix}.regions").read_text().splitlines()
        self.ends = numpy.cumsum(self.counts)
        self.trace = numpy.memmap(f"{self.prefix}.trace", numpy.uint32, "r")
        places = numpy.fromfile(f"{self.prefix}.places", numpy.dtype([("address", "<u8"), ("code", "<u4")]))
        self.addresses, self.codes = places["address"], places["code"]

    def run(self, options, **environment):
        done = subprocess.run([*self.command, *options, self.build / self.bench], capture_output=True, text=True,
                              env=dict(self.environment, **environment))
        if done.returncode:
            sys.exit(f"count.py: {self.bench} failed\n{done.stdout}{done.stderr}")
        return done.stdout

    def region(self, k):
        return self.trace[self.ends[k] - self.counts[k]:self.ends[k]]

    def disassemble(self, codes):
        """The text of every different instruction."""
        unique = numpy.unique(codes)
        data = "\n".join(" ".join(f"0x{byte:02x}" for byte in int(code).to_bytes(4, "little")) for code in unique)
        done = subprocess.run(["llvm-mc", "--disassemble", "-triple=aarch64", "-mattr=+v8.2a"],
                              input=data, capture_output=True, text=True)
        lines = [line.strip() for line in done.stdout.splitlines() if line.startswith("\t") and line[1] != "."]
        if len(lines) != len(unique):
            sys.exit(f"count.py: {self.bench}: {len(unique)} instructions, {len(lines)} of them known\n{done.stderr}")
        return dict(zip(unique.tolist(), lines))

    def cycles(self, cpu):
        """Cycles of every region."""
        texts = self.disassemble(self.codes[numpy.unique(self.trace)])
        figures, known = [], {}
        for k, count in enumerate(self.counts):
            codes = self.codes[self.region(k)[:SIMULATED]]
            key = codes.tobytes()
            if key not in known:
                report = simulate([texts[code] for code in codes.tolist()], cpu, "-resource-pressure=0")
                known[key] = int(re.search(r"Total Cycles:\s+(\d+)", report)[1])
            figures.append(known[key] * max(1.0, int(count) / SIMULATED))
        return numpy.array(figures)

    def table_in_cycles(self, cpu):
        numbers = f"{self.prefix}.{cpu}"
        self.cycles(cpu).astype(numpy.float64).tofile(numbers)
        return self.run([], KORLA_UNIT="cycles", KORLA_FIGURES=numbers)


def profile(trace, k, lines):
    """The instructions of a region in the order of their addresses, with how often each was executed."""
    places, times = numpy.unique(trace.region(k), return_counts=True)
    by_address = {}
    for place, n in zip(places.tolist(), times.tolist()):
        address = int(trace.addresses[place])
        code, before = by_address.get(address, (int(trace.codes[place]), 0))
        by_address[address] = (code, before + n)
    texts = trace.disassemble(numpy.array([code for code, _ in by_address.values()], numpy.uint32))
    total = int(trace.counts[k])
    print(f"{trace.bench}, region {k}: {total} instructions, {len(by_address)} places")
    runs = []  # straight pieces of code that are executed equally often
    for address in sorted(by_address):
        code, n = by_address[address]
        if runs and runs[-1][-1][0] + 4 == address and runs[-1][-1][2] == n:
            runs[-1].append((address, code, n))
        else:
            runs.append([(address, code, n)])
    shown = sorted(runs, key=lambda piece: -piece[0][2] * len(piece))[:lines]
    for piece in sorted(shown, key=lambda piece: piece[0][0]):
        n = piece[0][2]
        print(f"\n{n} times {len(piece)} instructions, {100 * n * len(piece) / total:.1f} %")
        for address, code, _ in piece:
            print(f"  {address:#x}  {texts[code]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/aarch64-counted")
    commands = parser.add_subparsers(dest="command", required=True)
    tables = commands.add_parser("tables")
    tables.add_argument("benches", nargs="*", metavar="BENCH")
    tables.add_argument("--cpus", default=",".join(CPUS), help="for llvm-mca; empty: instructions alone")
    regions = commands.add_parser("regions")
    where = commands.add_parser("profile")
    where.add_argument("--lines", type=int, default=12, help="pieces of code to show")
    report = commands.add_parser("mca")
    report.add_argument("--cpu", default=CPUS[0])
    for command in (regions, where, report):
        command.add_argument("bench", metavar="BENCH")
    for command in (where, report):
        command.add_argument("region", type=int)
    arguments = parser.parse_args()
    build = arguments.build.resolve()

    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run(["cc", "-O2", "-shared", "-fPIC", "-fvisibility=hidden", HERE / "trace_plugin.c", "-o",
                        folder / "trace_plugin.so"], check=True)
        if arguments.command == "regions":
            trace = Trace(build, arguments.bench, folder)
            for k, (count, name) in enumerate(zip(trace.counts, trace.names)):
                print(f"{k:6} {count:10}  {name}")
        elif arguments.command == "profile":
            profile(Trace(build, arguments.bench, folder), arguments.region, arguments.lines)
        elif arguments.command == "mca":
            trace = Trace(build, arguments.bench, folder)
            codes = trace.codes[trace.region(arguments.region)[:SIMULATED]]
            texts = trace.disassemble(codes)
            print(simulate([texts[code] for code in codes.tolist()], arguments.cpu, "-bottleneck-analysis"))
        else:
            for bench in arguments.benches or sorted(path.name for path in build.glob("*_bench")):
                trace = Trace(build, bench, folder)
                print(f"\n======== {bench}, instructions\n{trace.table}", flush=True)
                for cpu in filter(None, arguments.cpus.split(",")):
                    print(f"\n======== {bench}, cycles on {cpu}\n{trace.table_in_cycles(cpu)}", flush=True)


main()
