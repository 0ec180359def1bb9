#!/usr/bin/env python3
"""Prints the messages of a channel: subscribe.py PATH CHANNEL"""
import json
import socket
import sys

path, channel = sys.argv[1:]
bus = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
bus.connect(path)
bus.send(json.dumps({"header": ".subscribe", "payload": {"channel": channel}}).encode())
while packet := bus.recv(16384):
    message = json.loads(packet.decode(errors="replace"))
    if message["header"] == ".subscribe":
        if not message["success"]:
            sys.exit(f"the server refuses {channel}")
        print("listening", flush=True)
    else:
        print(message["sequence"], message["payload"], flush=True)
sys.exit("the server has gone")
