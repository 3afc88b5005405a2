"""WAV files for tests of programs: written with a tone in every channel, read as bytes."""
import math
import struct

KINDS = {"s16": 16, "s24": 24, "s32": 32, "f32": 32}


def write(path, channels, kind="f32", mask=0, frames=20_000, rate=48_000):
    """A different tone in every channel, together well above full scale. mask: of WAVE_FORMAT_EXTENSIBLE."""
    bits = KINDS[kind]
    tones = ([0.9 * math.sin(0.02 * (c + 1) * t + c) for c in range(channels)] for t in range(frames))
    if kind == "f32":
        data = b"".join(struct.pack(f"<{channels}f", *frame) for frame in tones)
    else:
        data = b"".join(int(x * (2 ** (bits - 1) - 1)).to_bytes(bits // 8, "little", signed=True) for frame in tones for x in frame)
    frame = channels * bits // 8
    tag = struct.pack("<I", 3 if kind == "f32" else 1) + bytes.fromhex("0000 1000 8000 00aa 0038 9b71")
    fmt = struct.pack("<HHIIHHHHI", 0xFFFE, channels, rate, rate * frame, frame, bits, 22, bits, mask) + tag
    path.write_bytes(b"RIFF" + struct.pack("<I", 4 + 8 + len(fmt) + 8 + len(data)) + b"WAVE" +
                     b"fmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(data)) + data)


def samples(path):
    """The bytes of a file's samples."""
    data = path.read_bytes()
    at = 12
    while data[at:at + 4] != b"data":
        at += 8 + struct.unpack("<I", data[at + 4:at + 8])[0]
    return data[at + 8:at + 8 + struct.unpack("<I", data[at + 4:at + 8])[0]]
