#!/usr/bin/python3
"""Files through aplay and through korla-host mix: the same frames, to the bit, after the filter's latency.

usage: aplay_test.py KORLA_HOST
"""
import os
import pathlib
import subprocess
import sys
import tempfile

import wave_files

HOST = sys.argv[1]
FRAMES, LATENCY = 20_000, 63
SPEAKERS = {6: "FL,FR,BL,BR,FC,LFE", 8: "FL,FR,BL,BR,FC,LFE,SL,SR"}  # ALSA's orders
FORMATS = {"s16": "S16_LE", "s24": "S24_3LE", "s32": "S32_LE", "f32": "FLOAT_LE"}

with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    source, raw, by_host, by_filter = (folder / file for file in ("in.wav", "in.raw", "host.wav", "out.raw"))
    configuration = folder / "asound.conf"
    environment = dict(os.environ, ALSA_CONFIG_PATH=str(configuration))
    for channels, to, fields, options in ((6, "stereo", "", ()), (8, "stereo", "dialogue 4 ceiling -3", ("--dialogue", "4", "--ceiling", "-3")),
                                          (8, "FL,FR,FC,LFE,SL,SR", "", ())):
        configuration.write_text(f"""
pcm.downmix {{ type korla to "{to}" {fields}
  slave.pcm {{ type file file "{by_filter}" format raw slave.pcm {{ type null }} }} }}
""")
        for kind, alsa_format in FORMATS.items():
            wave_files.write(source, channels, kind, frames=FRAMES)
            raw.write_bytes(wave_files.samples(source))
            by_filter.unlink(missing_ok=True)
            subprocess.run([HOST, "mix", source, by_host, "--from", SPEAKERS[channels], "--to", to, *options], check=True,
                           stdout=subprocess.DEVNULL)
            subprocess.run(["aplay", "-q", "-D", "downmix", "-t", "raw", "-f", alsa_format, "-c", str(channels), "-r", "48000", raw],
                           check=True, env=environment, timeout=60)
            got, expected = by_filter.read_bytes(), wave_files.samples(by_host)
            frame = len(expected) // FRAMES
            kept = (FRAMES - LATENCY) * frame
            assert any(expected), "silence"
            assert got[LATENCY * frame:][:kept] == expected[:kept], f"{channels} channels to {to}, {kind}: other bits"
            print(f"{channels} channels to {to}, {kind}: {kept} bytes equal")
