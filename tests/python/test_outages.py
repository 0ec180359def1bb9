"""A suite that goes on while its server is killed: nothing hangs, and no test leaves a thread or a descriptor."""
from __future__ import annotations

import asyncio
import os
import pathlib
import random
import subprocess
import sys
import time
from typing import Any, Callable, Iterator, List

import pytest
from conftest import KILLS

import telvane
from telvane import aio

PACKAGE = pathlib.Path(telvane.__file__).resolve().parent.parent

# A process of its own, so that the descriptors of the server are not those of the suite.
KILLER = """
import random, sys, time
from telvane.testing import Server

choose = random.Random(1)
with Server() as server:
    print(server.path, flush=True)
    for _ in sys.stdin:
        time.sleep(choose.uniform(0, 0.01))
        server.restart()
        print("back", flush=True)
"""


class Killer:
    """Kills the server of the suite when asked to, and starts it again."""

    def __init__(self) -> None:
        self._process = subprocess.Popen(
            [sys.executable, "-c", KILLER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            env={**os.environ, "PYTHONPATH": str(PACKAGE)})
        self.path = self._answer()

    def _answer(self) -> str:
        assert self._process.stdout is not None
        return self._process.stdout.readline().strip()

    def kill(self) -> None:
        """Does not wait; `wait` does."""
        assert self._process.stdin is not None
        self._process.stdin.write("kill\n")
        self._process.stdin.flush()

    def wait(self) -> None:
        assert self._answer() == "back"

    def end(self) -> None:
        self._process.communicate(timeout=30)


@pytest.fixture(scope="module")
def killer() -> Iterator[Killer]:
    killer = Killer()
    try:
        yield killer
    finally:
        killer.end()


@pytest.fixture(scope="module")
def long_bus(killer: Killer) -> Iterator[telvane.Bus]:
    """Lives through all outages."""
    with telvane.Bus(killer.path) as bus:
        bus.wait_connected(10)
        yield bus


@pytest.fixture(scope="module")
def long_listener(long_bus: telvane.Bus) -> Iterator["telvane.Listener[telvane.LogData]"]:
    with long_bus.listen(telvane.LogData) as listener:
        yield listener


Expected = (telvane.NotConnected, telvane.RequestTimeout)


@pytest.mark.parametrize("number", range(0, KILLS, 2))
def test_blocking_tests_go_on(killer: Killer, long_bus: telvane.Bus, number: int,
                              long_listener: "telvane.Listener[telvane.LogData]") -> None:
    called: List[str] = []
    errors: List[BaseException] = []  # of answers that found no connection
    with telvane.Bus(killer.path, on_error=lambda error, _: errors.append(error)) as bus, \
            bus.listen(telvane.LogData, with_events=True) as listener, \
            bus.subscribe(telvane.LogData, lambda record, _: called.append(record.log)), \
            bus.respond(telvane.DataStatus, lambda: telvane.DataStatus(ttl=number)):
        bus.wait_connected(10)
        before, long_before = bus.epoch, long_bus.epoch
        killer.kill()
        deadline = time.monotonic() + 20
        while bus.epoch == before or long_bus.epoch == long_before or not (bus.connected and long_bus.connected):
            assert time.monotonic() < deadline
            try:  # in the middle of the outage, whatever it ends in
                bus.publish(telvane.LogData(log="meanwhile"), timeout=0.1)
                long_bus.request(telvane.DataStatus, timeout=0.05)
            except Expected:
                time.sleep(0.002)
        killer.wait()
        bus.wait_connected(10)
        long_bus.wait_connected(10)
        bus.publish(telvane.LogData(log=str(number)), timeout=10)
        seen = _until(lambda: listener.recv(10), number)
        assert any(isinstance(record, telvane.ConnectionLost) for record in seen)
        assert any(isinstance(record, telvane.ConnectionRestored) for record in seen)
        _until(lambda: long_listener.recv(10), number)
        assert long_bus.request(telvane.DataStatus, timeout=10).ttl == number
        while str(number) not in called:
            assert time.monotonic() < deadline + 20
            time.sleep(0.002)
        assert all(isinstance(error, Expected) for error in errors)


def _until(receive: Callable[[], Any], number: int) -> List[Any]:
    seen = []
    while not seen or getattr(seen[-1], "log", "") != str(number):
        seen.append(receive())
    return seen


@pytest.mark.parametrize("number", range(1, KILLS, 2))
def test_tests_of_event_loops_go_on(killer: Killer, long_bus: telvane.Bus, number: int,
                                    long_listener: "telvane.Listener[telvane.LogData]") -> None:
    errors: List[BaseException] = []

    async def test() -> None:
        async with aio.Bus(killer.path, on_error=lambda error, _: errors.append(error)) as bus, \
                bus.listen(telvane.LogData, with_events=True) as listener, \
                bus.respond(telvane.DataStatus, lambda: telvane.DataStatus(ttl=number)):
            await bus.wait_connected(10)
            before, long_before = bus.epoch, long_bus.epoch
            killer.kill()
            deadline = time.monotonic() + 20
            while bus.epoch == before or long_bus.epoch == long_before or not (bus.connected and long_bus.connected):
                assert time.monotonic() < deadline
                try:
                    await bus.publish(telvane.LogData(log="meanwhile"), timeout=0.1)
                    await bus.request(telvane.DataStatus, timeout=0.05)
                except Expected:
                    await asyncio.sleep(random.uniform(0, 0.004))
            await asyncio.get_running_loop().run_in_executor(None, killer.wait)
            await bus.wait_connected(10)
            await bus.publish(telvane.LogData(log=str(number)), timeout=10)
            seen: List[Any] = []
            while not seen or getattr(seen[-1], "log", "") != str(number):
                seen.append(await listener.recv(10))
            assert any(isinstance(record, telvane.ConnectionLost) for record in seen)
            assert any(isinstance(record, telvane.ConnectionRestored) for record in seen)
            assert (await bus.request(telvane.DataStatus, timeout=10)).ttl == number
            assert all(isinstance(error, Expected) for error in errors)
        await asyncio.get_running_loop().shutdown_default_executor()

    asyncio.run(test())
    long_bus.wait_connected(10)
    long_bus.publish(telvane.LogData(log=str(number)), timeout=10)
    _until(lambda: long_listener.recv(10), number)
