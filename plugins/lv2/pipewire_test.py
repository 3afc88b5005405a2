#!/usr/bin/python3
"""A PipeWire of its own, without devices: plays a 7.1.4 file into the sink of korla-downmix.conf, records what its
loudspeakers get and looks for the frames of korla-host mix in it, to the bit.

usage: pipewire_test.py KORLA_HOST
"""
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

import wave_files

DEADLINE = 40  # seconds for any step
SPEAKERS = ["FL", "FR", "FC", "LFE", "SL", "SR", "BL", "BR", "TFL", "TFR", "TBL", "TBR"]
POSITIONS = "FL,FR,FC,LFE,SL,SR,RL,RR,TFL,TFR,TRL,TRR"  # of the same, as PipeWire calls them
DAEMON = """
context.properties = { core.daemon = true core.name = pipewire-0 default.clock.rate = 48000 default.clock.quantum = 1024 }
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert support.* = support/libspa-support }
context.modules = [
  { name = libpipewire-module-protocol-native } { name = libpipewire-module-metadata }
  { name = libpipewire-module-spa-node-factory } { name = libpipewire-module-spa-device-factory }
  { name = libpipewire-module-client-node } { name = libpipewire-module-client-device }
  { name = libpipewire-module-access } { name = libpipewire-module-adapter }
  { name = libpipewire-module-link-factory } { name = libpipewire-module-session-manager }
]
context.objects = [
  { factory = adapter args = { factory.name = support.null-audio-sink node.name = loudspeakers media.class = Audio/Sink
      audio.position = [ FL FR ] audio.rate = 48000 } }
]
"""


class Processes:
    """Programs that end with this one."""

    def __init__(self):
        self.running = []

    def start(self, *words):
        process = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.running.append(process)
        return process

    def stop(self, process):
        self.running.remove(process)
        process.send_signal(signal.SIGINT)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in reversed(self.running[:]):
            self.stop(process)


def links():
    """The output ports that are linked, with what they are linked to."""
    text = subprocess.run(["pw-link", "-l"], capture_output=True, text=True, timeout=DEADLINE).stdout
    port, found = None, set()
    for line in text.splitlines():
        if line.startswith("  |-> "):
            found.add((port, line[6:]))
        elif not line.startswith(" "):
            port = line
    return found


def wait_for(what, condition):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"{what} did not come within {DEADLINE} s; links: {links()}")
        time.sleep(0.05)


def main(host):
    runtime = pathlib.Path(os.environ["XDG_RUNTIME_DIR"])
    source, mixed, recorded = (runtime / name for name in ("in.wav", "mixed.wav", "recorded.wav"))
    config = runtime / "daemon.conf"
    config.write_text(DAEMON)
    wave_files.write(source, len(SPEAKERS), frames=96_000)
    subprocess.run([host, "mix", source, mixed, "--from", ",".join(SPEAKERS), "--to", "stereo"], check=True,
                   stdout=subprocess.DEVNULL)
    with Processes() as processes:
        processes.start("pipewire", "-c", config)
        wait_for("the daemon", (runtime / "pipewire-0").exists)
        processes.start("wireplumber")
        processes.start("pipewire", "-c", pathlib.Path(__file__).resolve().parent / "korla-downmix.conf")
        chain = {("effect_output.korla:output_" + side, "loudspeakers:playback_" + side) for side in ("FL", "FR")}
        wait_for("the filter chain", lambda: chain <= links())
        recorder = processes.start("pw-cat", "--record", "--target", "loudspeakers", "-P", "{ stream.capture.sink = true }",
                                   "--rate", "48000", "--channels", "2", "--format", "f32", recorded)
        wait_for("the recorder", lambda: any(port == "loudspeakers:monitor_FL" for port, _ in links()))
        subprocess.run(["pw-cat", "--playback", "--target", "effect_input.korla", "--channel-map", POSITIONS, source], check=True,
                       timeout=DEADLINE)
        time.sleep(0.5)  # what is on its way
        processes.stop(recorder)
    frame, expected, got = 8, wave_files.samples(mixed), wave_files.samples(recorded)
    middle = expected[40_000 * frame:80_000 * frame]
    place = got.find(middle)
    assert any(middle) and place >= 0, f"{len(got) // frame} frames were recorded, and they are others"
    print(f"{len(middle) // frame} frames are equal, from frame {place // frame} of the recording on")


if "KORLA_BUS" in os.environ:
    main(sys.argv[1])
else:  # the session manager wants a message bus
    with tempfile.TemporaryDirectory() as name:
        environment = {key: value for key, value in os.environ.items() if not key.startswith(("DBUS_", "PIPEWIRE_"))}
        environment.update(KORLA_BUS="1", XDG_RUNTIME_DIR=name, XDG_CONFIG_HOME=name, XDG_STATE_HOME=name, HOME=name)
        sys.exit(subprocess.run(["dbus-run-session", "--", sys.executable, *sys.argv], env=environment, timeout=8 * DEADLINE).returncode)
