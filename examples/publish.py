#!/usr/bin/env python3
"""Publishes a record: publish.py PATH CHANNEL JSON"""
import json
import socket
import sys

path, channel, record = sys.argv[1:]
with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as bus:
    bus.connect(path)
    bus.send(json.dumps({"header": channel, "payload": json.loads(record)}).encode())
