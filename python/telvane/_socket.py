"""The operations on sequenced-packet sockets that both buses need."""
from __future__ import annotations

import errno
import os
import select
import socket
import sys
import time
from typing import Any, Callable, List, Optional, Tuple

from ._packets import MESSAGE_LIMIT
from .events import Reason

#: Bytes of a path that fit into a socket address.
PATH_LIMIT = 107
#: Packets that are read at once.
BATCH = 64
# PyPy has no name for the second one.
_SEND_FLAGS = socket.MSG_DONTWAIT | getattr(socket, "MSG_NOSIGNAL", 0x4000) | socket.MSG_EOR


def checked_path(path: "str | os.PathLike[str]") -> str:
    text = os.fspath(path)
    length = len(os.fsencode(text))
    if not 0 < length <= PATH_LIMIT:
        raise ValueError(f"the path of a bus has 1 to {PATH_LIMIT} bytes, and {text!r} has {length}")
    return text


def connect(path: str) -> socket.socket:
    """Connects without waiting; raises OSError, or BlockingIOError if the server's queue is full."""
    sock = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    try:
        sock.setblocking(False)
        sock.connect(path)
    except BaseException:
        sock.close()
        raise
    return sock


def reason_of(error: OSError) -> Reason:
    if error.errno in (errno.EACCES, errno.EPERM):
        return Reason.NOT_PERMITTED
    if error.errno == errno.EAGAIN:
        return Reason.BUSY
    return Reason.NO_SERVER


def send(sock: socket.socket, data: bytes) -> None:
    """Sends without waiting; raises BlockingIOError if there is no space."""
    sock.send(data, _SEND_FLAGS)


def wait_for(sock: socket.socket, event: int, timeout: float) -> bool:
    poll = select.poll()
    poll.register(sock, event)
    return bool(poll.poll(max(0.0, timeout) * 1000))


class Gathering:
    """Lets packets collect in the socket if they arrive close together.

    Waking a thread or a loop and passing it a record costs several times as much as reading the record. The pause is
    so short that most of the socket's buffer stays free.
    """

    _DENSE = 0.001
    _PACKETS = 8
    _LONGEST = 0.004

    def __init__(self) -> None:
        self._interval, self._before = 1.0, time.monotonic()

    def pause(self, packets: int) -> float:
        """Seconds to wait before the next read, after a read of so many packets; 0 while packets are rare."""
        now = time.monotonic()
        self._interval += ((now - self._before) / max(packets, 1) - self._interval) / 4
        self._before = now
        return min(self._LONGEST, self._PACKETS * self._interval) if self._interval < self._DENSE else 0.0


class Reader:
    """Reads packets from a blocking socket, all that have arrived at once.

    Every system call of Python gives up the interpreter's lock, and a thread that computes gives it back after 5 ms
    only. Packet by packet, that would be 200 packets a second, and the server would drop the rest. So the first
    packet is read in the usual way, and those that have gathered meanwhile with one ``recvmmsg`` that keeps the lock;
    it does not wait.
    """

    def __init__(self) -> None:
        self._more: Optional[Callable[[int], List[bytes]]] = _recvmmsg()

    def read(self, sock: socket.socket) -> List[bytes]:
        """At least one packet. An empty packet is the end of the connection."""
        first = sock.recv(MESSAGE_LIMIT)
        if not first or self._more is None:
            return [first]
        return [first, *self._more(sock.fileno())]

    def gathered(self, sock: socket.socket) -> List[bytes]:
        """The packets that have arrived, possibly none. Does not wait, and keeps the interpreter's lock."""
        return self._more(sock.fileno()) if self._more is not None else []


def _recvmmsg() -> Optional[Callable[[int], List[bytes]]]:
    if sys.implementation.name != "cpython":
        return None
    try:
        import ctypes

        function = ctypes.PyDLL(None, use_errno=True).recvmmsg
    except (ImportError, AttributeError, OSError):
        return None

    class Vector(ctypes.Structure):
        _fields_ = [("base", ctypes.c_void_p), ("length", ctypes.c_size_t)]

    class Header(ctypes.Structure):
        _fields_ = [("name", ctypes.c_void_p), ("name_length", ctypes.c_uint32), ("vector", ctypes.POINTER(Vector)),
                    ("vectors", ctypes.c_size_t), ("control", ctypes.c_void_p), ("control_length", ctypes.c_size_t),
                    ("flags", ctypes.c_int)]

    class Message(ctypes.Structure):
        _fields_ = [("header", Header), ("length", ctypes.c_uint)]

    buffer = ctypes.create_string_buffer(BATCH * MESSAGE_LIMIT)
    begin = ctypes.addressof(buffer)
    vectors = (Vector * BATCH)()
    messages = (Message * BATCH)()
    for index in range(BATCH):
        vectors[index].base = begin + index * MESSAGE_LIMIT
        vectors[index].length = MESSAGE_LIMIT
        messages[index].header.vector = ctypes.pointer(vectors[index])
        messages[index].header.vectors = 1
    function.restype = ctypes.c_int
    function.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_uint, ctypes.c_int, ctypes.c_void_p]
    view = memoryview(buffer).cast("B")
    keep: Tuple[Any, ...] = (buffer, vectors)

    def more(descriptor: int) -> List[bytes]:
        assert keep
        count = function(descriptor, messages, BATCH, socket.MSG_DONTWAIT, None)
        return [bytes(view[index * MESSAGE_LIMIT:index * MESSAGE_LIMIT + messages[index].length])
                for index in range(count)] if count > 0 else []

    return more
