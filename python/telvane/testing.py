"""For test benches: a private server, a simulated power source, and expectations around a stimulus.

The fixtures of the pytest plugin use these classes, which also work without pytest.
"""
from __future__ import annotations

import os
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
from types import TracebackType
from typing import Any, Callable, Dict, Generic, List, Optional, Sequence, Tuple, Type, TypeVar, Union, overload

from ._packets import MESSAGE_LIMIT, REQUEST_PREFIX, SUBSCRIBE, publication, subscribe_request
from ._record import Record
from .bus import Bus, Listener
from .errors import BusError, RequestTimeout
from .events import ConnectionLost, ConnectionRestored, Event
from .records import RequestType

__all__ = ["Expectation", "PowerSource", "ProgramNotFound", "Server", "ServerFailed", "expect", "expect_none"]

R = TypeVar("R", bound=Record)
T = TypeVar("T")

#: Records that a failed expectation shows.
_SHOWN = 10
_START_TIMEOUT = 10.0
_STOP_TIMEOUT = 5.0
# PyPy has no name for it.
_PEER_CREDENTIALS = getattr(socket, "SO_PEERCRED", 17)
# Ends a process, and removes its directory, when the one that started it has ended in whatever way: then the other
# end of the pipe is closed.
_WATCH = 'cat >/dev/null; kill -KILL "$1" 2>/dev/null; rm -rf "$2"'


class ProgramNotFound(RuntimeError):
    """The program `telvane` is not installed."""


class ServerFailed(RuntimeError):
    """The server did not start. The message contains its output."""


def find_program(program: Optional[str] = None) -> str:
    """The path of the program `telvane`: as given, from the environment variable TELVANE_PROGRAM, or from PATH."""
    name = program or os.environ.get("TELVANE_PROGRAM") or "telvane"
    found = shutil.which(name)
    if found is None:
        raise ProgramNotFound(f"there is no program {name!r}: install the package telvane-tools, "
                              "or give its path with --telvane-program")
    return found


def short_directory() -> str:
    """A new directory whose path leaves room for the name of a socket: tmp_path is often too long for that."""
    for parent in ("/tmp", tempfile.gettempdir()):
        if os.access(parent, os.W_OK | os.X_OK):
            return tempfile.mkdtemp(prefix="tv-", dir=parent)
    return tempfile.mkdtemp(prefix="tv-")


class _Process:
    """A process that ends when this one does, and whose output is kept in a file."""

    def __init__(self, arguments: Sequence[str], output: str, directory: str) -> None:
        with open(output, "ab") as log:
            self.process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            start_new_session=True)
        try:
            watch = ["sh", "-c", _WATCH, "sh", str(self.process.pid), directory]
            self._watch = subprocess.Popen(watch, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL, start_new_session=True)
        except BaseException:
            self.process.kill()
            self.process.wait()
            raise

    def end(self, how: signal.Signals) -> None:
        # First the watch: the number of an ended process may be given to another one.
        if self._watch.poll() is None:
            self._watch.kill()
            self._watch.wait()
        if self._watch.stdin is not None:
            self._watch.stdin.close()
        if self.process.poll() is None:
            self.process.send_signal(how)
            try:
                self.process.wait(_STOP_TIMEOUT)
            except subprocess.TimeoutExpired:
                self.process.kill()
        self.process.wait()


class Server:
    """`telvane serve` on its own socket. It ends with `stop`, or when this process ends."""

    #: Servers of this process by the path of their socket, so that a failed expectation can show their output.
    _by_path: Dict[str, Server] = {}

    def __init__(self, program: Optional[str] = None, options: Sequence[str] = ()) -> None:
        self.program = find_program(program)
        self.options = list(options)
        self.directory = short_directory()
        #: Path of the socket.
        self.path = os.path.join(self.directory, "bus")
        self._output = os.path.join(self.directory, "output")
        self._process: Optional[_Process] = None
        try:
            self.start()
        except BaseException:
            shutil.rmtree(self.directory, ignore_errors=True)
            raise
        self._by_path[self.path] = self

    def start(self) -> None:
        """Starts it, for example after `kill`. Returns when it answers."""
        if self._process is not None:
            return
        process = _Process([self.program, "serve", *self.options, self.path], self._output, self.directory)
        try:
            self._await_answer(process.process)
        except BaseException:
            process.end(signal.SIGKILL)
            raise
        self._process = process

    def _await_answer(self, process: subprocess.Popen[bytes]) -> None:
        deadline = time.monotonic() + _START_TIMEOUT
        channel = "" if "--no-status" in self.options else "TelvaneChannels"
        while not _answers(self.path, process.pid, channel):
            if process.poll() is not None:
                raise ServerFailed(f"the server ended with exit code {process.returncode}:\n{self.output()}")
            if time.monotonic() > deadline:
                raise ServerFailed(f"the server did not answer within {_START_TIMEOUT:g} s:\n{self.output()}")
            time.sleep(0.005)

    @property
    def pid(self) -> Optional[int]:
        """Process ID; None while it is not running."""
        return self._process.process.pid if self._process is not None else None

    def kill(self) -> None:
        """Kills it, like a crash."""
        self._end(signal.SIGKILL)

    def restart(self) -> None:
        """Kills it and restarts it on the same path."""
        self.kill()
        self.start()

    def output(self) -> str:
        """Its output so far."""
        try:
            with open(self._output, encoding="utf-8", errors="replace") as file:
                return file.read()
        except OSError:
            return ""

    def _end(self, how: signal.Signals) -> None:
        if self._process is not None:
            self._process.end(how)
            self._process = None

    def stop(self) -> None:
        """Ends it and removes its directory. May be called more than once."""
        self._end(signal.SIGTERM)
        self._by_path.pop(self.path, None)
        shutil.rmtree(self.directory, ignore_errors=True)

    def __enter__(self) -> Server:
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()


def _answers(path: str, pid: int, channel: str) -> bool:
    """Whether the process itself answers on the path, where another server may have been before; with a channel,
    whether it also answers requests for that."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as sock:
        sock.settimeout(1.0)
        try:
            sock.connect(path)
            peer, _, _ = struct.unpack("3i", sock.getsockopt(socket.SOL_SOCKET, _PEER_CREDENTIALS, 12))
            sock.send(subscribe_request(channel or "TelvaneReady"))
            if peer != pid or SUBSCRIBE.encode() not in sock.recv(MESSAGE_LIMIT):
                return False
            if channel:
                sock.settimeout(0.02)
                sock.send(publication(REQUEST_PREFIX + channel, RequestType()))
                sock.recv(MESSAGE_LIMIT)
            return True
        except OSError:
            return False


class PowerSource:
    """`telvane weld`: publishes welds as a power source does, simulated or from a recording.

    `options` are those of the program, for example ``["--duration", "2", "--seed", "7"]``.
    """

    def __init__(self, path: str, options: Sequence[str] = (), program: Optional[str] = None) -> None:
        self.directory = short_directory()
        self._output = os.path.join(self.directory, "output")
        try:
            self._process = _Process([find_program(program), "weld", *options, path], self._output, self.directory)
        except BaseException:
            shutil.rmtree(self.directory, ignore_errors=True)
            raise

    @property
    def running(self) -> bool:
        """Whether it is still welding."""
        return self._process.process.poll() is None

    def output(self) -> str:
        """Its output so far."""
        with open(self._output, encoding="utf-8", errors="replace") as file:
            return file.read()

    def wait(self, timeout: float = 60.0) -> None:
        """Waits for the end of the last weld; raises RequestTimeout, or RuntimeError with the output if it failed."""
        try:
            code = self._process.process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise RequestTimeout(f"the power source still welds after {timeout:g} s") from None
        if code != 0:
            raise RuntimeError(f"telvane weld ended with exit code {code}:\n{self.output()}")

    def stop(self) -> None:
        """Ends it. May be called more than once."""
        self._process.end(signal.SIGTERM)
        shutil.rmtree(self.directory, ignore_errors=True)

    def __enter__(self) -> PowerSource:
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()


class Expectation(Generic[T]):
    """The result of `expect` and `expect_none`. Use it in a ``with`` statement around the stimulus."""

    def __init__(self, bus: Bus, what: Union[str, Type[Record]], where: Optional[Callable[[Any], bool]], within: float,
                 channel: Optional[str], none: bool) -> None:
        self._bus = bus
        self._what = what
        self._where = where
        self._within = within
        self._channel = channel
        self._none = none
        self._listener: Optional[Listener[Any]] = None
        self._begin = 0.0
        self._record: Optional[T] = None
        #: Records that came and did not match, with the seconds since the begin.
        self.others: List[Tuple[float, Any]] = []

    @property
    def record(self) -> T:
        """The record that matched."""
        if self._record is None:
            raise AttributeError("there is no record before the end of the with statement")
        return self._record

    def __enter__(self) -> Expectation[T]:
        self._bus.wait_connected()
        self._listener = self._bus.listen(self._what, channel=self._channel, with_events=True)
        self._begin = time.monotonic()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        __tracebackhide__ = True
        assert self._listener is not None
        try:
            if error is None:
                self._await(self._listener)
        finally:
            self._listener.close()

    def _await(self, listener: Listener[Any]) -> None:
        __tracebackhide__ = True
        deadline = time.monotonic() + self._within
        while True:
            try:
                record = listener.recv(max(0.0, deadline - time.monotonic()))
            except BusError:
                break
            since = time.monotonic() - self._begin
            if isinstance(record, Event) or self._where is not None and not self._where(record):
                self.others.append((since, record))
            elif self._none:
                self._record = record
                raise AssertionError(self._message(f"came after {since:.3f} s: {record!r}"))
            else:
                self._record = record
                return
        if not self._none:
            raise AssertionError(self._message(f"did not come within {self._within:g} s"))
        if any(isinstance(other, ConnectionLost) for _, other in self.others):
            raise AssertionError(self._message("cannot be excluded: the connection was lost"))

    def _message(self, what: str) -> str:
        listener = self._listener
        assert listener is not None
        condition = " that matches" if self._where is not None else ""
        lines = [f"{'no ' if self._none else ''}{listener.channel}{condition} was expected and {what}"]
        if self.others:
            lines.append(f"on {listener.channel} came instead:")
            skipped = len(self.others) - _SHOWN
            if skipped > 0:
                lines.append(f"  ({skipped} more)")
            lines += [f"  after {since:.3f} s: {_shown(other)}" for since, other in self.others[-_SHOWN:]]
        else:
            lines.append(f"on {listener.channel} came nothing else")
        if listener.counters.invalid:
            lines.append(f"and {listener.counters.invalid} that could not be read")
        lines += _traffic(self._bus, listener.channel)
        server = Server._by_path.get(self._bus.path)
        if server is not None and server.output():
            lines += ["output of the server:", *("  " + line for line in server.output().splitlines()[-_SHOWN:])]
        return "\n".join(lines)


def _shown(other: Any) -> str:
    if isinstance(other, ConnectionLost):
        return f"(connection lost: {other.reason.value})"
    if isinstance(other, ConnectionRestored):
        return f"(connected again after {other.outage:.3f} s)"
    return repr(other)


def _traffic(bus: Bus, channel: str) -> List[str]:
    """What the server relayed on other channels."""
    try:
        answer = bus.request("TelvaneChannels", timeout=0.5)
        channels = [entry for entry in answer["channels"]
                    if entry["publications"] and entry["channel"] != channel
                    and "Telvane" not in entry["channel"]]
        if not channels:
            return ["on other channels the server has relayed nothing"]
        listed = ", ".join(f"{entry['channel']} {entry['publications']}" for entry in channels[:_SHOWN])
        return [f"on other channels the server has relayed: {listed}"]
    except (BusError, KeyError, TypeError) as error:
        return [f"the server does not say what it has relayed ({error})"]


@overload
def expect(bus: Bus, what: Type[R], *, where: Optional[Callable[[R], bool]] = ..., within: float = ...,
           channel: Optional[str] = ...) -> Expectation[R]: ...


@overload
def expect(bus: Bus, what: str, *, where: Optional[Callable[[Any], bool]] = ..., within: float = ...,
           channel: Optional[str] = ...) -> Expectation[Any]: ...


def expect(bus: Bus, what: Union[str, Type[Record]], *, where: Optional[Callable[[Any], bool]] = None,
           within: float = 2.0, channel: Optional[str] = None) -> Expectation[Any]:
    """Expects a record in the ``with`` statement, or up to `within` seconds after its end::

        with expect(bus, "WeldTriggerEnd", where=lambda end: end.tag == 7, within=2) as seen:
            stop_the_arc()
        assert seen.record.metrics.ArcDuration.Value > 1
    """
    return Expectation(bus, what, where, within, channel, none=False)


def expect_none(bus: Bus, what: Union[str, Type[Record]], *, where: Optional[Callable[[Any], bool]] = None,
                within: float = 0.5, channel: Optional[str] = None) -> Expectation[Any]:
    """Expects that no such record arrives until `within` seconds after the end of the ``with`` statement."""
    return Expectation(bus, what, where, within, channel, none=True)
