#!/usr/bin/env python3
"""A client of the bus with the rights of another user, written from the protocol alone.

Usage: client_as.py PATH USER GROUP[,GROUP...] ACTION..., where an action is subscribe:CHANNEL or publish:CHANNEL.
It prints the response to each subscription, and at its end waits for a response to know that all was handled."""

import json
import os
import socket
import sys

path, user, groups, *actions = sys.argv[1:]
if os.geteuid() == 0:
    numbers = [int(group) for group in groups.split(",")]
    os.setgroups(numbers)
    os.setresgid(numbers[0], numbers[0], numbers[0])
    os.setresuid(int(user), int(user), int(user))
connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
connection.connect(path)


def request(header, channel):
    connection.send(json.dumps({"header": header, "payload": {"channel": channel}}).encode())
    while True:
        answer = json.loads(connection.recv(65536))
        if answer["header"] == header:
            return answer["success"]


for action in actions:
    verb, channel = action.split(":")
    if verb == "subscribe":
        print(channel, "subscribed" if request(".subscribe", channel) else "refused")
    else:
        connection.send(json.dumps({"header": channel, "payload": {"log": user}}).encode())
request(".unsubscribe", "None")
