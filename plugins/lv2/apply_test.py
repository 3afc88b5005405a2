#!/usr/bin/python3
"""Files through lv2apply and through korla-host mix: the same frames, to the bit, after the plug-in's latency.

usage: apply_test.py KORLA_HOST
"""
import pathlib
import subprocess
import sys
import tempfile

import wave_files

HOST = sys.argv[1]
FRAMES, LATENCY = 20_000, 63
SPEAKERS = {"5.1": ["FL", "FR", "FC", "LFE", "SL", "SR"], "7.1": ["FL", "FR", "FC", "LFE", "SL", "SR", "BL", "BR"],
            "7.1.4": ["FL", "FR", "FC", "LFE", "SL", "SR", "BL", "BR", "TFL", "TFR", "TBL", "TBR"]}


with tempfile.TemporaryDirectory() as name:
    source, by_host, by_plugin = (pathlib.Path(name, file) for file in ("in.wav", "host.wav", "plugin.wav"))
    for from_, to, channels, controls in (("7.1.4", "stereo", 2, {}), ("5.1", "stereo", 2, {"dialogue": 4, "ceiling": -3}),
                                          ("7.1", "5.1", 6, {"surround": -6}), ("7.1.4", "7.1", 8, {"height": 3})):
        wave_files.write(source, len(SPEAKERS[from_]), frames=FRAMES)
        options = [word for control, value in controls.items() for word in (f"--{control}", str(value))]
        subprocess.run([HOST, "mix", source, by_host, "--from", ",".join(SPEAKERS[from_]), "--to", ",".join(SPEAKERS.get(to, ["FL", "FR"])),
                        *options], check=True, stdout=subprocess.DEVNULL)
        words = [word for control, value in controls.items() for word in ("-c", control, str(value))]
        subprocess.run(["lv2apply", "-i", source, "-o", by_plugin, *words, f"urn:korla:downmix:{from_}-to-{to}"], check=True)
        got, expected = wave_files.samples(by_plugin), wave_files.samples(by_host)
        frame = channels * 4
        # The file has its channels in WAVE order; the plug-in has its ports in the layout's.
        if to == "7.1":
            order = (0, 1, 2, 3, 6, 7, 4, 5)
            expected = b"".join(expected[t + 4 * c:t + 4 * c + 4] for t in range(0, len(expected), frame) for c in order)
        assert any(expected), "silence"
        kept = (FRAMES - LATENCY) * frame
        assert got[LATENCY * frame:][:kept] == expected[:kept], f"{from_} to {to}: other bits"
        print(f"{from_} to {to}: {kept} bytes equal")
