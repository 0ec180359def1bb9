"""The package and the library read and print random records alike; TELVANE_FUZZ_RECORDS=1000000 is the long run."""
from __future__ import annotations

import os
import pathlib
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent


RECORDS = os.environ.get("TELVANE_FUZZ_RECORDS", "10000")


def test_random_records_are_read_and_printed_as_by_the_library() -> None:
    reference = os.environ.get("TELVANE_RECORD_REFERENCE")
    if reference is None:
        pytest.skip("TELVANE_RECORD_REFERENCE does not name the program of record_reference.cpp")
    command = [sys.executable, HERE / "fuzz_records.py", reference, "--records", RECORDS]
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    assert f"{RECORDS} records" in done.stdout
