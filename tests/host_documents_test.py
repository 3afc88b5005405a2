"""What the documents of korla-host promise: every report is as its schema says, every option is in a manual page, and the shell
completes commands, options and layouts.

usage: host_documents_test.py HOST SCHEMA COMPLETION [MANUAL_PAGE...]"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema

import wave_files

host, schema_path, completion, *pages = sys.argv[1:]
schema = json.loads(pathlib.Path(schema_path).read_text())
jsonschema.Draft7Validator.check_schema(schema)
folder = tempfile.TemporaryDirectory()
wave = f"{folder.name}/in.wav"
wave_files.write(pathlib.Path(wave), 6, "s16", frames=4000)


def run(*arguments):
    return subprocess.run([host, *arguments], check=True, capture_output=True, text=True).stdout


def test_reports():
    for command in (f"run {wave} OUT --layout stereo --true-peak", f"run {wave} OUT --map FL,FR,FC,BC,BL,BR --layout stereo",
                    f"mix {wave} OUT --to 7.1.4 --dialogue 3 --lfe off --depth 24", f"mix {wave} OUT --to LFE,FC --no-limiter", "info",
                    "layouts", "bench"):
        words = command.replace("OUT", f"{folder.name}/out.wav").split()
        report = json.loads(run("--json", *words))
        jsonschema.Draft7Validator({"$ref": f"#/definitions/{words[0]}", "definitions": schema["definitions"]}).validate(report)
        report["more"] = 1
        assert not jsonschema.Draft7Validator(schema).is_valid(report), "the schema takes anything"


def test_manual_pages():
    written = {pathlib.Path(page).stem: pathlib.Path(page).read_text().replace("\\", "") for page in pages}
    for command in ("", "run", "mix", "info", "layouts", "bench"):
        page = written["korla-host" + ("-" + command if command else "")]
        options = set(re.findall(r"--[a-z][a-z0-9-]+", run(*command.split(), "--help")))
        bare = re.sub(r"f[BIR]", "", page)
        assert options and all(option in bare for option in options), command


def complete(*words):
    """What the shell offers for the last of the words."""
    script = (f'source {completion}; COMP_WORDS=({" ".join(repr(word) for word in words)}); COMP_CWORD={len(words) - 1}; _korla_host; '
              'echo "${COMPREPLY[@]}"')
    return subprocess.run(["bash", "-c", script], check=True, capture_output=True, text=True).stdout.split()


def test_completion():
    assert set(complete(host, "")) == {"run", "mix", "info", "layouts", "bench"}
    assert {"--to", "--depth", "--dialogue"} <= set(complete(host, "mix", "--")) and "--planar" in complete(host, "run", "--p")
    assert {"stereo", "5.1", "7.1.4"} <= set(complete(host, "mix", "in.wav", "--to", ""))
    assert complete(host, "mix", "--depth", "") == ["16", "24", "32", "float"]
    assert complete(host, "mix", wave[:-3]) == [wave]


for name, test in list(globals().items()):
    if name.startswith("test_") and (pages or name != "test_manual_pages"):
        test()
        print(name)
