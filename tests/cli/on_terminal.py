#!/usr/bin/env python3
"""Runs a command on a terminal of 24 rows and 80 columns, types keys and waits for what it shows.

Usage: on_terminal.py STEP... -- COMMAND..., where a step is expect:REGEX, which waits until the newest page has it, or
type:KEYS. The newest page begins at the last cursor home. Exits with the code of the command, or with 99 if the page does
not come; it then prints the newest one."""

import fcntl
import os
import pty
import re
import select
import struct
import sys
import termios
import time

TIMEOUT = 60

separator = sys.argv.index("--")
steps, command = sys.argv[1:separator], sys.argv[separator + 1:]
process, terminal = pty.fork()
if process == 0:
    fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
    os.execvp(command[0], command)

shown = b""


def read():
    """Returns false at the end."""
    global shown
    if not select.select([terminal], [], [], 0.1)[0]:
        return True
    try:
        data = os.read(terminal, 65536)
    except OSError:  # the other end is closed
        return False
    shown += data
    return bool(data)


def page():
    text = shown[shown.rfind(b"\x1b[H") + 3:].decode(errors="replace")
    return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", text)


for step in steps:
    action, argument = step.split(":", 1)
    if action == "type":
        os.write(terminal, argument.encode().decode("unicode_escape").encode())
        continue
    deadline = time.monotonic() + TIMEOUT
    while not re.search(argument, page()):
        if not read() or time.monotonic() > deadline:
            print(f"no {argument!r} in:\n{page()}")
            sys.exit(99)
while read():
    pass
sys.exit(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]))
