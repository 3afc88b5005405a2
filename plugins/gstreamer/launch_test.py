#!/usr/bin/python3
"""Files through gst-launch-1.0 and through korla-host mix: the same frames, to the bit.

usage: launch_test.py KORLA_HOST
"""
import pathlib
import subprocess
import sys
import tempfile

import wave_files

HOST = sys.argv[1]


def launch(*words):
    subprocess.run(["gst-launch-1.0", "-q", *words], check=True, timeout=60)


def mixed_by_both(folder, source, decoder, layout, options=(), properties=()):
    by_host, by_element = folder / "host.wav", folder / "element.wav"
    subprocess.run([HOST, "mix", source, by_host, "--to", layout, *options], check=True, stdout=subprocess.DEVNULL)
    launch("filesrc", f"location={source}", *decoder, "!", "korladownmix", f"layout={layout}", *properties, "!", "wavenc", "!",
           "filesink", f"location={by_element}")
    expected, got = wave_files.samples(by_host), wave_files.samples(by_element)
    assert any(expected), "silence"
    assert got == expected, f"{source.name} to {layout}: {len(got)} and {len(expected)} bytes, or other ones"
    print(f"{source.name} to {layout}: {len(expected)} bytes equal")


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    wave = folder / "in.wav"
    for mask, layout in ((0x2D63F, "stereo"), (0x60F, "stereo"), (0x3F, "mono")):
        for kind in ("s16", "s24", "s32", "f32"):
            wave_files.write(wave, bin(mask).count("1"), kind, mask)
            mixed_by_both(folder, wave, ("!", "wavparse"), layout)
    wave_files.write(wave, 6, "s16", 0x60F)
    mixed_by_both(folder, wave, ("!", "wavparse"), "stereo", ("--dialogue", "5", "--ceiling", "-2", "--lfe", "-6"),
                  ("dialogue=5", "ceiling=-2", "lfe=-6"))
    wave_files.write(wave, 6, "s16", 0x3F)  # the encoders take back speakers only
    flac, ogg = folder / "in.flac", folder / "in.ogg"
    launch("filesrc", f"location={wave}", "!", "wavparse", "!", "flacenc", "!", "filesink", f"location={flac}")
    mixed_by_both(folder, flac, ("!", "flacparse", "!", "flacdec"), "stereo")
    launch("filesrc", f"location={wave}", "!", "wavparse", "!", "audioconvert", "!", "vorbisenc", "!", "oggmux", "!", "filesink",
           f"location={ogg}")
    mixed_by_both(folder, ogg, ("!", "oggdemux", "!", "vorbisdec"), "stereo")
