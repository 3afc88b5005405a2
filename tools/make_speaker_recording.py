#!/usr/bin/python3
"""Makes a multichannel recording in which every loudspeaker says its own name.

The voices are the test recordings of Debian's alsa-utils (48 kHz, mono, 16 bit); those of the top speakers, which it lacks,
come from espeak-ng. Speakers talk one after another and at the
end all at once, at full level, which gives a limiter something to do. The LFE has no voice: it gets low-passed noise.

usage: make_speaker_recording.py OUT.wav FL,FR,FC,LFE,BL,BR,SL,SR
Speakers are named in the order of the WAVE channel mask bits, as a WAV file must hold them.
"""
import math
import struct
import subprocess
import sys
import tempfile
import wave

import numpy as np
from scipy.signal import resample_poly

RATE = 48000
SOUNDS = "/usr/share/sounds/alsa/"
# name: (bit of the channel mask, recording; None: spoken by espeak-ng)
SPEAKERS = {
    "FL": (0, "Front_Left"),
    "FR": (1, "Front_Right"),
    "FC": (2, "Front_Center"),
    "LFE": (3, "Noise"),
    "BL": (4, "Rear_Left"),
    "BR": (5, "Rear_Right"),
    "BC": (8, "Rear_Center"),
    "SL": (9, "Side_Left"),
    "SR": (10, "Side_Right"),
    "TFL": (12, None),
    "TFR": (14, None),
    "TBL": (15, None),
    "TBR": (17, None),
}
WORDS = {"T": "top", "F": "front", "B": "back", "L": "left", "R": "right"}


def read(path):
    """The samples of a mono 16-bit file, full scale 1, and its rate."""
    with wave.open(path) as file:
        if (file.getnchannels(), file.getsampwidth()) != (1, 2):
            raise SystemExit(f"{path} is not mono 16 bit")
        return np.frombuffer(file.readframes(file.getnframes()), "<i2").astype(float) / 32768, file.getframerate()


def recording(name):
    samples, rate = read(SOUNDS + name + ".wav")
    if rate != RATE:
        raise SystemExit(f"{SOUNDS}{name}.wav is not at {RATE} Hz")
    return samples


def spoken(speaker):
    """The name of a speaker, read out: "top front left"."""
    with tempfile.NamedTemporaryFile(suffix=".wav") as file:
        subprocess.run(["espeak-ng", "-w", file.name, " ".join(WORDS[letter] for letter in speaker)], check=True)
        samples, rate = read(file.name)
    common = math.gcd(RATE, rate)
    return resample_poly(samples, RATE // common, rate // common)


def rumble():
    """Noise below 100 Hz, faded in and out."""
    noise = recording("Noise")
    frequency = np.fft.rfftfreq(len(noise), 1 / RATE)
    low = np.fft.irfft(np.fft.rfft(noise) / (1 + (frequency / 100) ** 8), len(noise))
    fade = np.minimum(1, np.arange(len(low)) / 2400)
    return low * fade * fade[::-1]


def voice(speaker):
    name = SPEAKERS[speaker][1]
    samples = rumble() if speaker == "LFE" else recording(name) if name else spoken(speaker)
    return samples * (0.9 / np.max(np.abs(samples)))


def write_wav(path, samples, mask):
    """16 bit WAVE_FORMAT_EXTENSIBLE."""
    frames, channels = samples.shape
    data = np.rint(np.clip(samples, -1, 32767 / 32768) * 32768).astype("<i2").tobytes()
    pcm = bytes.fromhex("0100000000001000800000aa00389b71")
    head = struct.pack("<HHIIHHHHI", 0xFFFE, channels, RATE, RATE * channels * 2, channels * 2, 16, 22, 16, mask) + pcm
    body = b"WAVEfmt " + struct.pack("<I", len(head)) + head + b"data" + struct.pack("<I", len(data)) + data
    with open(path, "wb") as file:
        file.write(b"RIFF" + struct.pack("<I", len(body)) + body)


def main():
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    names = sys.argv[2].split(",")
    bits = [SPEAKERS[name][0] for name in names]
    if bits != sorted(bits):
        raise SystemExit("speakers must stand in the order of the channel mask bits")
    voices = [voice(name) for name in names]
    pause = RATE // 5
    together = max(len(v) for v in voices)
    total = sum(len(v) + pause for v in voices) + together + pause
    samples = np.zeros((total, len(names)))
    at = 0
    for channel, speech in enumerate(voices):
        samples[at : at + len(speech), channel] = speech
        at += len(speech) + pause
    for channel, speech in enumerate(voices):
        samples[at : at + len(speech), channel] = speech
    write_wav(sys.argv[1], samples, sum(1 << bit for bit in bits))
    print(f"{sys.argv[1]}: {', '.join(names)}, {total / RATE:.1f} s")


main()
