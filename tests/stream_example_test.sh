#!/bin/bash
# Runs the host of docs/stream.md: as many frames come out as went in, and a tone in the centre comes out 0 dB (-3 dB + 3 dB)
# on both sides.
# usage: stream_example_test.sh [EMULATOR...] PROGRAM
set -euo pipefail
/usr/bin/python3 - "$@" <<'END'
import math, struct, subprocess, sys
frames = 1000
centre = [round(8000 * math.sin(0.1 * t)) for t in range(frames)]
pcm = b"".join(struct.pack("<12h", *(x if c == 2 else 0 for c in range(12))) for x in centre)
out = subprocess.run(sys.argv[1:], input=pcm, stdout=subprocess.PIPE, check=True).stdout
samples = struct.unpack(f"<{len(out) // 2}h", out)
assert len(samples) == 2 * frames, len(samples)
assert all(abs(samples[2 * t + side] - x) <= 1 for t, x in enumerate(centre) for side in (0, 1))
END
