"""The pytest plugin: fixtures for a server, a bus and a power source.

It is a separate module and imports the package only when a fixture is used, so that other tests pay
nothing.
"""
from __future__ import annotations

from typing import TYPE_CHECKING, Any, Callable, Generator, Iterator, List, Optional

import pytest

if TYPE_CHECKING:
    from telvane import Bus
    from telvane.testing import PowerSource, Server


class _RunningServer:
    """A server that is already running, for example on the machine under test."""

    def __init__(self, path: str) -> None:
        self.path = path

    def output(self) -> str:
        return ""

    def _refuse(self) -> None:
        pytest.skip("this test controls the server, and --telvane-bus names one that runs already")

    kill = restart = start = stop = _refuse


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("telvane", "Telvane bus")
    group.addoption("--telvane-bus", metavar="PATH",
                    help="use the bus that runs on PATH; by default each test has a server of its own")
    group.addoption("--telvane-program", metavar="PATH",
                    help="the program telvane, if it is not found; default: environment variable TELVANE_PROGRAM")
    parser.addini("telvane_bus", "as --telvane-bus")
    parser.addini("telvane_program", "as --telvane-program")


def _setting(config: pytest.Config, name: str) -> Optional[str]:
    value = config.getoption(f"--{name.replace('_', '-')}") or config.getini(name)
    return str(value) if value else None


@pytest.fixture
def telvane_server(request: pytest.FixtureRequest) -> Iterator[Any]:
    """A server on its own socket (`telvane.testing.Server`), or the running server of --telvane-bus."""
    path = _setting(request.config, "telvane_bus")
    if path is not None:
        yield _RunningServer(path)
        return
    from telvane.testing import ProgramNotFound, Server

    try:
        server = Server(_setting(request.config, "telvane_program"))
    except ProgramNotFound as error:
        pytest.fail(str(error), pytrace=False)
    request.node.stash[_server_key] = server
    try:
        yield server
    finally:
        server.stop()


@pytest.fixture
def telvane_path(telvane_server: Server) -> str:
    """The path of the bus."""
    return telvane_server.path


@pytest.fixture
def telvane_bus(telvane_server: Server) -> Iterator[Bus]:
    """A connected bus."""
    import telvane

    with telvane.Bus(telvane_server.path) as bus:
        bus.wait_connected()
        yield bus


@pytest.fixture
def telvane_weld(request: pytest.FixtureRequest, telvane_server: Server) -> Iterator[Callable[..., PowerSource]]:
    """A function that starts a simulated power source: ``telvane_weld("--duration", "2")``.

    The arguments are those of `telvane weld`. Sources that are still running are stopped after the test."""
    from telvane.testing import PowerSource

    program = _setting(request.config, "telvane_program")
    started: List[PowerSource] = []

    def weld(*options: Any) -> PowerSource:
        source = PowerSource(telvane_server.path, [str(option) for option in options], program)
        started.append(source)
        return source

    try:
        yield weld
    finally:
        for source in started:
            source.stop()


_server_key: pytest.StashKey[Any] = pytest.StashKey()


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: pytest.Item) -> Generator[None, Any, None]:
    """Shows the output of the server with the failure of a test."""
    outcome = yield
    report = outcome.get_result()
    server = item.stash.get(_server_key, None)
    if report.when == "call" and report.failed and server is not None:
        report.sections.append(("Output of the Telvane server", server.output() or "(nothing)"))
