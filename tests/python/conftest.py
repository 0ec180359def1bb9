"""Fixtures of the package's own tests, which use the package's plugin and look for what each test leaves."""
from __future__ import annotations

import collections
import gc
import os
import pathlib
import re
import threading
import time
from typing import Iterator

import pytest

pytest_plugins = ["pytester"]

#: How often tests of outages kill the server; TELVANE_KILLS=100 is the long run.
KILLS = int(os.environ.get("TELVANE_KILLS", "10"))
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def _threads() -> "set[threading.Thread]":
    return set(threading.enumerate())


def _descriptors() -> "collections.Counter[str]":
    """What is open, by kind: a bus that lives longer than one test has another socket after an outage, and other
    programs delete files that this one has inherited."""
    found: "collections.Counter[str]" = collections.Counter()
    for name in os.listdir("/proc/self/fd"):
        try:
            found[re.sub(r":\[\d+\]| \(deleted\)$", "", os.readlink(f"/proc/self/fd/{name}"))] += 1
        except OSError:
            pass  # the one that lists the directory
    return found


def _children() -> "set[str]":
    found: "set[str]" = set()
    for thread in os.listdir("/proc/self/task"):
        try:
            found.update(pathlib.Path(f"/proc/self/task/{thread}/children").read_text(encoding="ascii").split())
        except OSError:
            pass  # the thread has ended, or the kernel does not list them
    return found


@pytest.fixture(autouse=True)
def leaves_nothing() -> Iterator[None]:
    """No thread, no descriptor and no process is left after a test."""
    threads, descriptors, children = _threads(), _descriptors(), _children()
    yield
    deadline = time.monotonic() + 5
    while (_threads() - threads or _descriptors() - descriptors or _children() - children) \
            and time.monotonic() < deadline:
        gc.collect()
        time.sleep(0.01)
    assert not _threads() - threads
    assert not _descriptors() - descriptors
    assert not _children() - children


@pytest.fixture
def golden() -> pathlib.Path:
    return ROOT / "tests/golden/records"
