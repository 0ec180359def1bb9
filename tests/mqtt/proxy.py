#!/usr/bin/env python3
"""A proxy before a broker, for faults that a broker does not have on command.

    proxy.py BROKER_PORT PORT_FILE [--refuse-5] [--no-acknowledgements]

Writes its own port to PORT_FILE. SIGUSR1 stops all reading and writing on the connections that exist, which remain
open. --refuse-5 answers clients of MQTT 5 as a broker that knows only 3.1.1. --no-acknowledgements loses each PUBACK of
the first connection.
"""
import pathlib
import selectors
import signal
import socket
import sys

broker, port_file = int(sys.argv[1]), pathlib.Path(sys.argv[2])
options = sys.argv[3:]
selector = selectors.DefaultSelector()
connections = 0


def stop_reading(*_):
    for key in list(selector.get_map().values()):
        if key.fileobj is not listener:
            selector.unregister(key.fileobj)


def packets(buffer):
    """Whole packets of MQTT, and what remains."""
    found = []
    while len(buffer) >= 2:
        length, shift, place = 0, 0, 1
        while place < len(buffer):
            byte = buffer[place]
            length |= (byte & 0x7F) << shift
            shift += 7
            place += 1
            if not byte & 0x80:
                break
        else:
            break
        if len(buffer) < place + length:
            break
        found.append(buffer[:place + length])
        buffer = buffer[place + length:]
    return found, buffer


class Side:
    def __init__(self, source, target, from_broker, number):
        self.source, self.target = source, target
        self.from_broker, self.number = from_broker, number
        self.buffer = b""
        self.first = True

    def close(self):
        for end in (self.source, self.target):
            try:
                selector.unregister(end)
            except KeyError:
                pass
            end.close()

    def forward(self):
        try:
            data = self.source.recv(65536)
        except OSError:
            data = b""
        if not data:
            return self.close()
        if "--refuse-5" in options and not self.from_broker and self.first and b"MQTT\x05" in data[:16]:
            self.source.sendall(b"\x20\x02\x00\x01")
            return self.close()
        self.first = False
        if "--no-acknowledgements" in options and self.from_broker and self.number == 1:
            found, self.buffer = packets(self.buffer + data)
            data = b"".join(packet for packet in found if packet[0] >> 4 != 4)
        try:
            self.target.sendall(data)
        except OSError:
            self.close()


listener = socket.create_server(("127.0.0.1", 0))
signal.signal(signal.SIGUSR1, stop_reading)
signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
selector.register(listener, selectors.EVENT_READ)
partial = port_file.with_suffix(".new")
partial.write_text(f"{listener.getsockname()[1]}\n")
partial.rename(port_file)
while True:
    for key, _ in selector.select():
        if key.fileobj is listener:
            client, _ = listener.accept()
            try:
                server = socket.create_connection(("127.0.0.1", broker))
            except OSError:
                client.close()
                continue
            connections += 1
            selector.register(client, selectors.EVENT_READ, Side(client, server, False, connections))
            selector.register(server, selectors.EVENT_READ, Side(server, client, True, connections))
        elif key.fileobj.fileno() >= 0:
            key.data.forward()
