#!/usr/bin/python3
"""Files through gst-launch-1.0 and through korla-host mix: the same frames, to the bit.

usage: launch_test.py KORLA_HOST
"""
import math
import pathlib
import struct
import subprocess
import sys
import tempfile

HOST = sys.argv[1]
FRAMES = 20_000


def pcm(path):
    """The bytes of a WAV file's samples."""
    data = path.read_bytes()
    at = 12
    while data[at:at + 4] != b"data":
        at += 8 + struct.unpack("<I", data[at + 4:at + 8])[0]
    return data[at + 8:at + 8 + struct.unpack("<I", data[at + 4:at + 8])[0]]


def write_wav(path, mask, kind):
    """A different tone in every channel, together well above full scale."""
    channels = bin(mask).count("1")
    tones = [[0.9 * math.sin(0.02 * (c + 1) * t + c) for c in range(channels)] for t in range(FRAMES)]
    bits = {"s16": 16, "s24": 24, "s32": 32, "f32": 32}[kind]
    if kind == "f32":
        data = b"".join(struct.pack(f"<{channels}f", *frame) for frame in tones)
    else:
        data = b"".join(int(x * (2 ** (bits - 1) - 1)).to_bytes(bits // 8, "little", signed=True) for frame in tones for x in frame)
    tag = struct.pack("<I", 3 if kind == "f32" else 1) + bytes.fromhex("0000 1000 8000 00aa 0038 9b71")
    frame = channels * bits // 8
    fmt = struct.pack("<HHIIHHHHI", 0xFFFE, channels, 48000, 48000 * frame, frame, bits, 22, bits, mask) + tag
    path.write_bytes(b"RIFF" + struct.pack("<I", 4 + 8 + len(fmt) + 8 + len(data)) + b"WAVE" +
                     b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data)


def launch(*words):
    subprocess.run(["gst-launch-1.0", "-q", *words], check=True, timeout=60)


def mixed_by_both(folder, source, decoder, layout, options=(), properties=()):
    by_host, by_element = folder / "host.wav", folder / "element.wav"
    subprocess.run([HOST, "mix", source, by_host, "--to", layout, *options], check=True, stdout=subprocess.DEVNULL)
    launch("filesrc", f"location={source}", *decoder, "!", "korladownmix", f"layout={layout}", *properties, "!", "wavenc", "!",
           "filesink", f"location={by_element}")
    expected, got = pcm(by_host), pcm(by_element)
    frames = len(expected)
    assert frames > 0 and any(expected), "silence"
    assert got == expected, f"{source.name} to {layout}: {len(got)} and {frames} bytes, or other ones"
    print(f"{source.name} to {layout}: {frames} bytes equal")


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    wave = folder / "in.wav"
    for mask, layout in ((0x2D63F, "stereo"), (0x60F, "stereo"), (0x3F, "mono")):
        for kind in ("s16", "s24", "s32", "f32"):
            write_wav(wave, mask, kind)
            mixed_by_both(folder, wave, ("!", "wavparse"), layout)
    write_wav(wave, 0x60F, "s16")
    mixed_by_both(folder, wave, ("!", "wavparse"), "stereo", ("--dialogue", "5", "--ceiling", "-2", "--lfe", "-6"),
                  ("dialogue=5", "ceiling=-2", "lfe=-6"))
    write_wav(wave, 0x3F, "s16")  # the encoders take back speakers only
    flac, ogg = folder / "in.flac", folder / "in.ogg"
    launch("filesrc", f"location={wave}", "!", "wavparse", "!", "flacenc", "!", "filesink", f"location={flac}")
    mixed_by_both(folder, flac, ("!", "flacparse", "!", "flacdec"), "stereo")
    launch("filesrc", f"location={wave}", "!", "wavparse", "!", "audioconvert", "!", "vorbisenc", "!", "oggmux", "!", "filesink",
           f"location={ogg}")
    mixed_by_both(folder, ogg, ("!", "oggdemux", "!", "vorbisdec"), "stereo")
