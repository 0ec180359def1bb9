"""The examples do what they say."""
from __future__ import annotations

import os
import pathlib
import subprocess
import sys
from typing import Any, Dict

import pytest

import telvane
from telvane.testing import find_program

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent.parent / "examples/python"


def await_subscriber(bus: telvane.Bus, channel: str) -> None:
    while True:
        for entry in bus.request("TelvaneChannels", timeout=5)["channels"]:
            if entry["channel"] == channel and entry["subscribers"]:
                return


@pytest.mark.parametrize("name", ["watch_welds.py", "watch_welds_async.py"])
def test_a_weld_is_printed_when_it_ends(name: str, telvane_bus: telvane.Bus, telvane_path: str,
                                        telvane_weld: Any) -> None:
    program = subprocess.Popen([sys.executable, EXAMPLES / name, telvane_path], stdout=subprocess.PIPE, text=True)
    assert program.stdout is not None
    try:
        await_subscriber(telvane_bus, "WeldTriggerEnd")
        telvane_weld("--duration", "1.5", "--period-us", "2000")
        line = program.stdout.readline()
        assert line.startswith("weld 1: 1.5 s")
        if name == "watch_welds_async.py":
            assert telvane_bus.request(telvane.DataStatus, timeout=5).ttl == 1
    finally:
        program.kill()
        program.wait()
        program.stdout.close()


def test_the_tests_of_a_power_source_pass() -> None:
    command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "pytest_telvane",
               EXAMPLES / "test_power_source.py"]
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0 and "2 passed" in done.stdout, done.stdout


def test_the_notebook_draws_a_weld(telvane_bus: telvane.Bus, telvane_path: str, telvane_weld: Any,
                                   tmp_path: pathlib.Path) -> None:
    recording, picture = tmp_path / "weld.jsonl", tmp_path / "weld.png"
    end = telvane_bus.listen(telvane.WeldTriggerEnd)
    recorder = subprocess.Popen([find_program(), "record", "-o", recording, telvane_path, "WeldTraceData",
                                 "WeldTriggerEnd", "WeldTriggerStart"], stderr=subprocess.DEVNULL)
    try:
        await_subscriber(telvane_bus, "WeldTriggerStart")
        telvane_weld("--duration", "1.5", "--period-us", "2000").wait()
        end.recv(5)
    finally:
        recorder.terminate()
        recorder.wait(10)
    environment: Dict[str, str] = {**os.environ, "MPLCONFIGDIR": str(tmp_path)}
    done = subprocess.run([sys.executable, EXAMPLES / "weld_notebook.py", recording, picture], env=environment,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert "standard deviation" in done.stdout and picture.read_bytes().startswith(b"\x89PNG")
