"""The examples do what they say."""
from __future__ import annotations

import os
import pathlib
import subprocess
import sys
from typing import Any, Dict

import telvane
from telvane.testing import find_program

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent.parent / "examples/python"


def await_subscribers(bus: telvane.Bus, channel: str, number: int) -> None:
    while True:
        for entry in bus.request("TelvaneChannels", timeout=5)["channels"]:
            if entry["channel"] == channel and entry["subscribers"] == number:
                return


def test_a_weld_is_printed_when_it_ends(telvane_bus: telvane.Bus, telvane_path: str, telvane_weld: Any) -> None:
    programs = [subprocess.Popen([sys.executable, EXAMPLES / name, telvane_path], stdout=subprocess.PIPE, text=True)
                for name in ("watch_welds.py", "watch_welds_async.py")]
    try:
        await_subscribers(telvane_bus, "WeldTriggerEnd", len(programs))
        telvane_weld("--duration", "1.5", "--period-us", "2000")
        for program in programs:
            assert program.stdout is not None
            assert program.stdout.readline().startswith("weld 1: 1.5 s")
        assert telvane_bus.request(telvane.DataStatus, timeout=5).ttl == 1
    finally:
        for program in programs:
            program.kill()
            program.communicate()


def test_the_tests_of_a_power_source_pass() -> None:
    command = [sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "pytest_telvane",
               EXAMPLES / "test_power_source.py"]
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0 and "2 passed" in done.stdout, done.stdout


def test_the_notebook_draws_a_weld(tmp_path: pathlib.Path) -> None:
    recording, picture = tmp_path / "weld.jsonl", tmp_path / "weld.png"
    subprocess.run([find_program(), "weld", "-o", recording, "--duration", "1.5", "--period-us", "2000"], check=True,
                   stderr=subprocess.DEVNULL)
    # What matplotlib finds out about fonts is kept in the build directory, if that is known.
    environment: Dict[str, str] = {"MPLCONFIGDIR": str(tmp_path), **os.environ}
    done = subprocess.run([sys.executable, EXAMPLES / "weld_notebook.py", recording, picture], env=environment,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert "standard deviation" in done.stdout and picture.read_bytes().startswith(b"\x89PNG")
