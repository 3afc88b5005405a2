"""The examples draw; pip makes a package that stands alone."""
import os
import pathlib
import subprocess
import sys

import korla
import numpy as np
import pytest
import soundfile

HERE = pathlib.Path(__file__).resolve().parent.parent


@pytest.mark.parametrize("kind", [value for value in vars(korla).values() if isinstance(value, type)])
def test_an_object_without_constructor_refuses_everything(kind):
    for name in set(dir(kind)) - set(dir(object)) - {"__module__"}:
        if isinstance(getattr(kind, name), int):
            continue  # the class's own
        refusals = []
        for arguments in ((), (np.zeros((64, 2)),)):  # as the methods take them
            with pytest.raises(TypeError) as refusal:
                getattr(kind.__new__(kind), name)(*arguments)
            refusals.append("__init__ of" in str(refusal.value))
        assert any(refusals), name


@pytest.mark.parametrize("example", sorted(path.name for path in (HERE / "examples").glob("*.py")))
def test_examples_end_in_pictures(tmp_path, example):
    subprocess.run([sys.executable, HERE / "examples" / example, "--picture", tmp_path / "picture.png"], check=True, cwd=tmp_path,
                   timeout=300)
    assert (tmp_path / "picture.png").stat().st_size > 5000


def test_an_example_mixes_a_file(tmp_path):
    x = np.random.default_rng(1).uniform(-0.5, 0.5, (1000, 6))
    soundfile.write(tmp_path / "in.wav", x, 48000)
    subprocess.run([sys.executable, HERE / "examples/downmix.py", tmp_path / "in.wav", tmp_path / "out.wav", "--to", "stereo"],
                   check=True)
    y, rate = soundfile.read(tmp_path / "out.wav")
    assert y.shape == (1000, 2) and rate == 48000


@pytest.mark.skipif("KORLA_SANITIZED" in os.environ, reason="a package of its own, built without")
def test_pip_installs_a_package_that_stands_alone(tmp_path):
    subprocess.run([sys.executable, "-m", "pip", "install", "-q", "--no-build-isolation", "--no-deps", "--no-index",
                    "--root-user-action=ignore", "--target", tmp_path, HERE], check=True,
                   env=dict(os.environ, CMAKE_ARGS="-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0"))
    code = "import korla, numpy; print(korla.__file__, korla.downmix(numpy.ones((64, 6)), '5.1', 'stereo', 48000).shape)"
    environment = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
    out = subprocess.run([sys.executable, "-c", code], check=True, env=dict(environment, PYTHONPATH=str(tmp_path)),
                         capture_output=True, text=True).stdout
    assert out.startswith(str(tmp_path)) and "(64, 2)" in out
    (library,) = tmp_path.glob("korla/_core*.so")
    assert "libkorla" not in subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True).stdout
