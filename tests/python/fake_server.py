"""Servers that misbehave as the test says."""
from __future__ import annotations

import json
import os
import shutil
import socket
import threading
from typing import Callable, List, Optional

from telvane.testing import short_directory

Answer = Callable[[socket.socket, bytes], None]


def confirm(sock: socket.socket, packet: bytes) -> None:
    """Accepts every subscription, as a server does."""
    message = json.loads(packet)
    if message["header"] in (".subscribe", ".unsubscribe"):
        answer = {"header": message["header"], "success": True, "channel": message["payload"]["channel"]}
        sock.send(json.dumps(answer, separators=(",", ":")).encode())


class FakeServer:
    """Calls `answer` with each packet of each client; without one it accepts and never reads."""

    def __init__(self, answer: Optional[Answer] = confirm, greet: Optional[Callable[[socket.socket], None]] = None,
                 backlog: int = 5, accept: bool = True) -> None:
        self.directory = short_directory()
        self.path = os.path.join(self.directory, "bus")
        self.answer, self.greet = answer, greet
        self.packets: List[bytes] = []
        self.clients: List[socket.socket] = []
        self.threads: List[threading.Thread] = []
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.listener.bind(self.path)
        self.listener.listen(backlog)
        if accept:
            self._start(self._accept)

    def _start(self, function: Callable[[], None]) -> None:
        thread = threading.Thread(target=function)
        self.threads.append(thread)
        thread.start()

    def _accept(self) -> None:
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            self.clients.append(client)
            if self.greet is not None:
                self.greet(client)
            if self.answer is not None:
                self._start(lambda client=client: self._serve(client))  # type: ignore[misc]

    def _serve(self, client: socket.socket) -> None:
        assert self.answer is not None
        while True:
            try:
                packet = client.recv(16384)
                if not packet:
                    return
                self.packets.append(packet)
                self.answer(client, packet)
            except OSError:
                return

    def drop_clients(self) -> None:
        """Closes all connections."""
        for client in self.clients:
            try:
                client.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def __enter__(self) -> FakeServer:
        return self

    def __exit__(self, *_: object) -> None:
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.drop_clients()
        for thread in self.threads:
            thread.join(5)
        for client in self.clients:
            client.close()
        shutil.rmtree(self.directory)
