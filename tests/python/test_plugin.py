"""The pytest plugin: pytest inside pytest, and the texts that testers read."""
from __future__ import annotations

import os
import pathlib
import signal
import subprocess
import sys
import time
from typing import Any

import pytest

import telvane
from telvane.testing import ProgramNotFound, Server, ServerFailed, expect, expect_none, find_program

PACKAGE = pathlib.Path(telvane.__file__).resolve().parent.parent


@pytest.fixture
def inner(pytester: pytest.Pytester, monkeypatch: pytest.MonkeyPatch) -> pytest.Pytester:
    monkeypatch.setenv("PYTHONPATH", f"{PACKAGE}:{os.environ.get('PYTHONPATH', '')}")
    monkeypatch.delenv("PYTEST_ADDOPTS", raising=False)
    return pytester


def run(inner: pytest.Pytester, text: str, *options: str) -> pytest.RunResult:
    inner.makepyfile("import telvane\nfrom telvane.testing import expect, expect_none\n" + text)
    return inner.runpytest_subprocess("-p", "pytest_telvane", "-p", "no:cacheprovider", *options)


def test_a_test_gets_a_server_a_bus_and_a_power_source(inner: pytest.Pytester) -> None:
    result = run(inner, """
def test_weld(telvane_bus, telvane_weld):
    with expect(telvane_bus, "WeldTriggerEnd", where=lambda end: end.metrics.ArcDuration.Value > 1, within=10) as seen:
        telvane_weld("--duration", 1.5)
    assert isinstance(seen.record, telvane.WeldTriggerEnd)

def test_restart(telvane_server, telvane_bus, telvane_path):
    assert telvane_path == telvane_bus.path == telvane_server.path and len(telvane_path) < 60
    telvane_server.restart()
    telvane_bus.wait_connected()
""")
    result.assert_outcomes(passed=2)


def test_a_failed_expectation_shows_what_came_instead_and_what_the_server_said(inner: pytest.Pytester) -> None:
    result = run(inner, """
def test_end(telvane_bus):
    with expect(telvane_bus, telvane.DataStatus, where=lambda status: status.ttl == 7, within=2):
        for ttl in range(12):
            if ttl != 7:
                telvane_bus.publish(telvane.DataStatus(ttl=ttl))
""")
    result.assert_outcomes(failed=1)
    result.stdout.fnmatch_lines([
        "*AssertionError: DataStatus that matches was expected and did not come within 2 s",
        "*on DataStatus came instead:", "*(1 more)", "*after * s: DataStatus(ttl=1)", "*DataStatus(ttl=11)",
        "*on other channels the server has relayed nothing", "*Output of the Telvane server*"])


def test_the_negative_form_fails_with_the_record(telvane_bus: telvane.Bus) -> None:
    with expect_none(telvane_bus, telvane.LogData, where=lambda log: log.log == "bad", within=0.05):
        telvane_bus.publish(telvane.LogData(log="good"))
    with pytest.raises(AssertionError, match=r"no LogData .* came after .* s: LogData\(log='bad'\)"):
        with expect_none(telvane_bus, telvane.LogData, within=5):
            telvane_bus.publish(telvane.LogData(log="bad"))


def test_nothing_can_be_excluded_when_the_connection_was_lost(telvane_server: Server, telvane_bus: telvane.Bus) -> None:
    with pytest.raises(AssertionError, match="(?s)cannot be excluded: the connection was lost.*connection lost"):
        with expect_none(telvane_bus, telvane.LogData, within=0.1):
            telvane_server.kill()
            while telvane_bus.connected:
                time.sleep(0.001)


def test_an_expectation_passes_on_the_exception_of_the_stimulus(telvane_bus: telvane.Bus) -> None:
    with pytest.raises(ZeroDivisionError):
        with expect(telvane_bus, telvane.LogData, within=30):
            raise ZeroDivisionError


def test_an_expectation_outlives_a_restart(telvane_server: Server, telvane_bus: telvane.Bus) -> None:
    with expect(telvane_bus, telvane.LogData, within=10) as seen:
        before = telvane_bus.epoch
        telvane_server.restart()
        while telvane_bus.epoch == before or not telvane_bus.connected:
            time.sleep(0.002)
        telvane_bus.publish(telvane.LogData(log="x"))
    assert seen.record.log == "x" and len(seen.others) == 2


def test_a_bus_that_runs_already_is_used(inner: pytest.Pytester, telvane_server: Server) -> None:
    result = run(inner, """
def test_path(telvane_bus):
    assert telvane_bus.path == "%s"
    telvane_bus.publish(telvane.LogData())

def test_control(telvane_server):
    telvane_server.kill()
""" % telvane_server.path, f"--telvane-bus={telvane_server.path}")
    result.assert_outcomes(passed=1, skipped=1)
    assert telvane_server.pid is not None


def test_a_missing_program_is_one_clear_line(inner: pytest.Pytester) -> None:
    result = run(inner, "def test_it(telvane_bus): pass\n", "--telvane-program=/nowhere/telvane")
    result.assert_outcomes(errors=1)
    result.stdout.fnmatch_lines(["*there is no program '/nowhere/telvane': install the package telvane-tools*"])
    result.stdout.no_fnmatch_line("*Traceback*")
    with pytest.raises(ProgramNotFound):
        find_program("/nowhere/telvane")


def test_a_server_that_does_not_start_shows_its_output() -> None:
    with pytest.raises(ServerFailed, match="(?s)exit code [0-9]+:.*--nonsense"):
        Server(options=["--nonsense"])


def test_the_suite_runs_in_parallel_and_in_a_deep_directory(inner: pytest.Pytester, monkeypatch: pytest.MonkeyPatch,
                                                            tmp_path: pathlib.Path) -> None:
    pytest.importorskip("xdist")
    deep = tmp_path / ("deep" * 30)
    deep.mkdir()
    monkeypatch.setenv("TMPDIR", str(deep))
    result = run(inner, """
import pytest

@pytest.mark.parametrize("number", range(8))
def test_echo(telvane_bus, number):
    listener = telvane_bus.listen(telvane.LogData)
    telvane_bus.publish(telvane.LogData(log=str(number)))
    assert listener.recv(10).log == str(number)
""", "-n", "2")
    result.assert_outcomes(passed=8)


@pytest.mark.parametrize("how", [signal.SIGKILL, signal.SIGINT, signal.SIGTERM])
def test_the_server_ends_with_pytest_however_that_ends(inner: pytest.Pytester, how: signal.Signals) -> None:
    inner.makepyfile("""
import time

def test_hang(telvane_server):
    print(telvane_server.pid, telvane_server.directory, flush=True)
    time.sleep(60)
""")
    process = subprocess.Popen([sys.executable, "-m", "pytest", "-s", "-p", "pytest_telvane", "-p", "no:cacheprovider"],
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=inner.path)
    assert process.stdout is not None
    server, directory = 0, ""
    for text in process.stdout:
        words = text.replace("test_the_server_ends_with_pytest_however_that_ends.py", "").strip(" .").split()
        if len(words) == 2 and words[0].isdigit():
            server, directory = int(words[0]), words[1]
            break
    assert server and pathlib.Path(directory).exists()
    process.send_signal(how)
    process.stdout.read()
    process.stdout.close()
    process.wait(20)
    deadline = time.monotonic() + 10
    while pathlib.Path(directory).exists() or _runs(server):
        assert time.monotonic() < deadline, "the server outlived pytest"
        time.sleep(0.01)


def _runs(pid: int) -> bool:
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0]
    except OSError:
        return False
    return state != "Z"


def test_the_plugin_does_not_import_the_package() -> None:
    code = ("import sys, pytest_telvane\n"
            "assert not [name for name in sys.modules if name.split('.')[0] in ('telvane', 'asyncio', 'pandas')]")
    environment: Any = {**os.environ, "PYTHONPATH": str(PACKAGE)}
    subprocess.run([sys.executable, "-c", code], check=True, env=environment)


def test_a_server_that_was_killed_leaves_no_process_behind(telvane_server: Server) -> None:
    first = telvane_server.pid
    for _ in range(5):
        telvane_server.restart()
    assert first is not None and not _runs(first) and telvane_server.pid != first
    telvane_server.stop()
    telvane_server.stop()
    assert not pathlib.Path(telvane_server.directory).exists()
