#!/usr/bin/env python3
"""Runs a command whose standard input fails after some text: a socket whose other end is gone.

Usage: reset_input.py FILE COMMAND..., where FILE contains the text."""

import socket
import subprocess
import sys

ours, theirs = socket.socketpair()
theirs.send(b"unread")  # makes the reader get an error instead of the end
with open(sys.argv[1], "rb") as text:
    ours.sendall(text.read())
ours.close()
sys.exit(subprocess.run(sys.argv[2:], stdin=theirs, check=False).returncode)
