#!/usr/bin/env python3
"""A bus server written from the protocol alone: no code of ours, so that the tool is not only tested against
its own other half. One thread; subscriptions, relays and nothing else, except that a message on CloseAll ends the
connections of all subscribers. Usage: foreign_server.py PATH"""

import json
import selectors
import socket
import sys

listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
listener.bind(sys.argv[1])
listener.listen(5)
selector = selectors.DefaultSelector()
selector.register(listener, selectors.EVENT_READ)
subscribers = {}
sequence = 0
print("serving", flush=True)

while True:
    for key, _ in selector.select():
        if key.fileobj is listener:
            client, _ = listener.accept()
            selector.register(client, selectors.EVENT_READ)
            continue
        client = key.fileobj
        packet = client.recv(16384)
        if not packet:
            selector.unregister(client)
            client.close()
            for clients in subscribers.values():
                clients.discard(client)
            continue
        message = json.loads(packet)
        header, payload = message["header"], message["payload"]
        if header in (".subscribe", ".unsubscribe"):
            channel = payload["channel"]
            clients = subscribers.setdefault(channel, set())
            clients.add(client) if header == ".subscribe" else clients.discard(client)
            client.send(json.dumps({"header": header, "success": True, "channel": channel}).encode())
            print(header, channel, flush=True)
        elif header == "CloseAll":
            for subscriber in set().union(*subscribers.values()):
                subscriber.shutdown(socket.SHUT_RDWR)
        elif header in subscribers:
            relay = {"header": header, "sequence": sequence, "payload": payload}
            sequence = (sequence + 1) % 65536
            for subscriber in subscribers[header]:
                subscriber.send(json.dumps(relay).encode())
